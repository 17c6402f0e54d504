// For the morphology sources only: small elements of few cells, joined from the image's rows as they lie. Several
// result rows stand in registers at a time; down a column the element's cells are runs, and what they read is loaded
// once for all of these rows. Read from copies are only the ends of rows, whose results see beyond the image, and the
// rows of images whose stride the first-level cache does not bear; rows that see rows beyond the image are joined one
// by one.
#pragma once

#include "kernels/filter/running.h"
#include "kernels/morph/rows.h"

namespace tarn::k::TARN_LEVEL {
namespace {

template <class Op, class T>
class Near {
public:
    Near(const State& state, const Picture<T>& picture, Size region, uint8_t* dst, int64_t dst_stride)
        : s_(static_cast<const uint8_t*>(picture.src)),
          stride_(picture.stride),
          pixel_(picture.channels * int64_t(sizeof(T))),
          row_(region.width * pixel_),
          height_(region.height),
          d_(dst),
          dst_stride_(dst_stride),
          edges_(state.layout.edges(state.scratch)),
          copy_(state.scratch),
          copy_pitch_(state.layout.pitch),
          copy_strip_(state.layout.strip * int64_t(sizeof(T))) {
        const Extent& e = state.extent;
        if (!e.is_near()) return;
        const int64_t first = Op::kReflected ? 1 - e.right : e.left, columns = e.columns();
        top_ = Op::kReflected ? -e.lowest : e.highest;
        span_ = e.rows();
        // Each side's results that see beyond it are a vector's, and there are two more vectors between them.
        if (-first * pixel_ > kVector || (first + columns - 1) * pixel_ > kVector || row_ < 4 * kVector) return;
        left_ = first * pixel_, right_ = (first + columns - 1) * pixel_;
        uint16_t cells[2 * kVector + 1] = {};  // of each column, bits
        for (int64_t i = 0; i < e.steps; ++i) {
            Step s;
            memcpy(&s, state.steps + i * int64_t(sizeof s), sizeof s);
            if (!s.joins()) continue;
            const int64_t x = Op::kReflected ? -int64_t(s.x) : s.x, y = Op::kReflected ? -int64_t(s.row) : s.row;
            const uint16_t bit = uint16_t(1 << (y - top_));
            cells[x - first] |= bit;
            cells[x - first + (Op::kReflected ? -s.second : s.second)] |= bit;
        }
        for (int64_t x = 0; x < columns; ++x)
            for (uint32_t left = cells[x]; left;) {
                const int y = __builtin_ctz(left);
                const int all = __builtin_ctz(~(left >> y)), n = all > kLongest ? (all + 1) / 2 : all;
                runs_[count_++] = {int32_t(x * pixel_), y, min(n, kLongest)};
                left &= ~(((1u << runs_[count_ - 1].length) - 1) << y);
            }
        copied_ = collide(stride_, kRows + span_);
        fits_ = true;
    }

    bool fits() const { return fits_; }

    void operator()() {
        const Taps inside = taps(copied_ ? copy_pitch_ : stride_), ends = taps(kPitch);
        const int64_t strip = copied_ ? min(copy_strip_, kStrip) : kStrip;
        for (int64_t y = 0; y < height_; y += kBand) {
            const int64_t rows = min(kBand, height_ - y);
            copy_ends(y + top_, rows + span_);
            for (int side = 0; side < 2; ++side)
                block(ends, edges_ + side * 3 * kVector + kVector + left_, kPitch,
                      d_ + y * dst_stride_ + side * (row_ - kVector), kVector, rows);
            for (int64_t x = kVector; x < row_ - kVector; x += strip) {
                const int64_t n = max(min(strip, row_ - kVector - x), kVector);
                band(inside, min(x, row_ - kVector - n), n, y, rows);
            }
        }
    }

private:
    using Extremes = Running<typename Op::Extreme, T>;
    using V = typename Extremes::V;
    using E = typename Ordered<T>::E;
    static constexpr int kLongest = 5;
    static constexpr int kRows = 8;                 // in registers
    static constexpr int64_t kPitch = 6 * kVector;  // of copies of rows' ends
    static constexpr int64_t kStrip = 8192;
    static constexpr int64_t kCacheWay = 4096, kSameSet = 10;

    // Extremes of elements whose integers have their order: bytes, and floats where the extreme is not below zero.
    struct Plain {
        using V = Vec<E>;
        static V from(const uint8_t* p) { return load<V>(p); }
        static V join(V a, V b) { return Op::join(a, b); }
    };

