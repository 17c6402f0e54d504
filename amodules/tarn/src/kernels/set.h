// Fills with one constant per channel: of a whole region, or of the pixels that a mask selects. The s32 kernels serve
// floats too: a fill moves bits.
#pragma once

#include "kernels/kernel.h"

namespace tarn::k {

// dst := constant where the mask (8-bit, one channel) is not zero.
using MaskedSet = Status(const void* constant, void* dst, int32_t dst_stride, Size size, const void* mask,
                         int32_t mask_stride);

#define KERNEL(name, Fn) TARN_KERNEL(name, Fn)
#include "kernels/set.def"
#undef KERNEL
}  // namespace tarn::k
