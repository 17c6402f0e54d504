// For the morphology sources only: small elements of few cells, joined from rows as they lie in memory. Several result
// rows stand in registers at a time; down a column the element's cells are runs, and what they read is loaded once for
// all of these rows; a square's rows are joined along themselves first.
#pragma once

#include "kernels/filter/running.h"
#include "kernels/morph/rows.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Bytes of each end of a row: the results there that see beyond the row.
constexpr int64_t kEnd = max<int64_t>(kVector, kLine / 2);

// An element's cells, or those of its reflection.
template <class Op, class T>
class Cells {
public:
    static constexpr int kLongest = 5;
    // Where runs begin, the longest first, and how many there are of a length. square: the side of an element that is
    // nothing but a small square, else 0.
    struct Taps {
        int64_t at[kNearCells], pixel;
        int32_t count[kLongest + 1], longest, square;
    };

    Cells(const State& state, int64_t pixel) {
        const Extent& e = state.extent;
        if (!e.is_near()) return;
        const int64_t first = Op::kReflected ? 1 - e.right : e.left, columns = e.columns();
        top_ = Op::kReflected ? -e.lowest : e.highest;
        span_ = e.rows();
        if (-first * pixel > kEnd || (first + columns - 1) * pixel > kEnd) return;
        left_ = first * pixel, right_ = (first + columns - 1) * pixel;
        uint16_t cells[2 * kEnd + 1] = {};  // of each column, bits
        for (int64_t i = 0; i < e.steps; ++i) {
            Step s;
            memcpy(&s, state.steps + i * int64_t(sizeof s), sizeof s);
            if (!s.joins()) continue;
            const int64_t x = Op::kReflected ? -int64_t(s.x) : s.x, y = Op::kReflected ? -int64_t(s.row) : s.row;
            const uint16_t bit = uint16_t(1 << (y - top_));
            cells[x - first] |= bit;
            cells[x - first + (Op::kReflected ? -s.second : s.second)] |= bit;
        }
        pixel_ = pixel;
        square_ = columns == 3 || columns == 5 ? int32_t(columns) : 0;
        for (int64_t x = 0; x < columns; ++x) {
            if (cells[x] != (1 << square_) - 1) square_ = 0;
            for (uint32_t left = cells[x]; left;) {
                const int y = __builtin_ctz(left);
                const int all = __builtin_ctz(~(left >> y)), n = all > kLongest ? (all + 1) / 2 : all;
                runs_[count_++] = {int32_t(x * pixel), y, min(n, kLongest)};
                cells_ += runs_[count_ - 1].length;
                left &= ~(((1u << runs_[count_ - 1].length) - 1) << y);
            }
        }
        fits_ = true;
    }

    bool fits() const { return fits_; }
    int64_t count() const { return cells_; }
    // From a result to the element's first and last columns, in bytes; to its first row, and from there to its last.
    int64_t left() const { return left_; }
    int64_t right() const { return right_; }
    int64_t top() const { return top_; }
    int64_t span() const { return span_; }

    Taps taps(int64_t stride) const {
        Taps t = {};
        t.pixel = pixel_, t.square = square_;
        int64_t n = 0;
        for (int length = kLongest; length; --length)
            for (int64_t i = 0; i < count_; ++i)
                if (runs_[i].length == length) {
                    t.at[n++] = runs_[i].x + runs_[i].y * stride;
                    ++t.count[length];
                    t.longest = max(t.longest, length);
                }
        return t;
    }

