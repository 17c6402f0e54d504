// Fully connected networks: the matrix product with its bias, and the activations.
//
// All matrices are of 32-bit floats, element_stride bytes apart within a row (a multiple of 4, above 0). A NaN result
// is always the same quiet NaN (0x7fc00000), so that results do not depend on which operand an instruction passes on.
#pragma once

#include "kernels/base/kernel.h"

namespace tarn::k {

// y[r][j] := sum over i < k of x[r][i] * w[j][i], plus bias[j] unless bias is null.
//   size  height: rows of x and y (samples); width: rows of w and columns of y (neurons)
//   k     columns of x and w; 0 gives sums of 0
// The sum: lane i mod 16 collects its products by fused multiply-add in the order of i, starting at 0, the missing
// elements of the last sixteen counted as 0 * 0; then lanes 8 apart are added, then 4, 2 and 1 apart.
using NetProduct = Status(const void* x, int32_t x_stride, const void* w, int32_t w_stride, const void* bias, void* y,
                          int32_t y_stride, int32_t element_stride, int32_t k, Size size);

// y[r][j] := f(y[r][j]), or of the whole row for the softmax.
using NetActivation = Status(void* y, int32_t stride, int32_t element_stride, Size size);

#define KERNEL(name, Fn) TARN_KERNEL(name, Fn)
#include "kernels/net/net.def"
#undef KERNEL
}  // namespace tarn::k
