// A source in the middle of a larger destination, with a border around it: of the nearest source pixels, or of a
// constant.
//
//   dst_size  the whole destination, all of which is written: source and border
//   corner    where in the destination the source's first pixel goes: the widths of the border on the left and on top
//
// The source may lie in the destination already, at its place and with one stride: then only the border is written. It
// may overlap the destination otherwise too, under the conditions of a copy (copy.h). The s32 kernels serve every
// four-byte element.
//
// Statuses: kNull, kBadSize (a size not positive, a destination too small for corner and source), kBadArg (a negative
// corner).
#pragma once

#include "kernels/base/kernel.h"

namespace tarn::k {

using Border = Status(const void* src, int32_t src_stride, Size src_size, void* dst, int32_t dst_stride, Size dst_size,
                      Offset corner);
#define TARN_ARITY_Border 7
// constant: one for each channel that is worked on, of the kernel's type.
using ConstantBorder = Status(const void* src, int32_t src_stride, Size src_size, void* dst, int32_t dst_stride,
                              Size dst_size, Offset corner, const void* constant);
#define TARN_ARITY_ConstantBorder 8

#define KERNELS(op, Fn, types, forms) TARN_KERNELS(op, Fn, types, forms)
#include "kernels/border/border.def"
#undef KERNELS

}  // namespace tarn::k
