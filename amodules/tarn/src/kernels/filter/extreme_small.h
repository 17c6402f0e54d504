// For extreme.cpp only: minima and maxima under square masks of 3, 5 and 7. Each source row is read once: its pixels
// are joined as they lie, by shifted loads. Down the columns van Herk's scheme (columns.h) in registers, in blocks of
// one row fewer than the mask has: every mask is the end of one block and the beginning of the next, and the ends are
// kept. So only a few rows are walked along side by side: of more, whose strides are often powers of two, the
// first-level cache does not hold the lines.
#pragma once

#include "kernels/filter/running.h"
#include "kernels/filter/window.h"
#include "kernels/plane/scratch.h"
#include "kernels/plane/store.h"
#include "kernels/plane/strips.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Takes in a block: kSide - 1 rows, from s on, of n bytes of results each. `ends` are those of the block before and
// become those of this one; d: the results of the masks that begin in the block before, which the first block has not.
template <class Run, class T, bool kKept, int kSide, int64_t kPixel, bool kFirst>
[[gnu::noinline]] void extreme_block(const uint8_t* s, int64_t src_stride, uint8_t* d, int64_t dst_stride, int64_t n,
                                     uint8_t* ends, int64_t pitch) {
    constexpr int kRows = kSide - 1;
    const Bytes mask = colour_mask<T>();
    for (int64_t i = 0; i < n; i += kVector, ends += kVector) {
        const int64_t at = min(i, n - kVector);
        typename Run::V rows[kRows], beginning;
#pragma GCC unroll 8
        for (int j = 0; j < kRows; ++j) {
            const uint8_t* p = s + j * src_stride + at;
            rows[j] = Run::from(p);
#pragma GCC unroll 8
            for (int k = 1; k < kSide; ++k) rows[j] = Run::join(rows[j], Run::from(p + k * kPixel));
            beginning = j ? Run::join(beginning, rows[j]) : rows[j];
            if constexpr (!kFirst)
                store_form<kKept>(Whole{}, d + j * dst_stride + at,
                                  (Bytes)Run::result(Run::join(Run::from(ends + j * pitch), beginning)), mask);
        }
        auto end = rows[kRows - 1];
#pragma GCC unroll 8
        for (int j = kRows - 1; j > 0; --j) {
            store(ends + j * pitch, Run::result(end));
            end = Run::join(rows[j - 1], end);
        }
        store(ends, Run::result(beginning));
    }
}

constexpr int64_t kSmallStrip = 24576;  // bytes of a row; the kept ones stay in the second-level cache

template <int kSide>
bool is_small(const Window& w, int64_t element) {
    return w.columns == kSide && w.rows == kSide && w.width * element >= kVector && w.height >= kSide - 1;
}

// For masks that are small.
template <class Op, class T, Form kForm, int kSide>
Status extreme_small(const Window& w, const Allocator& allocator) {
    constexpr int64_t kRows = kSide - 1, kPixel = kPixelBytes<T, kForm>;
    constexpr auto kFirst = extreme_block<Running<Op, T>, T, false, kSide, kPixel, true>,
                   kNext = extreme_block<Running<Op, T>, T, kept(kForm), kSide, kPixel, false>;
    [[maybe_unused]] auto next_of_floats = kNext;  // where both blocks are ordinary
    if constexpr (kFloatsPay<T>)
        next_of_floats = extreme_block<RunningFloats<Op>, T, kept(kForm), kSide, kPixel, false>;
    const int64_t n = w.width * int64_t(sizeof(T)), strip = min(n, strip_width(n, kSmallStrip, 192 * sizeof(T)));
    const int64_t pitch = (strip + 2 * kVector - 1) / kVector * kVector;
    Scratch scratch(allocator);
    uint8_t* ends = nullptr;
    if (!scratch.carve([&](auto part) { part(ends, kRows * pitch); })) return kNoMemory;
    [[maybe_unused]] OrdinaryBlocks blocks;
    // The last strip overlaps the one before, and the last block of results likewise, after a beginning of its own.
    for (int64_t left = 0; left < n; left += strip) {
        const int64_t x = min(left, n - strip);
        for (int64_t top = 0; top < w.height; top += kRows) {
            const int64_t y = min(top, w.height - kRows);
            const uint8_t *s = w.src + y * w.src_stride + x, *below = s + kRows * w.src_stride;
            if (top == 0 || y < top) {
                if constexpr (kFloatsPay<T>) blocks.begin(s, w.src_stride, strip + kRows * kPixel, kRows);
                kFirst(s, w.src_stride, nullptr, 0, strip, ends, pitch);
            }
            auto next = kNext;
            if constexpr (kFloatsPay<T>)
                if (blocks.both(below, w.src_stride, strip + kRows * kPixel, kRows)) next = next_of_floats;
            next(below, w.src_stride, w.dst + y * w.dst_stride + x, w.dst_stride, strip, ends, pitch);
        }
    }
    return kOk;
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
