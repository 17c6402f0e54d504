// Minimum and maximum under a mask. Small square ones: extreme_small.h. Others down the columns of a strip by
// columns.h, then along its rows by windows of 4, 16, 64 ... pixels, each joined of four of the size before (the last
// ones overlap), which takes a few steps at any width and no step that depends on the one before it.
//
// Floats are compared as integers, which order them as IEEE 754's total order does.
#include "kernels/filter/columns.h"
#include "kernels/filter/extreme_small.h"
#include "kernels/filter/window.h"
#include "kernels/plane/scratch.h"
#include "kernels/plane/strips.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Elements as they are compared.
template <class S>
struct Order {
    using E = S;
    static Vec<E> of(Vec<E> v) { return v; }
};
template <>
struct Order<float> {
    using E = int32_t;
    // Its own inverse: below zero the larger magnitude is the smaller integer.
    static S32 of(S32 v) { return v ^ ((v >> 31) & splat(INT32_MAX)); }
};

template <class Op, class S>
struct ExtremeFold {
    using T = S;
    using E = typename Order<S>::E;
    using V = Vec<E>;
    static constexpr int64_t kStep = kLanes<E>;
    template <class Io>
    static V load(Io io, const uint8_t* p, int64_t) {
        return Order<S>::of(io.template load<V>(p));
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
template <class Op, class S, bool kKept, int kWindows, class E>
void finish_row(const E* row, uint8_t* d, int64_t width, int64_t apart, int64_t last) {
    const Bytes mask = colour_mask<S>();
    each_overlapped(width * int64_t(sizeof(S)), [=](auto io, int64_t i) {
        const Vec<E> v = join_windows<Op, kWindows>(row + i / int64_t(sizeof(S)), apart, last);
        store_form<kKept>(io, d + i, Order<S>::of(v), mask);
    });
}

// d := the extremes of `columns` pixels of the row each, which is changed.
template <class Op, class S, bool kKept, class E>
void extreme_row(E* row, uint8_t* d, int64_t width, int64_t columns, int64_t channels) {
    int64_t have = 1;  // pixels that an element stands for
    for (; 4 * have < columns; have *= 4) {
        const int64_t apart = have * channels, n = width + (columns - 4 * have) * channels;
        for (int64_t i = 0; i < n; i += kLanes<E>) store(row + i, join_windows<Op, 4>(row + i, apart, 3 * apart));
    }
    const int64_t apart = have * channels, last = (columns - have) * channels;
    if (last == 0)
        finish_row<Op, S, kKept, 1>(row, d, width, apart, last);
    else if (last <= apart)
        finish_row<Op, S, kKept, 2>(row, d, width, apart, last);
    else if (last <= 2 * apart)
        finish_row<Op, S, kKept, 3>(row, d, width, apart, last);
    else
        finish_row<Op, S, kKept, 4>(row, d, width, apart, last);
}

constexpr int64_t kBlockBytes = 128 << 10;  // of a strip's block of rows, for the second-level cache
constexpr int64_t kStripMost = 8192, kStripLeast = 576, kStripUnit = 192;  // elements

template <class Op, class T, Form kForm>
Status extreme(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size, Size mask, Offset anchor,
               const Allocator& allocator) {
    if (Status s = check_filter(src, dst, size, mask, anchor)) return s;
    const Window w = window_of<T, kForm>(src, src_stride, dst, dst_stride, size, mask, anchor);
    if (is_small<3>(w, sizeof(T))) return extreme_small<Op, T, kForm, 3>(w, allocator);
    if (is_small<5>(w, sizeof(T))) return extreme_small<Op, T, kForm, 5>(w, allocator);
    if (is_small<7>(w, sizeof(T))) return extreme_small<Op, T, kForm, 7>(w, allocator);
    using Fold = ExtremeFold<Op, T>;
    using E = typename Fold::E;
    const int64_t rows = min(w.rows, w.height);  // of a block
    const int64_t fit = kBlockBytes / int64_t(sizeof(E)) / rows - w.reach;
    const int64_t most = max(min(fit, kStripMost), max(w.reach, kStripLeast)) / kStripUnit * kStripUnit;
    const int64_t strip = strip_width(w.width, most, kStripUnit);
    const int64_t pitch = (min(strip, w.width) + w.reach + 5 * kLanes<E>) / kLanes<E> * kLanes<E>;
    Scratch scratch(allocator);
    E* block = nullptr;
    if (!scratch.carve([&](auto part) { part(block, rows * pitch); })) return kNoMemory;
    for (int64_t x = 0; x < w.width; x += strip) {
        const int64_t width = min(strip, w.width - x);
        for (int64_t y = 0; y < w.height; y += rows) {
            const int64_t count = min(rows, w.height - y);
            fold_columns<Fold>(w.src + y * w.src_stride + x * int64_t(sizeof(T)), width + w.reach, w.src_stride, w.rows,
                               count, block, pitch);
            for (int64_t j = 0; j < count; ++j)
                extreme_row<Op, T, kept(kForm)>(block + j * pitch,
                                                w.dst + (y + j) * w.dst_stride + x * int64_t(sizeof(T)), width,
                                                w.columns, w.channels);
        }
    }
    return kOk;
}

}  // namespace

TARN_BODIES(filter_min, Filter, u8_s16_f32, c1_c3_c4_c3x, extreme<Minimum, T, kForm>)
TARN_BODIES(filter_max, Filter, u8_s16_f32, c1_c3_c4_c3x, extreme<Maximum, T, kForm>)

}  // namespace tarn::k::TARN_LEVEL