    // Results, `count` rows of n bytes each, at least a vector. s: what the first row's first result sees of its first
    // row and column.
    void block(const Taps& taps, const uint8_t* s, int64_t stride, uint8_t* d, int64_t dst_stride, int64_t n,
               int64_t count) const {
        if (count < kRows) {
            for (int64_t i = 0; i < count; ++i)
                row([=](int64_t y) { return (i + y) * stride; }, s, d + i * dst_stride, n);
            return;
        }
        bool asked = false, as_floats = false;
        const auto ask = [&] {
            if (!asked) as_floats = ordinary(s, stride, n + right_ - left_, count + span_);
            asked = true;
        };
        const bool many = cells_ > kFewCells;
        if (kByFloats && many && !kHasMinMax32) ask();
        for (int64_t i = 0; i < count; i += kRows) {
            const int64_t y = min(i, count - kRows);
            const uint8_t* from = s + y * stride;
            uint8_t* to = d + y * dst_stride;
            if constexpr (kByFloats) {
                if (as_floats)
                    rows_of_floats(taps, from, stride, to, dst_stride, n);
                else if (!rows(taps, from, stride, to, dst_stride, n) && (many || !kHasMinMax32))
                    ask();
            } else {
                rows(taps, from, stride, to, dst_stride, n);
            }
        }
    }
    // A single row, which sees its y-th row at s + offset(y).
    template <class F>
    void row(F offset, const uint8_t* s, uint8_t* d, int64_t n) const {
        int64_t at[kNearCells];
        int64_t count = 0;
        for (int64_t i = 0; i < count_; ++i)
            for (int32_t k = 0; k < runs_[i].length; ++k) at[count++] = runs_[i].x + offset(runs_[i].y + k);
        join_row(at, count, s, d, n);
    }

private:
    using Extremes = Running<typename Op::Extreme, T>;
    using V = typename Extremes::V;
    using E = typename Ordered<T>::E;
    static constexpr int kRows = 8;  // in registers

    // Extremes of elements whose integers have their order: bytes, and floats where the extreme is not below zero.
    struct Plain {
        using V = Vec<E>;
        static V from(const uint8_t* p) { return load<V>(p); }
        static V join(V a, V b) { return Op::join(a, b); }
    };

    // Floats by the processor's own extremes, where some are below zero or extremes of integers take several steps.
    static constexpr bool kByFloats = __is_same(T, float);
    static constexpr int64_t kFewCells = 9;  // that integers join as fast
    using Floats = RunningFloats<Op>;
    [[gnu::noinline]] static void rows_of_floats(const Taps& taps, const uint8_t* s, int64_t stride, uint8_t* d,
                                                 int64_t dst_stride, int64_t n) {
        for (int64_t i = 0; i < n; i += kVector) {
            const int64_t x = min(i, n - kVector);
            F32 u[kRows];
            join_all<Floats>(u, taps, s + x, stride);
            for (int y = 0; y < kRows; ++y) store(d + x + y * dst_stride, u[y]);
        }
    }

    // Cells below each other.
    struct Run {
        int32_t x;  // bytes
        int32_t y, length;
    };

    // Joins kCount results below each other with a run each, or with kColumns of them side by side.
    template <class By, int kLength, bool kFirst, int kColumns = 1, int kCount>
    [[gnu::always_inline]] static void join(typename By::V (&u)[kCount], const uint8_t* p, int64_t stride,
                                            int64_t pixel = 0) {
        using V = typename By::V;
        const auto row = [=](int i) __attribute__((always_inline)) {
            V v = By::from(p + i * stride);
#pragma GCC unroll 8
            for (int k = 1; k < kColumns; ++k) v = By::join(v, By::from(p + i * stride + k * pixel));
            return v;
        };
        const auto take = [&](int i, V v) { u[i] = kFirst ? v : By::join(u[i], v); };
        if constexpr (kLength == 1) {
#pragma GCC unroll 8
            for (int i = 0; i < kCount; ++i) take(i, row(i));
        } else {
            V rows[kCount + kLength - 1];
#pragma GCC unroll 8
            for (int i = 0; i < kLength - 1; ++i) rows[i] = row(i);
#pragma GCC unroll 8
            for (int i = 0; i < kCount; i += 2) {
                // Two results share all but two rows.
                rows[i + kLength - 1] = row(i + kLength - 1);
                rows[i + kLength] = row(i + kLength);
                V shared = rows[i + 1];
#pragma GCC unroll 8
                for (int k = 2; k < kLength; ++k) shared = By::join(shared, rows[i + k]);
                take(i, By::join(rows[i], shared));
                take(i + 1, By::join(shared, rows[i + kLength]));
            }
        }
    }
    template <class By, int kCount>
    [[gnu::always_inline]] static void join_all(typename By::V (&u)[kCount], const Taps& taps, const uint8_t* p,
                                                int64_t stride) {
        const int64_t* at = taps.at;
        switch (taps.square) {
            case 3:
                return join<By, 3, true, 3>(u, p + *at, stride, taps.pixel);
            case 5:
                return join<By, 5, true, 5>(u, p + *at, stride, taps.pixel);
        }
        switch (taps.longest) {
            case 1:
                join<By, 1, true>(u, p + *at, stride);
                break;
            case 2:
                join<By, 2, true>(u, p + *at, stride);
                break;
            case 3:
                join<By, 3, true>(u, p + *at, stride);
                break;
            case 4:
                join<By, 4, true>(u, p + *at, stride);
                break;
            default:
                join<By, 5, true>(u, p + *at, stride);
        }
        const int64_t* end = at++ + taps.count[5];
        for (; at < end; ++at) join<By, 5, false>(u, p + *at, stride);
        for (end += taps.count[4]; at < end; ++at) join<By, 4, false>(u, p + *at, stride);
        for (end += taps.count[3]; at < end; ++at) join<By, 3, false>(u, p + *at, stride);
        for (end += taps.count[2]; at < end; ++at) join<By, 2, false>(u, p + *at, stride);
        for (end += taps.count[1]; at < end; ++at) join<By, 1, false>(u, p + *at, stride);
    }

