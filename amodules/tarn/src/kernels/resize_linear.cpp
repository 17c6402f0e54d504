// Linear resize of 16-bit and float pixels.
#include "kernels/resize_filter.h"

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
};

}  // namespace

TARN_RESIZES_OF(linear, s16, Linear, int16_t)
TARN_RESIZES_OF(linear, f32, Linear, float)

}  // namespace tarn::k::TARN_LEVEL
