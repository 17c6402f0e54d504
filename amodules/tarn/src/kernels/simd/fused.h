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
inline F32 mul_add_weighted(F32 a, F32 weight, F32 c) { return mul_add_each(a, weight, c); }
#elif defined(__FMA__)
inline F32 mul_add_weighted(F32 a, F32 weight, F32 c) { return mul_add(a, weight, c); }
#else
// The plain sums in double, unless one of them is doubtful; kInexact: and not exact.
template <bool kInexact>
inline F32 mul_add_in_double(F32 a, F32 b, F32 c) {
    const U32 dropped = (U32)splat(uint64_t(0x1fffffff));
    const U32 half_way = (U32)splat(uint64_t(0x1'10000000));  // the upper half never matches
    Bytes doubtful = {};
    const auto sum = [&](F64 x, F64 y, F64 z) {
        const F64 product = x * y, s = product + z, added = s - product, error = (product - (s - added)) + (z - added);
        const F64 size = (F64)((U64)s & ~(U64)splat(-0.0));
        // Not an & of the comparisons themselves, which GCC takes apart into elements.
        const Bytes tie = (Bytes)(((U32)s & dropped) == half_way), tiny = (Bytes)(size < 0x1p-126);
        doubtful |= kInexact ? (tie | tiny) & (Bytes)(error != 0) : tie | (tiny & (Bytes)(s != 0));
        return s;
    };
    const F64 lower = sum(widen_lower(a), widen_lower(b), widen_lower(c));
    const F64 upper = sum(widen_upper(a), widen_upper(b), widen_upper(c));
    if (__builtin_expect(_mm_movemask_epi8((__m128i)doubtful), 0)) return mul_add_each(a, b, c);
    return narrow(lower, upper);
}
// Some forty instructions.
inline F32 mul_add(F32 a, F32 b, F32 c) { return mul_add_in_double<false>(a, b, c); }
// The same for weights of few bits, with which sums are often exactly half-way: some fifty, but seldom in doubt.
inline F32 mul_add_weighted(F32 a, F32 weight, F32 c) { return mul_add_in_double<true>(a, weight, c); }
#endif

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
