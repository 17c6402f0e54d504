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
// Floats as the processor orders them: see RunningFloats.
struct AsFloats {
    using E = float;
    static F32 of(F32 v) { return v; }
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

// Floats by the processor's own extremes. They have the same order but for NaN, for zeros of both signs, and, as the
// caller has set the float unit, for what is below the normal numbers.
template <class Op>
struct RunningFloats {
    using V = F32;
    static V from(const uint8_t* p) { return load<V>(p); }
    static V join(V a, V b) { return Op::join(a, b); }
    static V result(V v) { return v; }
};
// Whether they are faster than extremes of integers, which are made of several steps.
template <class T>
constexpr bool kFloatsPay = __is_same(T, float) && !kHasMinMax32;

// Whether these rows of n bytes, at least a vector, hold positive zeros, normal numbers and infinities alone.
[[gnu::noinline, maybe_unused]] bool ordinary(const uint8_t* s, int64_t stride, int64_t n, int64_t count) {
    U32 others = {};
    for (int64_t y = 0; y < count; ++y, s += stride)
        for (int64_t i = 0; i < n; i += kVector) {
            const U32 v = load<U32>(s + min(i, n - kVector));
            // Without its sign, and counted from the least normal number on, from the least integer up.
            const S32 from_normal = (S32)(v + v + splat(0x7f000000u));
            others |= (U32)(from_normal > splat(0x7e000000)) & v;
        }
    return negative_bits((S8)(others != U32{})) == 0;
}

// The same block by block, from the top down. After one that is not, a few are not looked at: they often are not
// either.
class OrdinaryBlocks {
public:
    // The first block.
    void begin(const uint8_t* s, int64_t stride, int64_t n, int64_t count) {
        unasked_ = 0;
        last_ = ask(s, stride, n, count);
    }
    // The next block: whether it and the one before are ordinary.
    bool both(const uint8_t* s, int64_t stride, int64_t n, int64_t count) {
        const bool before = last_;
        last_ = ask(s, stride, n, count);
        return before && last_;
    }

private:
    bool ask(const uint8_t* s, int64_t stride, int64_t n, int64_t count) {
        if (n < kVector || --unasked_ > 0) return false;
        const bool all = ordinary(s, stride, n, count);
        unasked_ = all ? 0 : 16;
        return all;
    }
    bool last_ = false;
    int unasked_ = 0;
};

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
