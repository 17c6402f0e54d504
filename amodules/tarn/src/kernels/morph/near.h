// For the morphology sources only: small elements of few cells, joined from the image's rows as they lie. Read from
// copies are only the ends of rows, whose results see beyond the image, and the rows of images whose stride the
// first-level cache does not bear; rows that see rows beyond the image are joined one by one.
#pragma once

#include "kernels/morph/cells.h"

namespace tarn::k::TARN_LEVEL {
namespace {

template <class Op, class T>
class Near {
public:
    Near(const State& state, const Picture<T>& picture, int64_t height)
        : cells_(state, picture.channels * int64_t(sizeof(T))),
          s_(static_cast<const uint8_t*>(picture.src)),
          stride_(picture.stride),
          pixel_(picture.channels * int64_t(sizeof(T))),
          row_(picture.width * pixel_),
          height_(height),
          edges_(state.layout.edges(state.scratch)),
          copy_(state.scratch),
          copy_pitch_(state.layout.pitch),
          copy_strip_(state.layout.strip * int64_t(sizeof(T))),
          copied_(collide(stride_, kBlock + cells_.span())),
          inside_(cells_.taps(stride_)),
          copies_(cells_.taps(copy_pitch_)),
          ends_(cells_.taps(kPitch)) {}

    // Each side's results that see beyond it are an end's, and between the ends there are two more.
    bool fits() const { return cells_.fits() && row_ >= 4 * kEnd; }
    const Cells<Op, T>& cells() const { return cells_; }

    // Results of rows [y, y + count), bytes [from, end), to d. Both are a row's ends or kEnd bytes off them at
    // least, and twice that apart.
    void operator()(int64_t y, int64_t count, int64_t from, int64_t end, uint8_t* d, int64_t dst_stride) const {
        for (; count > 0; y += kBand, count -= kBand, d += kBand * dst_stride)
            band(y, min(kBand, count), from, end, d, dst_stride);
    }

private:
    using Taps = typename Cells<Op, T>::Taps;
    static constexpr int64_t kPitch = 6 * kEnd;  // of copies of rows' ends
    static_assert(kEnd <= kLine);                // the state has room for six lines of each
    static constexpr int64_t kStrip = 8192;
    static constexpr int64_t kCacheWay = 4096, kSameSet = 10;
    static constexpr int64_t kCellsOfCopy = 4;  // joined in the time that a row is copied in

    // Whether so many rows have more lines in a set of the first-level cache than stay there.
    static bool collide(int64_t stride, int64_t rows) {
        const int64_t lines = (stride + kLine / 2) & -kLine;
        return rows * min(lines & -lines, kCacheWay) > kSameSet * kCacheWay;
    }

    void band(int64_t y, int64_t rows, int64_t from, int64_t end, uint8_t* d, int64_t dst_stride) const {
        const int64_t last = row_ - kEnd, to = min(end, last);
        if (from == 0 || end == row_) copy_ends(y + cells_.top(), rows + cells_.span());
        const uint8_t* edge = edges_ + kEnd + cells_.left();
        if (from == 0) cells_.block(ends_, edge, kPitch, d, dst_stride, kEnd, rows);
        if (end == row_) cells_.block(ends_, edge + 3 * kEnd, kPitch, d + (last - from), dst_stride, kEnd, rows);
        // Rows that see beyond the image are joined cell by cell, unless a copy of all that the band sees costs less.
        const int64_t top = cells_.top(), span = cells_.span();
        const int64_t above = clamp<int64_t>(-top - y, 0, rows);
        const int64_t below = clamp<int64_t>(height_ - top - span - y, above, rows);
        const bool copied = copied_ || (above + rows - below) * cells_.count() > kCellsOfCopy * (rows + span);
        const int64_t strip = copied ? min(copy_strip_, kStrip) : kStrip;
        for (int64_t x = max(from, kEnd); x < to; x += strip) {
            const int64_t n = max(min(strip, to - x), kEnd), at = min(x, to - n);
            if (copied)
                by_copy(y, rows, at, n, d + (at - from), dst_stride);
            else
                inner(y, rows, above, below, at, n, d + (at - from), dst_stride);
        }
    }
    // A band's results at [x, x + n), which see no end of a row.
    void by_copy(int64_t y, int64_t rows, int64_t x, int64_t n, uint8_t* d, int64_t dst_stride) const {
        const uint8_t* s = s_ + x + cells_.left();
        for (int64_t i = 0; i < rows + cells_.span(); ++i)
            memcpy(copy_ + i * copy_pitch_, s + row_offset(y + cells_.top() + i),
                   size_t(n + cells_.right() - cells_.left()));
        cells_.block(copies_, copy_, copy_pitch_, d, dst_stride, n, rows);
    }
    // Of these rows the first `above` and those from `below` on see rows beyond the image.
    void inner(int64_t y, int64_t rows, int64_t above, int64_t below, int64_t x, int64_t n, uint8_t* d,
               int64_t dst_stride) const {
        const int64_t top = cells_.top();
        const uint8_t* s = s_ + x + cells_.left();
        const auto outer = [&](int64_t i) {
            cells_.row([=, this](int64_t j) { return row_offset(y + i + top + j); }, s, d + i * dst_stride, n);
        };
        for (int64_t i = 0; i < above; ++i) outer(i);
        if (above < below)
            cells_.block(inside_, s + (y + above + top) * stride_, stride_, d + above * dst_stride, dst_stride, n,
                         below - above);
        for (int64_t i = below; i < rows; ++i) outer(i);
    }
    int64_t row_offset(int64_t y) const { return clamp<int64_t>(y, 0, height_ - 1) * stride_; }

