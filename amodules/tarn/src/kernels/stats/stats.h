// Statistics of a plane: minimum and maximum, pixels in a range, mean, per channel.
#pragma once

#include "kernels/base/kernel.h"

namespace tarn::k {

// Smallest and largest value of each channel, as floats (exact for 8 and 16 bits); either result may be null. Floats
// that are NaN are passed over, and a channel of nothing else gives NaN for both; a zero is +0.
using MinMax = Status(const void* src, int32_t src_stride, Size size, float* smallest, float* largest);
#define TARN_ARITY_MinMax 5

// Pixels of each channel with lower <= value <= upper, the bounds one a channel in the plane's type. No pixel when
// lower is above upper, or a bound or value is NaN. Counts stop at 2^31 - 1.
using CountInRange = Status(const void* src, int32_t src_stride, Size size, const void* lower, const void* upper,
                            int32_t* counts);
#define TARN_ARITY_CountInRange 6

// Mean of each channel. Integers are summed exactly. Floats are summed in double in 48 lanes: element i of a row into
// lane i modulo 48, the lanes of a channel then from the first to the last; any NaN is the positive quiet NaN.
using PlaneMean = Status(const void* src, int32_t src_stride, Size size, double* means);
#define TARN_ARITY_PlaneMean 4

#define KERNELS(op, Fn, types, forms) TARN_KERNELS(op, Fn, types, forms)
#include "kernels/stats/stats.def"
#undef KERNELS
}  // namespace tarn::k
