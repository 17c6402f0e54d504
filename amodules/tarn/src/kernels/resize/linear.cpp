// Linear resize of 16-bit and float pixels.
#include "kernels/resize/filter.h"

namespace tarn::k::TARN_LEVEL {
namespace {

struct Linear {
    static constexpr int kTaps = 2;
    static void weights(const double* f, double (*w)[kBlock]) {
        for (int i = 0; i < kBlock; ++i) {
            w[0][i] = 1.0 - f[i];
            w[1][i] = f[i];
        }
    }

    // One channel at exactly half the size: the same sums, whose weights are all a half, straight from the two rows.
    template <class T>
    static Status half(const Job& j) {
        const auto mean = [](float a, float b) { return fused(0.5f, b, 0.5f * a); };
        for (int64_t y = 0; y < j.dst_size.height; ++y) {
            const T* TARN_RESTRICT upper = row<T>(j.src, j.src_stride, j.region.y + 2 * y) + j.region.x;
            const T* TARN_RESTRICT lower = row<T>(j.src, j.src_stride, j.region.y + 2 * y + 1) + j.region.x;
            T* TARN_RESTRICT d = row<T>(j.dst, j.dst_stride, y);
            for (int64_t x = 0; x < j.dst_size.width; ++x)
                store(d + x, mean(mean(upper[2 * x], upper[2 * x + 1]), mean(lower[2 * x], lower[2 * x + 1])));
        }
        return kOk;
    }
};

}  // namespace

TARN_RESIZES_OF(linear, s16, Linear, int16_t)
TARN_RESIZES_OF(linear, f32, Linear, float)

}  // namespace tarn::k::TARN_LEVEL
