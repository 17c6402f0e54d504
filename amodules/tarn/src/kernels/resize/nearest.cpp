// Nearest-neighbour resize. It moves whole pixels, so one body per pixel size serves all element types. The source
// columns are found once per call. Where look-ups exist and the image shrinks to no less than half, 16 output bytes
// come from one or two windows of the source row; elsewhere pixel by pixel. Destination rows of one source row are
// copies of the first.
#include "kernels/plane/taps.h"
#include "kernels/resize/job.h"
#include "kernels/resize/windows.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// The columns of a row of outputs.
struct Columns {
    int64_t count;    // outputs
    int32_t* pixel;   // source column of each, from the source row's start
    int64_t movable;  // the outputs that have another behind them, and their pixels another in the source
    bool in_windows;
    Windows windows;
};

// The source bytes of a row of outputs, whose last vector is overlapped; past the end the last pixel again.
template <int kPixel>
struct BytesOfColumns {
    const int32_t* pixel;
    int64_t count, group = 0;
    void next(int32_t* at) {
        const int64_t from = overlapped(group / kGroups * kVector, count * kPixel) + group % kGroups * kWindow;
        int64_t x = min(from / kPixel, count - 1);
        int32_t c = int32_t(from % kPixel);
        for (int i = 0; i < kWindow; ++i) {
            at[i] = pixel[x] * kPixel + c;
            if (++c == kPixel) c = 0, x = min(x + 1, count - 1);
        }
        ++group;
    }
};

// Pixels of which each is a word, whose last quarter stays the destination's.
template <class Word>
void row_of_kept(const uint8_t* TARN_RESTRICT s, const Columns& c, uint8_t* TARN_RESTRICT d) {
    constexpr Word kColours = Word(~Word(0)) >> 2 * sizeof(Word);
    const int32_t* pixel = c.pixel;  // in a register
#pragma GCC unroll 4
    for (int64_t x = 0, n = c.count; x < n; ++x, d += sizeof(Word)) {
        Word from, to;
        memcpy(&from, s + pixel[x] * int64_t(sizeof from), sizeof from);
        memcpy(&to, d, sizeof to);
        to = (from & kColours) | (to & ~kColours);
        memcpy(d, &to, sizeof to);
    }
}

template <int kPixel, bool kKept>
void row_by_pixel(const uint8_t* TARN_RESTRICT s, const Columns& c, uint8_t* TARN_RESTRICT d) {
    if constexpr (kKept && kPixel == 4) return row_of_kept<uint32_t>(s, c, d);
    if constexpr (kKept && kPixel == 8) return row_of_kept<uint64_t>(s, c, d);
    const int32_t* pixel = c.pixel;  // in a register
    int64_t x = 0;
    // Three elements are moved as four, of which the next pixel overwrites the last.
    if constexpr (kPixel % 3 == 0)
#pragma GCC unroll 4
        for (const int64_t n = c.movable; x < n; ++x)
            memcpy(d + x * kPixel, s + pixel[x] * int64_t(kPixel), kPixel / 3 * 4);
#pragma GCC unroll 4
    for (const int64_t n = c.count; x < n; ++x)
        memcpy(d + x * kPixel, s + pixel[x] * int64_t(kPixel), kKept ? kPixel / 4 * 3 : kPixel);
}

// kPeriod: of the vectors that repeat, whose tables stay in registers; 0 without any.
template <int kPixel, bool kKept, bool kTwo, int kPeriod>
void row_by_windows(const uint8_t* s, const Columns& c, uint8_t* d) {
    const Bytes mask = kPixel == 4 ? colour_mask<uint8_t>() : colour_mask<int16_t>();
    const Windows windows = c.windows;  // in registers
    const int64_t n = c.count * kPixel;
    const auto by_tables = [&](auto io, int64_t i, int64_t v) {
        store_form_where<kKept>(io, d + i, pick<kTwo>(windows, s, v * kGroups), mask);
    };
    if (n < kVector) return by_tables(Part{n}, 0, 0);
    int64_t v = 0;
    const auto until = [&](int64_t end) {
        for (; v < end; ++v) by_tables(Whole{}, v * kVector, v);
    };
    const int64_t last = (n - 1) / kVector;
    if constexpr (kPeriod > 0) {
        until(windows.repeats.from);
        const Period<kPeriod, kTwo> period(windows);
        for (const uint8_t* from = s; v < windows.repeats.to; from += windows.repeats.step)
#pragma GCC unroll 3
            for (int k = 0; k < kPeriod; ++k, ++v)
                store_form_where<kKept>(Whole{}, d + v * kVector, period.pick(from, k), mask);
    }
    until(last);
    by_tables(Whole{}, n - kVector, last);
}
template <int kPixel, bool kKept, bool kTwo>
void row_by_windows(const uint8_t* s, const Columns& c, uint8_t* d) {
    if (c.windows.repeats.period == 1)
        row_by_windows<kPixel, kKept, kTwo, 1>(s, c, d);
    else if (c.windows.repeats.period == 3)
        row_by_windows<kPixel, kKept, kTwo, 3>(s, c, d);
    else
        row_by_windows<kPixel, kKept, kTwo, 0>(s, c, d);
}

