// Cubic warp: Catmull-Rom.
#include "kernels/warp/filtered.h"

namespace tarn::k::TARN_LEVEL {
namespace {

struct Cubic {
    static constexpr int kTaps = 4;
    [[gnu::always_inline]] static void weights(const Place& p, float scale, F32 (&w)[kTaps]) {
        const F32 r = p.q * p.middle, even = p.q * splat(0.25f * scale);
        const F32 outer = r * splat(0.5f * scale), inner = r * splat(1.5f * scale);
        w[0] = outer - even, w[3] = -(outer + even);
        p.add(scale, even - inner, even + inner, w[1], w[2]);
    }
};

}  // namespace

TARN_BODIES(warp_cubic, Warp, u8_s16_f32, c1_c3_c4_c3x, warp<walk<Filtered<Cubic, T, kForm>>>)

}  // namespace tarn::k::TARN_LEVEL
