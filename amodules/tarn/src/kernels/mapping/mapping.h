// Linear mappings: every value times its channel's scale, rounded to float, plus its channel's offset, rounded to
// float, then converted (nearest integer, ties to even, saturated; NaN to the type's smallest value).
#pragma once

#include "kernels/base/kernel.h"

namespace tarn::k {

// scale, offset: one a channel. Source and destination may be one plane when their types are of one size. A result that
// goes around the cache takes a strip of scratch; kNoMemory, and nothing is written, when it can't be had.
using ScaleMap = Status(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size,
                        const float* scale, const float* offset, Allocator scratch);
#define TARN_ARITY_ScaleMap 8

// Stretches the values of each channel so that its smallest becomes lo and its largest hi (NaN passed over). A channel
// whose values differ by no more than kFlat becomes lo: all of it, where it is the only one; among several it is mapped
// with a scale of 0, so that its NaN and infinite pixels are NaN. Always takes the strip of scratch.
using RangeMap = Status(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size, float lo,
                        float hi, Allocator scratch);
#define TARN_ARITY_RangeMap 8

// The float epsilon, 2^-23: a smaller spread of values is none.
inline constexpr float kFlat = 1.1920929e-07f;

// The smallest of a channel's smallest values, the largest of its largest. One may be NaN, when its pixels are nothing
// else.
static inline float smaller(float a, float b) { return b < a || a != a ? b : a; }
static inline float larger(float a, float b) { return b > a || a != a ? b : a; }

// The constants that take values from smallest..largest of each channel to lo..hi. False: a single channel, and flat.
static inline bool range_constants(const float* smallest, const float* largest, int channels, float lo, float hi,
                                   float* scale, float* offset) {
    for (int c = 0; c < channels; ++c) {
        const bool flat = !(largest[c] - smallest[c] > kFlat);
        if (flat && channels == 1) return false;
        scale[c] = flat ? 0.0f : (hi - lo) / (largest[c] - smallest[c]);
        offset[c] = flat ? lo : lo - scale[c] * smallest[c];
    }
    return true;
}

#define KERNELS(op, Fn, types, forms) TARN_KERNELS(op, Fn, types, forms)
#include "kernels/mapping/mapping.def"
#undef KERNELS
}  // namespace tarn::k
