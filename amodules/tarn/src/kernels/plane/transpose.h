// For kernel sources only: columns turned into rows within the registers.
#pragma once

#include "kernels/simd/simd.h"

namespace tarn::k::TARN_LEVEL {
namespace {

template <class E>
constexpr int kGroupLanes = int(16 / sizeof(E));

template <class E>
inline Bytes interleave_lower(Bytes a, Bytes b) {
    if constexpr (sizeof(E) == 1) return interleave_lower8(a, b);
    if constexpr (sizeof(E) == 2) return interleave_lower16(a, b);
    if constexpr (sizeof(E) == 4) return interleave_lower32(a, b);
    return interleave_lower64(a, b);
}
template <class E>
inline Bytes interleave_upper(Bytes a, Bytes b) {
    if constexpr (sizeof(E) == 1) return interleave_upper8(a, b);
    if constexpr (sizeof(E) == 2) return interleave_upper16(a, b);
    if constexpr (sizeof(E) == 4) return interleave_upper32(a, b);
    return interleave_upper64(a, b);
}

// Element j of every group of v[i] changes places with element i of v[j].
template <class E>
[[gnu::always_inline]] inline void transpose_groups(Bytes (&v)[kGroupLanes<E>]) {
    constexpr int kHalf = kGroupLanes<E> / 2;
    for (int step = 1; step < kGroupLanes<E>; step *= 2) {
        Bytes next[kGroupLanes<E>];
        for (int i = 0; i < kHalf; ++i) {
            next[2 * i] = interleave_lower<E>(v[i], v[i + kHalf]);
            next[2 * i + 1] = interleave_upper<E>(v[i], v[i + kHalf]);
        }
        for (int i = 0; i < kGroupLanes<E>; ++i) v[i] = next[i];
    }
}

// Element j of v[i] changes places with element i of v[j]; at most two groups.
template <class E>
[[gnu::always_inline]] inline void transpose(Bytes (&v)[kLanes<E>]) {
    constexpr int kSide = kGroupLanes<E>;
    for (int g = 0; g < kGroups; ++g) transpose_groups<E>(reinterpret_cast<Bytes(&)[kSide]>(v[g * kSide]));
    if constexpr (kLanes<E> == 2 * kSide) {
        for (int i = 0; i < kSide; ++i) {
            const Vec<E> a = (Vec<E>)v[i], b = (Vec<E>)v[i + kSide];
            v[i] = (Bytes)lower_halves(a, b), v[i + kSide] = (Bytes)upper_halves(a, b);
        }
    }
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
