// For kernel sources only: comparisons known when compiled.
#pragma once

#include "kernels/base/body.h"
#include "kernels/compare/compare.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Of values or vectors.
template <int kComparison, class V>
inline auto holds(V a, V b) {
    if constexpr (kComparison == kLess)
        return a < b;
    else if constexpr (kComparison == kLessEqual)
        return a <= b;
    else if constexpr (kComparison == kEqual)
        return a == b;
    else if constexpr (kComparison == kGreaterEqual)
        return a >= b;
    else
        return a > b;
}

// A comparison, known when compiled.
template <int kComparison>
struct Known {
    static constexpr int value = kComparison;
};

// f(known) of the comparison.
template <class F>
inline Status with_known(int32_t comparison, F f) {
    switch (comparison) {
        case kLess:
            f(Known<kLess>{});
            return kOk;
        case kLessEqual:
            f(Known<kLessEqual>{});
            return kOk;
        case kEqual:
            f(Known<kEqual>{});
            return kOk;
        case kGreaterEqual:
            f(Known<kGreaterEqual>{});
            return kOk;
        case kGreater:
            f(Known<kGreater>{});
            return kOk;
        default:
            return kBadArg;
    }
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
