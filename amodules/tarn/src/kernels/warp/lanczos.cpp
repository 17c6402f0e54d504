// Lanczos warp: three lobes, weights normalised to 1.
#include "kernels/warp/filtered.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// The normalised weights are smooth, and sums and differences of two that lie opposite each other are even and odd.
// With x = t - 1/2 and q = t (1 - t) they are
//   0, 5: q (a - x b), q (a + x b)      1, 4: q (c - x d), q (c + x d)      2, 3: 1 - t - q (a + c + x e), t - q (a + c - x e)
// where a to e are polynomials of q, which meet the real values at the Chebyshev points of [0, 1/4] and are everywhere
// so near that the weights are within 2^-30.
struct Lanczos {
    static constexpr int kTaps = 6;
    static F32 polynomial(F32 q, const float (&c)[6]) {
        F32 v = splat(c[5]);
        for (int i = 4; i >= 0; --i) v = v * q + splat(c[i]);
        return v;
    }
    [[gnu::always_inline]] static void weights(const Place& p, float scale, F32 (&w)[kTaps]) {
        constexpr float a[] = {0.1033741684f,   -0.006944601815f, -0.05608386632f,
                               -0.01769018816f, -0.00564536725f,  -0.008424804226f};
        constexpr float b[] = {0.2067483346f,  0.1773859041f,  0.06347704024f,
                               0.03437980112f, 0.02058037829f, 0.01849381973f};
        constexpr float c[] = {-0.5168708388f,  -0.105751851f,   0.004334236078f,
                               -0.02397235934f, -0.01455012324f, -0.009158413066f};
        constexpr float d[] = {-0.6202450045f,  -0.3750008204f,  -0.1447713669f,
                               -0.08715116242f, -0.04865027554f, -0.04350029414f};
        constexpr float e[] = {1.173006651f,  0.6094470421f,  0.2908012759f,
                               0.1735667533f, 0.08966929945f, 0.08252235819f};
        const F32 q = p.q, scaled = q * splat(scale), r = scaled * p.middle;
        const F32 outer = scaled * polynomial(q, a), outer_slant = r * polynomial(q, b);
        const F32 next = scaled * polynomial(q, c), next_slant = r * polynomial(q, d);
        const F32 both = outer + next, slant = r * polynomial(q, e);
        w[0] = outer - outer_slant, w[5] = outer + outer_slant;
        w[1] = next - next_slant, w[4] = next + next_slant;
        p.add(scale, -(both + slant), slant - both, w[2], w[3]);
    }
};

}  // namespace

TARN_BODIES(warp_lanczos, Warp, u8_s16_f32, c1_c3_c4_c3x, warp<walk<Filtered<Lanczos, T, kForm>>>)

}  // namespace tarn::k::TARN_LEVEL
