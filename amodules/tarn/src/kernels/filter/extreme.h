// For kernel sources only: minima and maxima under rectangles, by strips: down the columns by columns.h, then along the
// rows by windows of 4, 16, 64 ... pixels, each joined of four of the size before (the last ones overlap), which takes
// a few steps at any width and no step that depends on the one before it.
#pragma once

#include "kernels/filter/columns.h"
#include "kernels/filter/running.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Order: Ordered<S> or AsFloats.
template <class Op, class S, class Order = Ordered<S>>
struct ExtremeFold {
    using T = S;
    using E = typename Order::E;
    using V = Vec<E>;
    static constexpr int64_t kStep = kLanes<E>;
    template <class Io>
    static V load(Io io, const uint8_t* p, int64_t) {
        return Order::of(io.template load<V>(p));
    }
    static V join(V a, V b) { return Op::join(a, b); }
};

// The extremes of kWindows windows that begin at p and `apart` elements on from each other, the last at `last`.
template <class Op, int kWindows, class E>
inline Vec<E> join_windows(const E* p, int64_t apart, int64_t last) {
    using V = Vec<E>;
    V v = load<V>(p);
    if constexpr (kWindows > 2) v = Op::join(v, load<V>(p + apart));
    if constexpr (kWindows > 3) v = Op::join(v, load<V>(p + 2 * apart));
    if constexpr (kWindows > 1) v = Op::join(v, load<V>(p + last));
    return v;
}

// d := the extremes of windows of kWindows smaller ones.
template <class Op, class S, bool kKept, class Order, int kWindows, class E>
void finish_row(const E* row, uint8_t* d, int64_t width, int64_t apart, int64_t last) {
    const Bytes mask = colour_mask<S>();
    each_overlapped(width * int64_t(sizeof(S)), [=](auto io, int64_t i) {
        const Vec<E> v = join_windows<Op, kWindows>(row + i / int64_t(sizeof(S)), apart, last);
        store_form<kKept>(io, d + i, Order::of(v), mask);
    });
}

// d := the extremes of `columns` pixels of the row each, which is changed.
template <class Op, class S, bool kKept, class Order = Ordered<S>, class E>
void extreme_row(E* row, uint8_t* d, int64_t width, int64_t columns, int64_t channels) {
    int64_t have = 1;  // pixels that an element stands for
    for (; 4 * have < columns; have *= 4) {
        const int64_t apart = have * channels, n = width + (columns - 4 * have) * channels;
        for (int64_t i = 0; i < n; i += kLanes<E>) store(row + i, join_windows<Op, 4>(row + i, apart, 3 * apart));
    }
    const int64_t apart = have * channels, last = (columns - have) * channels;
    if (last == 0)
        finish_row<Op, S, kKept, Order, 1>(row, d, width, apart, last);
    else if (last <= apart)
        finish_row<Op, S, kKept, Order, 2>(row, d, width, apart, last);
    else if (last <= 2 * apart)
        finish_row<Op, S, kKept, Order, 3>(row, d, width, apart, last);
    else
        finish_row<Op, S, kKept, Order, 4>(row, d, width, apart, last);
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
