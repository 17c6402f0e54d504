// Walks all 2^32 floats through the exponential kernel: its greatest error against the C library's double exp (whose
// own error is below 2^-29 of a float's last place), and the same bits at every level this machine has. Minutes; ./dev
// exhaustive.
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <vector>

#include "kernels/net/net.h"
#include "kernels/base/runtime.h"

using namespace tarn::k;

namespace {

struct Worst {
    double ulps = 0;
    uint32_t bits = 0;
    uint64_t not_nearest = 0, failures = 0;
};

// The distance of two neighbouring floats at a value.
double unit_at(double v) { return std::ldexp(1, std::max(std::ilogb(v) - 23, -149)); }

void check(uint32_t bits, float got, Worst& worst) {
    const float x = std::bit_cast<float>(bits);
    const double exact = std::exp(double(x));
    const float nearest = float(exact);
    if (std::isnan(x))
        worst.failures += std::bit_cast<uint32_t>(got) != 0x7fc00000;
    else if (std::isinf(nearest) || nearest == 0)
        worst.failures += got != nearest || std::signbit(got);
    else {
        const double ulps = std::fabs(got - exact) / unit_at(exact);
        worst.not_nearest += got != nearest;
        worst.failures += !(ulps < 1);
        if (ulps > worst.ulps) worst.ulps = ulps, worst.bits = bits;
    }
}

}  // namespace

int main() {
    constexpr uint32_t kPiece = 1 << 16;
    select_level();
    const int highest = active_level;
    std::vector<float> input(kPiece), got(kPiece), other(kPiece);
    Worst worst;
    uint64_t other_bits = 0;
    for (uint64_t first = 0; first < uint64_t(1) << 32; first += kPiece) {
        for (uint32_t i = 0; i < kPiece; ++i) input[i] = std::bit_cast<float>(uint32_t(first) + i);
        for (int level = highest; level >= 0; --level) {
            active_level = level;
            std::vector<float>& out = level == highest ? got : other;
            out = input;
            net_exp_f32(out.data(), 0, 4, Size{int32_t(kPiece), 1});
            if (level != highest) other_bits += std::memcmp(out.data(), got.data(), kPiece * sizeof(float)) != 0;
        }
        for (uint32_t i = 0; i < kPiece; ++i) check(uint32_t(first) + i, got[i], worst);
    }
    const float x = std::bit_cast<float>(worst.bits);
    std::printf(
        "exponential, all 2^32 floats, levels 0 to %d: greatest error %.5f ulp at %.9g (%a); %llu not the nearest "
        "float;\n"
        "%llu beyond 1 ulp or wrong at the ends; %llu blocks with other bits at a lower level\n",
        highest, worst.ulps, double(x), double(x), static_cast<unsigned long long>(worst.not_nearest),
        static_cast<unsigned long long>(worst.failures), static_cast<unsigned long long>(other_bits));
    return worst.failures || other_bits ? 1 : 0;
}
