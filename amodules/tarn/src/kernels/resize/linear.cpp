// Linear resize to 16-bit and float pixels.
#include "kernels/resize/half.h"
#include "kernels/resize/resample.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// One channel of bytes at exactly half the size, widened.
template <class D>
Status half_of_bytes(const Job& j) {
    for (int64_t y = j.top; y < j.bottom; ++y) {
        const uint8_t* TARN_RESTRICT upper = j.src_row<uint8_t>(j.region.y + 2 * y) + j.region.x;
        const uint8_t* TARN_RESTRICT lower = j.src_row<uint8_t>(j.region.y + 2 * y + 1) + j.region.x;
        Loose<D>* TARN_RESTRICT d = j.dst_row<Loose<D>>(y);
        for (int64_t x = 0; x < j.dst_size.width; ++x) {
            const int32_t sum = upper[2 * x] + upper[2 * x + 1] + lower[2 * x] + lower[2 * x + 1];
            if constexpr (sizeof(D) == 4)
                d[x] = 0.25f * float(sum);
            else
                d[x] = D(round_even<2>(sum));
        }
    }
    return kOk;
}

template <class T, Form kForm>
Status linear(const Job& j) {
    return halves(j) ? half<T, kForm>(j) : resampled<Linear, T, T, kForm>(j);
}
template <class D, Form kForm>
Status linear_of_bytes(const Job& j) {
    return kForm == Form::c1 && halves(j) ? half_of_bytes<D>(j) : resampled<Linear, uint8_t, D, kForm>(j);
}

}  // namespace

TARN_BODIES(resize_linear, Resize, s16_f32, c1_c3_c4_c3x, resize<linear<T, kForm>, T, kForm>)
TARN_BODIES(resize_u8_linear, Resize, s16_f32, c1_c3_c4, checked<linear_of_bytes<T, kForm>>)

}  // namespace tarn::k::TARN_LEVEL
