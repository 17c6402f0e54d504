// For kernel sources only: mul_add is a * b + c rounded once, of floats and of vectors, at every level (which NaN comes
// out is not told). Where the processor has the instruction it is that, for vectors in their words files; elsewhere it
// is made here.
//
// The product of two floats is exact in double. Its sum with the third, rounded to double and then to float, is wrong
// only where the first rounding ends half-way between two floats, or in a denormal, which has other half-ways. There
// the sum is rounded to odd first, which keeps it on its side of the half-way (S. Boldo and G. Melquiond, "Emulation of
// FMA and correctly rounded sums", 2008).
#pragma once

#include "kernels/simd/simd.h"

namespace tarn::k::TARN_LEVEL {
namespace {

#if defined(__FMA__) || defined(__FP_FAST_FMAF)
inline float mul_add(float a, float b, float c) { return __builtin_fmaf(a, b, c); }
#else
inline float mul_add(float a, float b, float c) {
    const double product = double(a) * double(b);
    double sum = product + double(c);
    uint64_t bits = __builtin_bit_cast(uint64_t, sum);
    const bool half_way = (bits & 0x1fffffff) == 0x10000000;
    const bool tiny = (bits << 1) - 1 < (uint64_t(1023 - 126) << 53) - 1;  // but not zero
    if (__builtin_expect(half_way || tiny, 0)) {
        const double added = sum - product, error = (product - (sum - added)) + (double(c) - added);
        if ((error > 0 || error < 0) && bits % 2 == 0) {
            bits += (error > 0) == (sum > 0) ? uint64_t(1) : ~uint64_t(0);
            sum = __builtin_bit_cast(double, bits);
        }
    }
    return float(sum);
}
#endif

#if !defined(TARN_X86) || !defined(__FMA__)
// Element by element. Not inlined: it is seldom called, and by loops that need their registers.
[[maybe_unused, gnu::noinline]] F32 mul_add_each(F32 a, F32 b, F32 c) {
    for (int i = 0; i < kLanes<float>; ++i) c[i] = mul_add(a[i], b[i], c[i]);
    return c;
}
#endif

#if !defined(TARN_X86)
inline F32 mul_add(F32 a, F32 b, F32 c) { return mul_add_each(a, b, c); }
#elif !defined(__FMA__)
// The sums in double, unless one of them is doubtful: some thirty instructions.
inline F32 mul_add(F32 a, F32 b, F32 c) {
    const F64 lower = widen_lower(a) * widen_lower(b) + widen_lower(c);
    const F64 upper = widen_upper(a) * widen_upper(b) + widen_upper(c);
    const U32 low = (U32)even32((Bytes)lower, (Bytes)upper), high = (U32)odd32((Bytes)lower, (Bytes)upper);
    const Bytes half_way = (Bytes)((low & splat(0x1fffffffu)) == splat(0x10000000u));
    // Below 2^-126, but not zero, which becomes the largest integer: sums are multiples of 2^-298, so none that is zero
    // here is another there.
    constexpr uint32_t kLargest = 0x7fffffff, kTiny = uint32_t(1023 - 126) << 21;
    const Bytes tiny = (Bytes)((S32)(high + high + splat(kLargest)) < splat(int32_t(kTiny + kLargest)));
    if (__builtin_expect(nonzero_bits(half_way | tiny) != 0, 0)) return mul_add_each(a, b, c);
    return narrow(lower, upper);
}
#endif

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
