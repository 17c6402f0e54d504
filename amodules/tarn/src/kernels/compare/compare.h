// Comparisons of two arrays and of an array with one constant per channel. dst is 8-bit, one channel: 255 where the
// comparison holds in every channel compared, else 0. Nothing holds for a NaN.
#pragma once

#include "kernels/base/kernel.h"

namespace tarn::k {

enum Comparison : int32_t { kLess, kLessEqual, kEqual, kGreaterEqual, kGreater };

// dst := a compared with b. Any number that is no Comparison is a bad argument.
using Compare = Status(const void* a, int32_t a_stride, const void* b, int32_t b_stride, void* dst, int32_t dst_stride,
                       Size size, int32_t comparison);
#define TARN_ARITY_Compare 8
// dst := src compared with the constants.
using CompareConstant = Status(const void* src, int32_t src_stride, const void* constant, void* dst, int32_t dst_stride,
                               Size size, int32_t comparison);
#define TARN_ARITY_CompareConstant 7

#define KERNELS(op, Fn, types, forms) TARN_KERNELS(op, Fn, types, forms)
#include "kernels/compare/compare.def"
#undef KERNELS
}  // namespace tarn::k
