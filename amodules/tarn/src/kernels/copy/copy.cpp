// Plane copies: those of plane/move.h, which other families use on their way.
#include "kernels/copy/copy.h"

#include "kernels/plane/move.h"

namespace tarn::k::TARN_LEVEL {
namespace {

template <class T, Form kForm>
Status copy(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size) {
    if constexpr (kept(kForm))
        return copy_rows_c3x(src, src_stride, dst, dst_stride, size, kPixelBytes<T, kForm>, colour_mask<T>());
    else
        return copy_rows(src, src_stride, dst, dst_stride, size, kPixelBytes<T, kForm>);
}

}  // namespace

TARN_BODIES(copy, Unary, u8_s16_s32, c1_c3_c4_c3x, copy<T, kForm>)

}  // namespace tarn::k::TARN_LEVEL
