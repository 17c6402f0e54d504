// For the minimum and maximum filters and morphology: extremes that elements are joined to as they lie in memory.
#pragma once

#include "kernels/simd/simd.h"

namespace tarn::k::TARN_LEVEL {
namespace {

struct Minimum {
    template <class V>
    static V join(V a, V b) {
        return min(a, b);
    }
};
struct Maximum {
    template <class V>
    static V join(V a, V b) {
        return max(a, b);
    }
};

// Extremes in progress.
template <class Op, class T>
struct Running {
    using V = Vec<T>;
    static V from(const uint8_t* p) { return load<V>(p); }
    static V join(V a, V b) { return Op::join(a, b); }
    static V result(V v) { return v; }
};

// Floats as signed magnitudes: below zero the greatest one is the least, and unsigned it is the greatest of all; above
// zero the order is that of the integers. With both kept, the least and the greatest need no order made of each
// element.
template <>
struct Running<Minimum, float> {
    struct V {
        U32 greatest;
        S32 least;
    };
    static V from(const uint8_t* p) {
        const U32 v = in_register(load<U32>(p));
        return {v, (S32)v};
    }
    static V join(V a, V b) { return {max(a.greatest, b.greatest), min(a.least, b.least)}; }
    static U32 result(V v) { return (S32)v.greatest < S32{} ? v.greatest : (U32)v.least; }
};
template <>
struct Running<Maximum, float> {
    struct V {
        S32 greatest, least;
    };
    static V from(const uint8_t* p) {
        const S32 v = in_register(load<S32>(p));
        return {v, v};
    }
    static V join(V a, V b) { return {max(a.greatest, b.greatest), min(a.least, b.least)}; }
    static S32 result(V v) { return v.greatest < S32{} ? v.least : v.greatest; }
};

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