    // kRows vectors of results below each other. False: they are not, for there are floats below zero.
    [[gnu::always_inline]] static bool plain_column(const Taps& taps, const uint8_t* s, int64_t stride, uint8_t* d,
                                                    int64_t dst_stride) {
        Vec<E> u[kRows];
        join_all<Plain>(u, taps, s, stride);
        if (any_sign(u)) return false;
        for (int i = 0; i < kRows; ++i) store(d + i * dst_stride, u[i]);
        return true;
    }
    // The same of any floats; false: results are below zero.
    [[gnu::noinline]] static bool column(const Taps& taps, const uint8_t* s, int64_t stride, uint8_t* d,
                                         int64_t dst_stride) {
        bool none = true;
        for (int half = 0; half < 2; ++half, s += kRows / 2 * stride, d += kRows / 2 * dst_stride) {
            V u[kRows / 2];
            Vec<E> results[kRows / 2];
            join_all<Extremes>(u, taps, s, stride);
            for (int i = 0; i < kRows / 2; ++i) results[i] = (Vec<E>)Extremes::result(u[i]);
            for (int i = 0; i < kRows / 2; ++i) store(d + i * dst_stride, results[i]);
            none &= !any_sign(results);
        }
        return none;
    }
    template <int kCount>
    static bool any_sign(const Vec<E> (&u)[kCount]) {
        if constexpr (sizeof(T) == 1) return false;
        Vec<E> all = u[0];
        for (int i = 1; i < kCount; ++i) all |= u[i];
        return negative_bits((S8)(all < Vec<E>{})) != 0;
    }

    // kRows rows of results, n bytes each, at least a vector. False: floats below zero are among the last ones.
    [[gnu::noinline]] static bool rows(const Taps& taps, const uint8_t* s, int64_t stride, uint8_t* d,
                                       int64_t dst_stride, int64_t n) {
        bool plain = true;
        for (int64_t i = 0; i < n; i += kVector) {
            const int64_t x = min(i, n - kVector);
            plain = (plain && plain_column(taps, s + x, stride, d + x, dst_stride)) ||
                    column(taps, s + x, stride, d + x, dst_stride);
        }
        return plain;
    }
    // The same of a single row, of cells.
    [[gnu::noinline]] static void join_row(const int64_t* at, int64_t count, const uint8_t* s, uint8_t* d, int64_t n) {
        for (int64_t i = 0; i < n; i += kVector) {
            const int64_t x = min(i, n - kVector);
            V u = Extremes::from(s + x + *at);
            for (int64_t k = 1; k < count; ++k) u = Extremes::join(u, Extremes::from(s + x + at[k]));
            store(d + x, Extremes::result(u));
        }
    }

    int64_t left_ = 0, right_ = 0, top_ = 0, span_ = 0;
    Run runs_[kNearCells];
    int64_t count_ = 0, cells_ = 0, pixel_ = 0;  // pixel: bytes
    int32_t square_ = 0;
    bool fits_ = false;
};

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
