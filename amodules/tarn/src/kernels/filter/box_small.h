// For box.cpp only: means of bytes under small masks, in 16 bits. Each row's pixels are summed as they lie, by a few shifted
// loads; the sums of the last rows are kept, and the mask's are brought from row to row by the row that enters and the one
// that leaves. Three rows are added afresh, which takes fewer steps.
#pragma once

#include "kernels/filter/window.h"
#include "kernels/plane/scratch.h"
#include "kernels/plane/store.h"
#include "kernels/plane/strips.h"
#include "kernels/simd/divide.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// 16-bit sums for a vector of bytes, of the groups' lower and upper halves.
struct Halves {
    U16 lower, upper;
};
inline Halves load_halves(const Halves* p) { return {load<U16>(&p->lower), load<U16>(&p->upper)}; }
inline void store_halves(Halves* p, Halves v) {
    store(&p->lower, v.lower);
    store(&p->upper, v.upper);
}
inline Halves operator+(Halves a, Halves b) { return {a.lower + b.lower, a.upper + b.upper}; }
inline Halves operator-(Halves a, Halves b) { return {a.lower - b.lower, a.upper - b.upper}; }

// Sums of kColumns pixels each, or of `columns` where that is 0.
template <int kColumns>
[[gnu::always_inline]] inline Halves sum_pixels(const uint8_t* p, int64_t columns, int64_t channels) {
    if constexpr (kColumns) columns = kColumns;
    Halves sum = {};
    for (; columns > 1; columns -= 2, p += 2 * channels) {
        const Bytes a = load<Bytes>(p), b = load<Bytes>(p + channels);
        sum = sum + Halves{widening_add_lower(a, b), widening_add_upper(a, b)};
    }
    if (columns) {
        const Bytes a = load<Bytes>(p);
        sum = sum + Halves{(U16)interleave_lower8(a, Bytes{}), (U16)interleave_upper8(a, Bytes{})};
    }
    return sum;
}

// Bytes of the kept rows, for the second-level cache. Narrow strips would spare it, but each of their rows lies on a page
// of its own, where the source comes late: of large images they took two to four times as long.
constexpr int64_t kSmallSums = 128 << 10;

// Masks of two rows and more; kThree: of three. A region narrower than a vector is read and written by way of lines that
// are as wide as one.
template <bool kKept, int kColumns, bool kThree, class Divide>
Status box_small(const Window& given, const Divide& how, const Allocator& allocator) {
    const Divide divide = how;
    Window w = given;
    const bool narrow = given.width < kVector;
    if (narrow) w.width = kVector;
    uint8_t line[kVector + 32] = {}, means_line[kVector];
    const auto source = [&](const uint8_t* s) -> const uint8_t* {
        return narrow ? static_cast<const uint8_t*>(memcpy(line, s, size_t(given.width + given.reach))) : s;
    };
    const int64_t slots = w.rows - 1;
    const int64_t most = max<int64_t>(kSmallSums / 2 / (slots + 1), 256) / 192 * 192,
                  strip = strip_width(w.width, most, 192);
    const int64_t vectors = (min(strip + kVector, w.width) + kVector - 1) / kVector;
    Scratch scratch(allocator);
    Halves *rows = nullptr, *sums = nullptr;
    if (!scratch.carve([&](auto part) { part(rows, slots * vectors), part(sums, vectors); })) return kNoMemory;
    const Bytes mask = colour_mask<uint8_t>();
    for (int64_t x = 0, width; x < w.width; x += width) {
        // No strip is narrower than a vector.
        width = w.width - x < strip + kVector ? w.width - x : strip;
        const int64_t count = (width + kVector - 1) / kVector;
        const auto each = [&](auto f) {
            for (int64_t i = 0; i < count; ++i) f(i, min(i * kVector, width - kVector));
        };
        const uint8_t* s = w.src + x;
        for (int64_t y = 0; y < slots; ++y, s += w.src_stride) {
            const uint8_t* from = source(s);
            each([&](int64_t i, int64_t at) {
                const Halves sum = sum_pixels<kColumns>(from + at, w.columns, w.channels);
                store_halves(rows + y * vectors + i, sum);
                if (!kThree) store_halves(sums + i, y ? load_halves(sums + i) + sum : sum);
            });
        }
        uint8_t* d = w.dst + x;
        for (int64_t y = 0, slot = 0; y < w.height; ++y, s += w.src_stride, d += w.dst_stride) {
            Halves *oldest = rows + slot * vectors, *other = rows + (1 - slot) * vectors;
            const uint8_t* from = source(s);
            uint8_t* to = narrow ? means_line : d;
            each([&](int64_t i, int64_t at) {
                const Halves enters = sum_pixels<kColumns>(from + at, w.columns, w.channels);
                const Halves leaves = load_halves(oldest + i);
                const Halves before = kThree ? leaves + load_halves(other + i) : load_halves(sums + i);
                const Halves sum = before + enters;
                store_halves(oldest + i, enters);
                if (!kThree) store_halves(sums + i, sum - leaves);
                const Bytes means = narrow_groups_u8((S16)divide(sum.lower), (S16)divide(sum.upper));
                store_form<kKept>(Whole{}, to + at, means, mask);
            });
            if (narrow) store_form<kKept>(Part{given.width}, d, load<Bytes>(means_line), mask);
            slot = slot + 1 == slots ? 0 : slot + 1;
        }
    }
    return kOk;
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
