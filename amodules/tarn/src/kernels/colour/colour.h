// Pixels in other colours and other layouts. Source and destination must not overlap, but for reverse_channels, which
// may work in place.
//
// grey_to_three: each element three times. reverse_channels: the first channel and the third change places.
// three_to_four: the fourth is 255. four_to_three: without the fourth.
//
// Grey is 0.299 R + 0.587 G + 0.114 B. Of integers it is the exact sum's nearest integer, ties to the even one. Of
// floats it is (0.299f R + 0.587f G) + 0.114f B, rounded after each step, and the one quiet NaN where that is any.
#pragma once

#include "kernels/base/kernel.h"

namespace tarn::k {

// Three or four planes to pixels of so many channels, and back. The planes, all of one stride, must not overlap.
using Interleave = Status(const void* const planes[], int32_t src_stride, void* dst, int32_t dst_stride, Size size);
#define TARN_ARITY_Interleave 5
using Deinterleave = Status(const void* src, int32_t src_stride, void* const planes[], int32_t dst_stride, Size size);
#define TARN_ARITY_Deinterleave 5

#define KERNELS(op, Fn, types, forms) TARN_KERNELS(op, Fn, types, forms)
#include "kernels/colour/colour.def"
#undef KERNELS
}  // namespace tarn::k
