// For kernel sources only: sums of integers divided by their count: the nearest quotient, of two the even one, exactly.
//
// Each of these has its range. What is checked at the edges of a range is checked over every sum by the tests.
#pragma once

#include "kernels/simd/simd.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// s / n of 16-bit sums s <= 255 n, 2 <= n: a reciprocal of 16 bits is exact up to this divisor. kOdd: n is, and no
// quotient halfway.
constexpr int32_t kMostDivisor16 = 185;
template <bool kOdd = false>
struct Divide16 {
    explicit Divide16(int32_t n)
        : n(splat(uint16_t(n))), half(splat(uint16_t(n / 2))), even(splat(uint16_t(n % 2 == 0))) {
        while (2 << shift < n) ++shift;
        reciprocal = splat(uint16_t(((65536 << shift) + n - 1) / n));
    }
    U16 operator()(U16 s) const {
        const U16 t = s + half;
        const U16 q = mul_high(t, reciprocal) >> shift;
        if constexpr (kOdd) return q;
        // No rest behind the added half: s was halfway, and q is its upper neighbour. True is all ones, which is -1.
        return q - ((U16)(q * n == t) & q & even);
    }
    U16 n, half, even, reciprocal = {};
    int shift = 0;
};
// The same of odd n up to 11, whose quotients are far from halfway.
struct Multiply16 {
    explicit Multiply16(int32_t n) : reciprocal(splat(int16_t((32768 + n / 2) / n))) {}
    U16 operator()(U16 s) const { return (U16)mul_fixed15((S16)s, reciprocal); }
    S16 reciprocal;
};

// s / n of 32-bit sums |s| <= 32768 n, 2 <= n <= 65000, or |s| <= 128 n, n <= 16000000. Other sums give anything: steps
// wrap around.
//
// kTo16: quotients have 16 bits and n < 32768. Then the product is one of 16 bits, of which those of 32 are slow, or
// missing: of a quotient in 32 bits the upper half is its sign, which is not wanted.
template <bool kTo16 = false>
struct Divide32 {
    explicit Divide32(int32_t n)
        : n(splat(uint32_t(n))), half(splat(uint32_t(n / 2))), even(splat(uint32_t(n % 2 == 0))) {
        reciprocal = splat(1.0f / float(n));
    }
    S32 operator()(S32 s) const {
        const S32 t = (S32)((U32)s + half);
        // The product is off by less than 2^-7: rounded it is the floor of t / n, or one more, which the rest tells.
        const S32 above = nearest_int(__builtin_convertvector(t, F32) * reciprocal - splat(0.49f));
        const U32 product = kTo16 ? (U32)mul_add_pairs((S16)above, (S16)n) : (U32)above * n;
        const S32 rest = (S32)((U32)t - product);
        const U32 q = (U32)above + (U32)(rest >> 31);
        return (S32)(q - ((U32)(rest == S32{}) & q & even));  // no rest: s was halfway, and q is its upper neighbour
    }
    U32 n, half, even;
    F32 reciprocal = {};
};

// s / n by a float multiplication, where no quotient is halfway (an odd n) and all are further from there than it errs:
// |s| <= 128 n, n < 43000; |s| <= 32768 n, n < 170.
struct MultiplyFloat {
    explicit MultiplyFloat(int32_t n) : reciprocal(splat(1.0f / float(n))) {}
    S32 operator()(S32 s) const { return nearest_int(__builtin_convertvector(s, F32) * reciprocal); }
    F32 reciprocal;
};

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