    // The ends of these image rows: at each side twice kEnd bytes, and beyond it kEnd of the edge pixel. Members are
    // read into locals, not again after every store.
    void copy_ends(int64_t from, int64_t count) const {
        const int64_t stride = stride_, height = height_, row = row_, pixel = pixel_;
        const int64_t channels = pixel / int64_t(sizeof(T));
        const int64_t before = max<int64_t>(-cells_.left(), 0), behind = max<int64_t>(cells_.right(), 0);
        const uint8_t* s = s_;
        uint8_t* left = edges_ + kEnd;
        for (int64_t y = from; y < from + count; ++y, left += kPitch) {
            const uint8_t *begin = s + clamp<int64_t>(y, 0, height - 1) * stride, *end = begin + row;
            uint8_t* right = left + 4 * kEnd;
            repeat_pixel<T>(left - before, before, begin, channels);
            memcpy(left, begin, 2 * kEnd);
            memcpy(right - 2 * kEnd, end - 2 * kEnd, 2 * kEnd);
            repeat_pixel<T>(right, behind, end - pixel, channels);
        }
    }

    Cells<Op, T> cells_;
    const uint8_t* s_;
    int64_t stride_, pixel_, row_, height_;  // pixel, row: bytes
    uint8_t *edges_, *copy_;
    int64_t copy_pitch_, copy_strip_;
    bool copied_;  // whether rows are copied, because they would drive each other out
    Taps inside_, copies_, ends_;
};

// A first pass's results as the second one sees them: those of a band, and around it rows and columns that its cells
// reach; beyond the image those at its edge.
template <class First, class Second, class T>
class NearResults {
public:
    // memory: as many rows as a band and what the second pass sees above and below it.
    NearResults(const Near<First, T>& first, const Cells<Second, T>& second, const Picture<T>& picture, int64_t height,
                uint8_t* memory, int64_t pitch)
        : first_(first),
          second_(second),
          channels_(picture.channels),
          row_(picture.width * picture.channels * int64_t(sizeof(T))),
          height_(height),
          memory_(memory),
          pitch_(pitch) {}

    // Begins a strip, bytes [x, end) of the second pass's results.
    void start(int64_t x, int64_t end) {
        const auto whole_ends = [this](int64_t v) { return v < kEnd ? 0 : v > row_ - kEnd ? row_ : v; };
        const int64_t seen_from = x + second_.left(), seen_end = end + second_.right();
        from_ = whole_ends(seen_from), end_ = whole_ends(seen_end);
        left_ = max<int64_t>(from_ - seen_from, 0), right_ = max<int64_t>(seen_end - end_, 0);
        seen_ = max<int64_t>(seen_from - from_, 0);
    }
    // What results of rows [y, y + rows) see. Bands come in order.
    const uint8_t* band(int64_t y, int64_t rows) {
        const int64_t kept = y > 0 ? second_.span() : 0;
        memmove(memory_, memory_ + kBand * pitch_, size_t(kept * pitch_));
        make(y + second_.top() + kept, rows + second_.span() - kept, memory_ + kept * pitch_);
        return memory_ + seen_;
    }

private:
    void make(int64_t y, int64_t rows, uint8_t* to) const {
        // Of these rows those in the image, or the edge row next to them.
        const int64_t top = clamp<int64_t>(y, 0, height_ - 1), bottom = clamp<int64_t>(y + rows - 1, 0, height_ - 1);
        const int64_t first = clamp<int64_t>(top - y, 0, rows - 1), last = first + bottom - top;
        const int64_t n = end_ - from_;
        first_(top, bottom - top + 1, from_, end_, to + first * pitch_ + left_, pitch_);
        for (int64_t i = first; i <= last; ++i) {
            T *made = reinterpret_cast<T*>(to + i * pitch_ + left_), *behind = made + n / int64_t(sizeof(T));
            for (int64_t k = 1; k <= left_ / int64_t(sizeof(T)); ++k) made[-k] = made[channels_ - k];
            for (int64_t k = 0; k < right_ / int64_t(sizeof(T)); ++k) behind[k] = behind[k - channels_];
        }
        for (int64_t i = 0; i < rows; ++i)
            if (i < first || i > last)
                memcpy(to + i * pitch_, to + clamp(i, first, last) * pitch_, size_t(left_ + n + right_));
    }

    const Near<First, T>& first_;
    const Cells<Second, T>& second_;
    int64_t channels_, row_, height_;  // row: bytes
    uint8_t* memory_;
    int64_t pitch_;
    int64_t from_ = 0, end_ = 0;               // bytes of the first pass's results
    int64_t left_ = 0, right_ = 0, seen_ = 0;  // bytes of pixels repeated, and before the first that is seen
};

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
