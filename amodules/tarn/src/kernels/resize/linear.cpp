// Linear resize of 16-bit and float pixels.
#include "kernels/resize/resample.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// One channel at exactly half the size: the same sums, whose weights are all a half, straight from the two rows.
template <class T>
Status half(const Job& j) {
    const auto mean = [](float a, float b) { return mul_add(0.5f, b, 0.5f * a); };
    for (int64_t y = 0; y < j.dst_size.height; ++y) {
        const Loose<T>* TARN_RESTRICT upper = j.src_row<Loose<T>>(j.region.y + 2 * y) + j.region.x;
        const Loose<T>* TARN_RESTRICT lower = j.src_row<Loose<T>>(j.region.y + 2 * y + 1) + j.region.x;
        Loose<T>* TARN_RESTRICT d = j.dst_row<Loose<T>>(y);
        for (int64_t x = 0; x < j.dst_size.width; ++x) {
            const float v = mean(mean(upper[2 * x], upper[2 * x + 1]), mean(lower[2 * x], lower[2 * x + 1]));
            d[x] = round_to<T>(sizeof(T) == 4 ? settle_nan(v) : v);
        }
    }
    return kOk;
}

template <class T, Form kForm>
Status linear(const Job& j) {
    return kForm == Form::c1 && halves(j) ? half<T>(j) : resampled<Linear, T, kForm>(j);
}

}  // namespace

TARN_BODIES(resize_linear, Resize, s16_f32, c1_c3_c4_c3x, resize<linear<T, kForm>, T, kForm>)

}  // namespace tarn::k::TARN_LEVEL
