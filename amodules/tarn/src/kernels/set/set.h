// Fills with one constant per channel: of a whole region, or of the pixels that a mask selects. The s32 kernels serve
// floats too: a fill moves bits.
#pragma once

#include "kernels/base/kernel.h"

namespace tarn::k {

// dst := constant; one constant per channel worked on, of the element type.
using Fill = Status(const void* constant, void* dst, int32_t dst_stride, Size size);
#define TARN_ARITY_Fill 4

// dst := constant where the mask (8-bit, one channel) is not zero.
using MaskedSet = Status(const void* constant, void* dst, int32_t dst_stride, Size size, const void* mask,
                         int32_t mask_stride);
#define TARN_ARITY_MaskedSet 6

#define KERNELS(op, Fn, types, forms) TARN_KERNELS(op, Fn, types, forms)
#include "kernels/set/set.def"
#undef KERNELS
}  // namespace tarn::k
