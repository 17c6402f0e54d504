// Thresholds: each element becomes one of two values, by a comparison with a level. And the histogram that a level is
// found by.
#pragma once

#include "kernels/compare/compare.h"

namespace tarn::k {

// What an element becomes: (element & keep) | value, by its bits. One per channel, of the plane's type; keep is all
// ones for "stays as it is" (value is zero then), or zero.
struct Choice {
    const void *keep, *value;
};

// The comparison of an element with its channel's level, and what the element becomes where it holds and where it does
// not.
struct Thresholds {
    int32_t comparison;  // a Comparison
    const void* levels;  // one per channel: int32_t for integers, float for floats
    Choice holds, fails;
};

// dst := the choices by src compared with the levels. dst may be src. No comparison holds for a NaN.
// Statuses: kNull, kBadSize, kBadArg (the comparison).
using ThresholdLevel = Status(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size,
                              const Thresholds* thresholds);
#define TARN_ARITY_ThresholdLevel 6

// The same by src compared with reference + level. Integers are compared exactly, whatever the level; the sum of floats
// is rounded to float. dst may be src or the reference.
using ThresholdBy = Status(const void* src, int32_t src_stride, const void* reference, int32_t reference_stride,
                           void* dst, int32_t dst_stride, Size size, const Thresholds* thresholds);
#define TARN_ARITY_ThresholdBy 8

// A histogram's intervals: `count` of one width, lower <= value < upper, of which the last has its upper bound too.
struct Bins {
    float lower, upper;
    int32_t count;
};

// Internal linkage: an inline function would be shared by the levels.
// The interval of a value: floor((value - lower) count / (upper - lower)) in double, the last one for the upper bound;
// -1 for values outside of the bounds and NaN.
static inline int32_t bin_of(const Bins& bins, double value) {
    if (!(value >= double(bins.lower) && value <= double(bins.upper))) return -1;
    // Not by the quotient of both, whose rounding takes what lies on a bound to the interval below.
    const int32_t bin = int32_t((value - double(bins.lower)) * bins.count / (double(bins.upper) - double(bins.lower)));
    return bin < bins.count ? bin : bins.count - 1;
}

// counts[i] := the elements of the i-th interval, of all channels together. Elements outside of the bounds are not
// counted.
// Statuses: kNull, kBadSize, kBadArg (no intervals, or bounds that are not two finite numbers, the lower first).
using Histogram = Status(const void* src, int32_t stride, Size size, const Bins* bins, uint64_t* counts);
#define TARN_ARITY_Histogram 5

#define KERNELS(op, Fn, types, forms) TARN_KERNELS(op, Fn, types, forms)
#include "kernels/threshold/threshold.def"
#undef KERNELS
}  // namespace tarn::k
