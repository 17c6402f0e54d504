// For box.cpp only: means of integers under small masks, in sums twice as wide. Each row's pixels are summed as they
// lie, by a few shifted loads; the sums of the last rows are kept, and the mask's are brought from row to row by the
// row that enters and the one that leaves. Three rows are added afresh, which takes fewer steps.
#pragma once

#include <type_traits>

#include "kernels/filter/window.h"
#include "kernels/plane/scratch.h"
#include "kernels/plane/store.h"
#include "kernels/plane/strips.h"
#include "kernels/simd/divide.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Sums for a vector of elements, of the groups' lower and upper halves: of bytes in 16 bits, of 16-bit elements in 32.
template <class T>
struct Halves {
    using Sums = std::conditional_t<sizeof(T) == 1, U16, S32>;
    Sums lower, upper;
};
template <class T>
inline Halves<T> load_halves(const Halves<T>* p) {
    return {load<typename Halves<T>::Sums>(&p->lower), load<typename Halves<T>::Sums>(&p->upper)};
}
template <class T>
inline void store_halves(Halves<T>* p, Halves<T> v) {
    store(&p->lower, v.lower);
    store(&p->upper, v.upper);
}
template <class T>
inline Halves<T> operator+(Halves<T> a, Halves<T> b) {
    return {a.lower + b.lower, a.upper + b.upper};
}
template <class T>
inline Halves<T> operator-(Halves<T> a, Halves<T> b) {
    return {a.lower - b.lower, a.upper - b.upper};
}

template <class T>
inline Halves<T> sum_of_two(Bytes a, Bytes b) {
    const S16 ones = splat(int16_t(1));
    if constexpr (sizeof(T) == 1)
        return {widening_add_lower(a, b), widening_add_upper(a, b)};
    else
        return {mul_add_pairs((S16)interleave_lower16(a, b), ones), mul_add_pairs((S16)interleave_upper16(a, b), ones)};
}
template <class T>
inline Halves<T> widened(Bytes a) {
    if constexpr (sizeof(T) == 1)
        return {(U16)interleave_lower8(a, Bytes{}), (U16)interleave_upper8(a, Bytes{})};
    else
        return {(S32)interleave_lower16(a, a) >> 16, (S32)interleave_upper16(a, a) >> 16};
}
// Sums of kColumns pixels each, or of `columns` where that is 0.
template <class T, int kColumns>
[[gnu::always_inline]] inline Halves<T> sum_pixels(const uint8_t* p, int64_t columns, int64_t pixel_bytes) {
    if constexpr (kColumns) columns = kColumns;
    Halves<T> sum = {};
    for (; columns > 1; columns -= 2, p += 2 * pixel_bytes)
        sum = sum + sum_of_two<T>(load<Bytes>(p), load<Bytes>(p + pixel_bytes));
    return columns ? sum + widened<T>(load<Bytes>(p)) : sum;
}
template <class T, class Divide>
inline Bytes means_of(Halves<T> sum, const Divide& divide) {
    if constexpr (sizeof(T) == 1)
        return (Bytes)narrow_groups_u8((S16)divide(sum.lower), (S16)divide(sum.upper));
    else
        return (Bytes)narrow_groups(divide(sum.lower), divide(sum.upper));
}

// Bytes of the kept rows, for the second-level cache. Narrow strips would spare it, but each of their rows lies on a
// page of its own, where the source comes late: of large images they took two to four times as long.
constexpr int64_t kSmallSums = 256 << 10;

// Masks of up to seven columns and two rows and more; kThree: of three. A region narrower than a vector is read and
// written by way of lines that are as wide as one.
template <class T, bool kKept, int kColumns, bool kThree, class Divide>
Status box_small(const Window& w, const Divide& how, const Allocator& allocator) {
    constexpr int64_t kBytes = sizeof(T), kMostReach = 6 * 4 * kBytes;
    const Divide divide = how;
    const bool narrow = w.width * kBytes < kVector;
    const int64_t row_bytes = narrow ? kVector : w.width * kBytes, pixel_bytes = w.channels * kBytes;
    uint8_t line[kVector + kMostReach] = {}, means_line[kVector];
    const auto source = [&](const uint8_t* s) -> const uint8_t* {
        return narrow ? static_cast<const uint8_t*>(memcpy(line, s, size_t((w.width + w.reach) * kBytes))) : s;
    };
    const int64_t slots = w.rows - 1;
    const int64_t most = max<int64_t>(kSmallSums / 2 / (slots + 1), 256) / 192 * 192,
                  strip = strip_width(row_bytes, most, 192);
    const int64_t vectors = (min(strip + kVector, row_bytes) + kVector - 1) / kVector;
    Scratch scratch(allocator);
    Halves<T>*rows = nullptr, *sums = nullptr;
    if (!scratch.carve([&](auto part) { part(rows, slots * vectors), part(sums, vectors); })) return kNoMemory;
    const Bytes mask = colour_mask<T>();
    for (int64_t x = 0, width; x < row_bytes; x += width) {
        // No strip is narrower than a vector.
        width = row_bytes - x < strip + kVector ? row_bytes - x : strip;
        const int64_t count = (width + kVector - 1) / kVector;
        const auto each = [&](auto f) {
            for (int64_t i = 0; i < count; ++i) f(i, min(i * kVector, width - kVector));
        };
        const uint8_t* s = w.src + x;
        for (int64_t y = 0; y < slots; ++y, s += w.src_stride) {
            const uint8_t* from = source(s);
            each([&](int64_t i, int64_t at) {
                const Halves<T> sum = sum_pixels<T, kColumns>(from + at, w.columns, pixel_bytes);
                store_halves(rows + y * vectors + i, sum);
                if (!kThree) store_halves(sums + i, y ? load_halves(sums + i) + sum : sum);
            });
        }
        uint8_t* d = w.dst + x;
        for (int64_t y = 0, slot = 0; y < w.height; ++y, s += w.src_stride, d += w.dst_stride) {
            Halves<T>*oldest = rows + slot * vectors, *other = rows + (1 - slot) * vectors;
            const uint8_t* from = source(s);
            uint8_t* to = narrow ? means_line : d;
            each([&](int64_t i, int64_t at) {
                const Halves<T> enters = sum_pixels<T, kColumns>(from + at, w.columns, pixel_bytes);
                const Halves<T> leaves = load_halves(oldest + i);
                const Halves<T> before = kThree ? leaves + load_halves(other + i) : load_halves(sums + i);
                const Halves<T> sum = before + enters;
                store_halves(oldest + i, enters);
                if (!kThree) store_halves(sums + i, sum - leaves);
                store_form<kKept>(Whole{}, to + at, means_of(sum, divide), mask);
            });
            if (narrow) store_form<kKept>(Part{w.width * kBytes}, d, load<Bytes>(means_line), mask);
            slot = slot + 1 == slots ? 0 : slot + 1;
        }
    }
    return kOk;
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
