// Cubic resize: Catmull-Rom.
#include "kernels/resize/filter.h"

namespace tarn::k::TARN_LEVEL {
namespace {

struct Cubic {
    static constexpr int kTaps = 4;
    static void weights(const double* f, double (*w)[kBlock]) {
        for (int i = 0; i < kBlock; ++i) {
            const double t = f[i], u = 1.0 - t;
            w[0][i] = -0.5 * t * u * u;
            w[1][i] = 1.0 + t * t * (1.5 * t - 2.5);
            w[2][i] = 1.0 + u * u * (1.5 * u - 2.5);
            w[3][i] = -0.5 * u * t * t;
        }
    }
};

}  // namespace

TARN_RESIZES_OF(cubic, u8, Cubic, uint8_t)
TARN_RESIZES_OF(cubic, s16, Cubic, int16_t)
TARN_RESIZES_OF(cubic, f32, Cubic, float)

}  // namespace tarn::k::TARN_LEVEL
