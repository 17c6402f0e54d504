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

// Group j of v[i] changes places with group i of v[j].
template <int kCount>
[[gnu::always_inline]] inline void transpose_places(Bytes (&v)[kCount]) {
    if constexpr (kCount == 2) {
        const Bytes even = even_groups(v[0], v[1]);
        v[1] = odd_groups(v[0], v[1]), v[0] = even;
    } else {
        const Bytes even[] = {even_groups(v[0], v[1]), even_groups(v[2], v[3])},
                    odd[] = {odd_groups(v[0], v[1]), odd_groups(v[2], v[3])};
        v[0] = even_groups(even[0], even[1]), v[1] = even_groups(odd[0], odd[1]);
        v[2] = odd_groups(even[0], even[1]), v[3] = odd_groups(odd[0], odd[1]);
    }
}

// Element j of v[i] changes places with element i of v[j].
template <class E>
[[gnu::always_inline]] inline void transpose(Bytes (&v)[kLanes<E>]) {
    constexpr int kSide = kGroupLanes<E>;
    for (int g = 0; g < kGroups; ++g) transpose_groups<E>(reinterpret_cast<Bytes(&)[kSide]>(v[g * kSide]));
    if constexpr (kGroups > 1) {
        for (int i = 0; i < kSide; ++i) {
            Bytes u[kGroups];
            for (int g = 0; g < kGroups; ++g) u[g] = v[g * kSide + i];
            transpose_places(u);
            for (int g = 0; g < kGroups; ++g) v[g * kSide + i] = u[g];
        }
    }
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
