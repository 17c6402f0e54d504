// For the morphology sources only: rectangles, by the minimum filter's steps (filter/extreme.h). In blocks as high as
// the rectangle: the image's columns are folded first, as they lie, and then the folded rows go on beyond the edges,
// which comes to the same and copies no image rows.
#pragma once

#include "kernels/morph/rows.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Rows of an image or of a ring of `held` rows, the lowest of which is at `base`; beyond the image its edge rows.
struct HeldRows {
    const uint8_t* s;
    int64_t stride, first, height, base, held;

    const uint8_t* operator()(int64_t j) const {
        const int64_t y = clamp<int64_t>(first + j, 0, height - 1) - base;
        return s + (y < 0 ? y + held : y) * stride;
    }
};

// Elements [first, end) of a row.
struct Columns {
    int64_t first, end;
};

// One pass with the rectangle or its reflection.
template <class Op, class T>
class RectPass {
public:
    RectPass(const State& state, int64_t channels, Size region)
        : block_(reinterpret_cast<E*>(state.scratch)),
          pitch_(state.layout.pitch / int64_t(sizeof(E))),
          channels_(channels),
          elements_(region.width * channels),
          height_(region.height) {
        const Extent& e = state.extent;
        // Pixels further off than the image is large are those at its edge.
        const auto limit = [](int64_t v, int32_t n) { return clamp<int64_t>(v, 1 - n, n - 1); };
        const int64_t first_x = limit(Op::kReflected ? 1 - e.right : e.left, region.width);
        const int64_t last_x = limit(Op::kReflected ? -e.left : e.right - 1, region.width);
        const int64_t last_y = limit(Op::kReflected ? e.risen - e.lowest : e.lowest, region.height);
        top_ = limit(Op::kReflected ? -e.lowest : e.lowest - e.risen, region.height);
        rows_ = last_y - top_ + 1;
        columns_ = last_x - first_x + 1;
        left_ = first_x * channels;
    }

    int64_t rows() const { return rows_; }
    int64_t bottom() const { return top_ + rows_ - 1; }
    // The elements that results [x, x + width) are made of: at least a pixel.
    Columns reads(int64_t x, int64_t width) const {
        const int64_t first = clamp<int64_t>(x + left_, 0, elements_ - channels_);
        return {first, clamp(x + left_ + width + reach(), first + channels_, elements_)};
    }

    // Results [x, x + width) of rows [y, y + count), not more than rows(), to d. s: the rows' elements from
    // reads(x, width) on. then(d, j) after each row.
    template <class Then>
    void block(HeldRows source, int64_t x, int64_t width, int64_t y, int64_t count, uint8_t* d, int64_t dst_stride,
               Then then) {
        const Columns read = reads(x, width);
        const int64_t all = width + reach(), n = read.end - read.first;
        const int64_t lead = clamp<int64_t>(read.first - (x + left_), 0, all - channels_);
        source.first = y + top_;
        fold_columns<ExtremeFold<Op, T>>(source, n, rows_, count, block_ + lead, pitch_);
        for (int64_t j = 0; j < count; ++j, d += dst_stride) {
            E* row = block_ + j * pitch_;
            repeat(row, row + lead, lead);
            repeat(row + lead + n, row + lead + n - channels_, all - lead - n);
            extreme_row<Op, T, false>(row, d, width, columns_, channels_);
            then(d, j);
        }
    }

private:
    using E = typename Ordered<T>::E;
    // n elements := a pixel beside them, repeated.
    void repeat(E* to, const E* pixel, int64_t n) const {
        if (channels_ == 1) {
            const Vec<E> v = splat(*pixel);
            each_vector(n * int64_t(sizeof(E)), [=](auto io, int64_t i) { io.store(to + i / int64_t(sizeof(E)), v); });
        } else {
            for (int64_t i = 0; i < n; i += channels_)
                for (int64_t c = 0; c < channels_; ++c) to[i + c] = pixel[c];
        }
    }
    int64_t reach() const { return (columns_ - 1) * channels_; }

    E* block_;
    int64_t pitch_, channels_, elements_, height_;
    int64_t left_, top_, columns_, rows_;  // elements and rows from a result's to its first; pixels, rows
};

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