// The second of every two pixels, at exactly half the width: one, two or four bytes each, from a vector of either half.
template <int kPixel>
inline Bytes second_of_two(const uint8_t* s) {
    const uint8_t* upper = s + kVector;
    if constexpr (kPixel == 1)
        return in_order_once((Bytes)narrow_groups_u8((S16)(load<U16>(s) >> 8), (S16)(load<U16>(upper) >> 8)));
    else if constexpr (kPixel == 2)
        return in_order_once((Bytes)narrow_groups(load<S32>(s) >> 16, load<S32>(upper) >> 16));
    else
        return in_order_once(odd32(load<Bytes>(s), load<Bytes>(upper)));
}
template <int kPixel, bool kKept>
void row_of_second(const uint8_t* TARN_RESTRICT s, int64_t n, uint8_t* TARN_RESTRICT d) {
    const Bytes mask = colour_mask<uint8_t>();
    int64_t i = 0;
#pragma GCC unroll 2
    for (; n * kPixel - i >= kVector; i += kVector)
        store_form_where<kKept>(Whole{}, d + i, second_of_two<kPixel>(s + 2 * i), mask);
    for (; i < n * kPixel; i += kPixel) memcpy(d + i, s + 2 * i + kPixel, kKept ? 3 : kPixel);
}

template <int kPixel, bool kKept>
Status nearest_of_half(const Job& j) {
    Walk line(j.region.height, j.dst_size.height, 0, j.top);
    for (int64_t y = j.top; y < j.bottom; ++y, line.next())
        row_of_second<kPixel, kKept>(j.src_row<uint8_t>(j.region.y + line.whole) + int64_t(j.region.x) * kPixel,
                                     j.dst_size.width, j.dst_row<uint8_t>(y));
    return kOk;
}

template <int kPixel, bool kKept>
Status nearest(const Job& j) {
    // Four bytes of which one is kept are of 8 bits each.
    if constexpr (kPixel <= 4 && kPixel != 3)
        if (halves_width(j)) return nearest_of_half<kPixel, kKept>(j);
    const int64_t width = j.dst_size.width, row_bytes = width * kPixel;
    // To find the windows costs as much as some rows pixel by pixel.
    const bool many_rows = j.bottom - j.top >= 4 * kPixel;
    const bool try_windows = kHasLookup && kPixel < 16 && many_rows && j.region.width <= 2 * width;
    const int64_t groups = try_windows ? (row_bytes + kVector - 1) / kVector * kGroups : 0;

    Columns c{};
    Scratch scratch(j.allocator);
    if (!scratch.carve([&](auto part) { part(c.pixel, width), c.windows.carve(part, groups); })) return kNoMemory;
    c.count = width;
    Walk column(j.region.width, width, 0, 0);
    for (int64_t x = 0; x < width; ++x, column.next()) c.pixel[x] = int32_t(j.region.x + column.whole);
    c.movable = width - 1;
    while (c.movable > 0 && c.pixel[c.movable - 1] == j.src_size.width - 1) --c.movable;
    c.in_windows = try_windows && find_windows(c.windows, groups, int64_t(j.src_size.width) * kPixel,
                                               BytesOfColumns<kPixel>{c.pixel, width});
    if (c.in_windows) find_repeats(c.windows, row_bytes / kVector, [](int64_t, int64_t) { return true; });

    Walk line(j.region.height, j.dst_size.height, 0, j.top);
    int64_t last = -1;
    for (int64_t y = j.top; y < j.bottom; ++y, line.next()) {
        const uint8_t* s = j.src_row<uint8_t>(j.region.y + line.whole);
        uint8_t* d = j.dst_row<uint8_t>(y);
        if (!kKept && line.whole == last)
            move_row(d, j.dst_row<uint8_t>(y - 1), row_bytes);
        else if (!c.in_windows)
            row_by_pixel<kPixel, kKept>(s, c, d);
        else if (c.windows.two)
            row_by_windows<kPixel, kKept, true>(s, c, d);
        else
            row_by_windows<kPixel, kKept, false>(s, c, d);
        last = line.whole;
    }
    return kOk;
}

}  // namespace

TARN_BODIES(resize_nearest, Resize, u8_s16_f32, c1_c3_c4_c3x,
            resize<nearest<channels(kForm) * sizeof(T), kept(kForm)>, T, kForm>)

}  // namespace tarn::k::TARN_LEVEL
