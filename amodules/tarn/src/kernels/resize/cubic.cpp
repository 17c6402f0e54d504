// Cubic resize.
#include "kernels/resize/resample.h"

namespace tarn::k::TARN_LEVEL {

TARN_BODIES(resize_cubic, Resize, u8_s16_f32, c1_c3_c4_c3x, resize<resampled<Cubic, T, T, kForm>, T, kForm>)
TARN_BODIES(resize_u8_cubic, Resize, s16_f32, c1_c3_c4, checked<resampled<Cubic, uint8_t, T, kForm>>)

}  // namespace tarn::k::TARN_LEVEL
