// Linear resize to 16-bit and float pixels.
#include "kernels/resize/resample.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// One channel at exactly half the size: the same sums, whose weights are all a half, straight from the two rows.
template <class S, class D>
Status half(const Job& j) {
    const auto mean = [](float a, float b) { return mul_add(0.5f, b, 0.5f * a); };
    for (int64_t y = j.top; y < j.bottom; ++y) {
        const Loose<S>* TARN_RESTRICT upper = j.src_row<Loose<S>>(j.region.y + 2 * y) + j.region.x;
        const Loose<S>* TARN_RESTRICT lower = j.src_row<Loose<S>>(j.region.y + 2 * y + 1) + j.region.x;
        Loose<D>* TARN_RESTRICT d = j.dst_row<Loose<D>>(y);
        for (int64_t x = 0; x < j.dst_size.width; ++x) {
            const float v = mean(mean(upper[2 * x], upper[2 * x + 1]), mean(lower[2 * x], lower[2 * x + 1]));
            d[x] = round_to<D>(sizeof(D) == 4 ? settle_nan(v) : v);
        }
    }
    return kOk;
}

template <class S, class D, Form kForm>
Status linear(const Job& j) {
    return kForm == Form::c1 && halves(j) ? half<S, D>(j) : resampled<Linear, S, D, kForm>(j);
}

}  // namespace

TARN_BODIES(resize_linear, Resize, s16_f32, c1_c3_c4_c3x, resize<linear<T, T, kForm>, T, kForm>)
TARN_BODIES(resize_u8_linear, Resize, s16_f32, c1_c3_c4, checked<linear<uint8_t, T, kForm>>)

}  // namespace tarn::k::TARN_LEVEL
