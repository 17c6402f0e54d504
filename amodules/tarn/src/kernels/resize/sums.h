// For the resize sources only: the sums of taps times weights. They are made in one order, products rounded before they
// are added: all levels give the same bits, and none emulates fused sums.
#pragma once

#include "kernels/simd/fused.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// For 8-bit results the horizontal weights are multiples of 2^-15 whose sum is exactly 1: with 9 bits of pixel sums the
// result fits the 24 bits of a float and nothing is ever rounded.
template <class T>
constexpr bool kExactSums = sizeof(T) == 1;

// Source pixels for an output up to which permutes reach the taps of a vector of outputs.
constexpr int64_t kPermuted = 2;

// The i-th tap to be added: from the small outer ones to the inner ones, left and right in turn.
constexpr int outer_first(int i, int taps) { return i % 2 ? taps - 1 - i / 2 : i / 2; }

// The sum of kTaps products. kExact: nothing is rounded, so products may be added by the fused instruction.
template <int kTaps, bool kExact, class Tap, class Weight>
inline F32 sum_of(Tap tap, Weight weight) {
    F32 sum = tap(0) * weight(0);
#pragma GCC unroll 6
    for (int i = 1; i < kTaps; ++i) {
        const int k = outer_first(i, kTaps);
        if constexpr (kExact && kHasMulAdd)
            sum = mul_add(tap(k), weight(k), sum);
        else
            sum = tap(k) * weight(k) + sum;
    }
    return sum;
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
