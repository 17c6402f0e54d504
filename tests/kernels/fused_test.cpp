// The exact fused multiply-add against the library's. This file is built for the lowest level, whatever the machine, so it
// is the emulation that is tested; the kernels that use it are tested at every level. fused_portable_test.cpp builds it
// again for processors without vectors of ours.
#ifndef TARN_LEVEL
#define TARN_LEVEL fused
#endif
#include "kernels/simd/fused.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace tarn::k::TARN_LEVEL {
namespace {

bool same(float got, float want) {
    return std::isnan(want) ? std::isnan(got) : std::bit_cast<uint32_t>(got) == std::bit_cast<uint32_t>(want);
}

// The scalar, and the vector with its other elements plain and, by turns, as doubtful.
void check(float a, float b, float c) {
    const float want = std::fma(a, b, c), got = mul_add(a, b, c);
    ASSERT_PRED2(same, got, want) << std::hexfloat << a << " * " << b << " + " << c;
    static int lane = 0;
    lane = (lane + 1) % (2 * kLanes<float>);
    const bool all = lane >= kLanes<float>;
    F32 x = all ? splat(a) : splat(3.0f), y = all ? splat(b) : splat(0.5f), z = all ? splat(c) : splat(-7.0f);
    x[lane % kLanes<float>] = a, y[lane % kLanes<float>] = b, z[lane % kLanes<float>] = c;
    const F32 v = mul_add(x, y, z);
    for (int i = 0; i < kLanes<float>; ++i)
        ASSERT_PRED2(same, v[i], all || i == lane ? want : -5.5f)
            << "element " << i << std::hexfloat << ": " << x[i] << " * " << y[i] << " + " << z[i];
}

}  // namespace

TEST(TARN_LEVEL, special_values) {
    std::vector<float> special = {0, std::numeric_limits<float>::infinity(), std::numeric_limits<float>::quiet_NaN()};
    for (const int exponent : {-149, -148, -127, -126, -100, -86, -75, -63, -48, -25, -24, -23, 0, 1, 23, 24, 100, 127})
        for (const float mantissa : {1.0f, 1.5f, 0x1.000002p0f, 0x1.fffffep0f})
            special.push_back(std::ldexp(mantissa, exponent));
    for (const float a : special)
        for (const float b : special)
            for (const float c : special)
                for (int signs = 0; signs < 4; ++signs) check(signs & 1 ? -a : a, b, signs & 2 ? -c : c);
}

TEST(TARN_LEVEL, any_bits) {
    std::mt19937 rng(1);
    for (int i = 0; i < 300000; ++i)
        check(std::bit_cast<float>(uint32_t(rng())), std::bit_cast<float>(uint32_t(rng())),
              std::bit_cast<float>(uint32_t(rng())));
}

// Sums beside a half-way between two floats, too near it for a double to tell: the product is half of c's last place but
// for a rest, which is up to 2^-24 of it. In denormals too.
TEST(TARN_LEVEL, half_ways) {
    std::mt19937 rng(2);
    for (int i = 0; i < 300000; ++i) {
        const int last = rng() % 2 ? -149 : int(rng() % 200) - 149;  // the exponent of c's last place
        const float a = std::ldexp(float((rng() & 0x7fffff) + 0x800000), last / 2);
        const float b = float(std::ldexp(1.0, last - 1) / double(a));
        const float c = std::ldexp(float(rng() & 0xffffff), last);
        check(rng() % 2 ? -a : a, b, rng() % 2 ? -c : c);
    }
}

// What is left of a product when most of it is taken off.
TEST(TARN_LEVEL, cancelled) {
    std::mt19937 rng(3);
    for (int i = 0; i < 100000; ++i) {
        const int exponent = int(rng() % 120) - 75;
        const float a = std::ldexp(float(rng() & 0xffffff), exponent),
                    b = std::ldexp(float(rng() & 0xffffff), exponent);
        check(a, -b, a * b);
    }
}

}  // namespace tarn::k::TARN_LEVEL
