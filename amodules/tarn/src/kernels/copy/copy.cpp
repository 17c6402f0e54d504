// Plane copies: those of plane/move.h, which other families use on their way.
#include "kernels/copy/copy.h"

#include "kernels/plane/move.h"

namespace tarn::k::TARN_LEVEL {

TARN_BODIES(copy, Unary, u8_s16_s32, c1_c3_c4_c3x, move_plane<T, kForm>)

}  // namespace tarn::k::TARN_LEVEL
