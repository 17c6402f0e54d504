// Lanczos resize.
#include "kernels/resize/resample.h"

namespace tarn::k::TARN_LEVEL {

TARN_BODIES(resize_lanczos, Resize, u8_s16_f32, c1_c3_c4_c3x, resize<resampled<Lanczos, T, T, kForm>, T, kForm>)

}  // namespace tarn::k::TARN_LEVEL
