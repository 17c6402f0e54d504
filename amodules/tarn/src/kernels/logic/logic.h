// Bitwise kernels over two arrays, over an array and a constant per channel, and the complement. Any of them works in
// place: a source may be the destination.
#pragma once

#include "kernels/base/kernel.h"

namespace tarn::k {

// dst := src op constant, one constant per channel (of the destination's element type).
using WithConstant = Status(const void* src, int32_t src_stride, const void* constant, void* dst, int32_t dst_stride,
                            Size size);
#define TARN_ARITY_WithConstant 6

#define KERNELS(op, Fn, types, forms) TARN_KERNELS(op, Fn, types, forms)
#include "kernels/logic/logic.def"
#undef KERNELS
}  // namespace tarn::k
