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

// Elements as they are compared. Floats as integers, which order them as IEEE 754's total order does.
template <class S>
struct Ordered {
    using E = S;
    static Vec<E> of(Vec<E> v) { return v; }
};
template <>
struct Ordered<float> {
    using E = int32_t;
    // Its own inverse: below zero the larger magnitude is the smaller integer.
    static S32 of(S32 v) { return v ^ ((v >> 31) & splat(INT32_MAX)); }
};

// Extremes in progress.
template <class Op, class T, bool kSingle = kHasMinMax32>
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
struct Running<Minimum, float, true> {
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
struct Running<Maximum, float, true> {
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
// Where a minimum of integers is made of several steps, one more of them costs more than the order.
template <class Op>
struct Running<Op, float, false> {
    using V = S32;
    static V from(const uint8_t* p) { return Ordered<float>::of(load<S32>(p)); }
    static V join(V a, V b) { return Op::join(a, b); }
    static S32 result(V v) { return Ordered<float>::of(v); }
};

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
