// Sums, differences and products with constants (in place) and over lists of planes, and the mean of a list. Integers
// saturate after every step. Floats: where both operands are NaN, the first one's (the destination's) is the result.
#pragma once

#include "kernels/base/kernel.h"

namespace tarn::k {

// dst := dst op constant; one constant per channel worked on, of the element type.
using WithConstantInPlace = Status(const void* constant, void* dst, int32_t dst_stride, Size size);
#define TARN_ARITY_WithConstantInPlace 4

// A list of planes of any length, as its owner keeps it. `at` is called once per plane and strip.
struct Source {
    const void* data;
    int32_t stride;
};
struct Sources {
    Source (*at)(const void* list, int32_t i);
    const void* list;
    int32_t count;  // above 0
};

// dst := ((source 0 op source 1) op source 2) ... The destination may be source 0 (same pointer and stride); it must
// not overlap any other source.
using Fold = Status(const Sources* sources, void* dst, int32_t dst_stride, Size size);
#define TARN_ARITY_Fold 4

// dst := (the sum of the sources) / divisor, to the nearest, ties to even. s16: the sum saturates after every step and
// the divisor is cut to 16 bits (0 is a bad argument: dst then holds the sum). The destination may be source 0; for u8
// it may be any source, and the divisor is the count.
//   scratch  u8: kAverageScratch bytes, aligned to 16; others: not used
using Average = Status(const Sources* sources, int32_t divisor, void* dst, int32_t dst_stride, Size size,
                       void* scratch);
#define TARN_ARITY_Average 6
inline constexpr int64_t kAverageScratch = 5 * 4096;

#define KERNELS(op, Fn, types, forms) TARN_KERNELS(op, Fn, types, forms)
#include "kernels/arith/arith.def"
#undef KERNELS
}  // namespace tarn::k