    // Cells below each other.
    struct Run {
        int32_t x;  // bytes
        int32_t y, length;
    };
    // Where runs begin, the longest first, and how many there are of a length.
    struct Taps {
        int64_t at[kNearCells];
        int32_t count[kLongest + 1], longest;
    };
    Taps taps(int64_t stride) const {
        Taps t = {};
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

    // Joins kCount results below each other with a run each.
    template <class By, int kLength, bool kFirst, int kCount>
    [[gnu::always_inline]] static void join(typename By::V (&u)[kCount], const uint8_t* p, int64_t stride) {
        using V = typename By::V;
        const auto row = [=](int i) { return By::from(p + i * stride); };
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

    // kRows rows of results, n bytes each, at least a vector.
    [[gnu::noinline]] static void rows(const Taps& taps, const uint8_t* s, int64_t stride, uint8_t* d,
                                       int64_t dst_stride, int64_t n) {
        bool plain = true;
        for (int64_t i = 0; i < n; i += kVector) {
            const int64_t x = min(i, n - kVector);
            plain = (plain && plain_column(taps, s + x, stride, d + x, dst_stride)) ||
                    column(taps, s + x, stride, d + x, dst_stride);
        }
    }
    // The same of a single row, of cells.
    static void row(const int64_t* at, int64_t count, const uint8_t* s, uint8_t* d, int64_t n) {
        for (int64_t i = 0; i < n; i += kVector) {
            const int64_t x = min(i, n - kVector);
            V u = Extremes::from(s + x + *at);
            for (int64_t k = 1; k < count; ++k) u = Extremes::join(u, Extremes::from(s + x + at[k]));
            store(d + x, Extremes::result(u));
        }
    }

    // Whether so many rows have more lines in a set of the first-level cache than stay there.
    static bool collide(int64_t stride, int64_t rows) {
        const int64_t lines = (stride + kLine / 2) & -kLine;
        return rows * min(lines & -lines, kCacheWay) > kSameSet * kCacheWay;
    }
    // A band's results at [x, x + n), which see no end of a row.
    void band(const Taps& taps, int64_t x, int64_t n, int64_t y, int64_t rows) const {
        const uint8_t* s = s_ + x + left_;
        uint8_t* d = d_ + x;
        if (copied_) {
            for (int64_t i = 0; i < rows + span_; ++i)
                memcpy(copy_ + i * copy_pitch_, s + clamp<int64_t>(y + top_ + i, 0, height_ - 1) * stride_,
                       size_t(n + right_ - left_));
            return block(taps, copy_, copy_pitch_, d + y * dst_stride_, n, rows);
        }
        const int64_t from = clamp<int64_t>(-top_, y, y + rows);
        const int64_t to = clamp<int64_t>(height_ - top_ - span_, from, y + rows);
        for (int64_t i = y; i < from; ++i) outer_row(i, s, d, n);
        if (from < to) block(taps, s + (from + top_) * stride_, stride_, d + from * dst_stride_, n, to - from);
        for (int64_t i = to; i < y + rows; ++i) outer_row(i, s, d, n);
    }
    void block(const Taps& taps, const uint8_t* s, int64_t stride, uint8_t* d, int64_t n, int64_t count) const {
        if (count < kRows) {
            int64_t at[kNearCells];
            const int64_t cells = cells_at(at, [=](int64_t y) { return y * stride; });
            for (int64_t i = 0; i < count; ++i) row(at, cells, s + i * stride, d + i * dst_stride_, n);
            return;
        }
        for (int64_t i = 0; i < count; i += kRows) {
            const int64_t y = min(i, count - kRows);
            rows(taps, s + y * stride, stride, d + y * dst_stride_, dst_stride_, n);
        }
    }
    // A row of results that sees rows beyond the image.
    void outer_row(int64_t y, const uint8_t* s, uint8_t* d, int64_t n) const {
        int64_t at[kNearCells];
        const int64_t cells =
            cells_at(at, [=, this](int64_t j) { return clamp<int64_t>(y + top_ + j, 0, height_ - 1) * stride_; });
        row(at, cells, s, d + y * dst_stride_, n);
    }
    template <class F>
    int64_t cells_at(int64_t* at, F row) const {
        int64_t n = 0;
        for (int64_t i = 0; i < count_; ++i)
            for (int32_t k = 0; k < runs_[i].length; ++k) at[n++] = runs_[i].x + row(runs_[i].y + k);
        return n;
    }

    // The ends of these image rows: at each side two vectors, and beyond it one of the edge pixel.
    void copy_ends(int64_t from, int64_t count) const {
        for (int64_t i = 0; i < count; ++i) {
            const uint8_t *s = s_ + clamp<int64_t>(from + i, 0, height_ - 1) * stride_, *end = s + row_;
            uint8_t *left = edges_ + i * kPitch, *right = left + 3 * kVector;
            repeat(left + kVector + min<int64_t>(left_, 0), left + kVector, s);
            store(left + kVector, load<Bytes>(s));
            store(left + 2 * kVector, load<Bytes>(s + kVector));
            store(right, load<Bytes>(end - 2 * kVector));
            store(right + kVector, load<Bytes>(end - kVector));
            repeat(right + 2 * kVector, right + 2 * kVector + right_, end - pixel_);
        }
    }
    // [to, end) := pixels like this one; behind it less than a vector may change.
    void repeat(uint8_t* to, uint8_t* end, const uint8_t* pixel) const {
        T v[4];
        if (pixel_ == sizeof(T)) {
            memcpy(v, pixel, sizeof(T));
            const auto all = splat(*v);
            for (; to < end; to += kVector) store(to, all);
        } else if (pixel_ == 4 * sizeof(T)) {
            memcpy(v, pixel, sizeof v);
            for (; to < end; to += sizeof v) memcpy(to, v, sizeof v);
        } else {
            memcpy(v, pixel, 3 * sizeof(T));
            for (; to < end; to += 3 * sizeof(T)) memcpy(to, v, 3 * sizeof(T));
        }
    }

    const uint8_t* s_;
    int64_t stride_, pixel_, row_, height_;  // pixel, row: bytes
    uint8_t* d_;
    int64_t dst_stride_;
    uint8_t *edges_, *copy_;
    int64_t copy_pitch_, copy_strip_;
    // From a result to the element's first and last columns, in bytes; to its first row, and from there to its last.
    int64_t left_ = 0, right_ = 0, top_ = 0, span_ = 0;
    Run runs_[kNearCells];
    int64_t count_ = 0;
    bool copied_ = false, fits_ = false;  // whether rows are copied, because they would drive each other out
};

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
