// Nearest-neighbour resize. It moves whole pixels, so one body per pixel size serves all element types. The source
// columns are found once per call. Where look-ups exist, 16 output bytes are picked from one or two windows of the
// source row or, of small pixels in images that shrink, from a segment of it; elsewhere they come pixel by pixel.
// Destination rows of one source row are copies of the first.
#include "kernels/plane/taps.h"
#include "kernels/resize/job.h"
#include "kernels/resize/windows.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// The columns of a row of outputs.
struct Columns {
    int64_t count;    // outputs
    int32_t* pixel;   // source column of each, from the source row's start, and behind them the last again
    int64_t movable;  // the outputs that have another behind them, and their pixels another in the source
};

// The pixels that 16 bytes of outputs belong to, at most.
template <int kPixel>
constexpr int kPixelsOfGroup = (kWindow % kPixel ? kPixel + kWindow - 2 : kWindow - 1) / kPixel + 1;

// The source bytes of the groups of a row of outputs, whose last vector is overlapped; past the end the last pixel
// again.
template <int kPixel>
struct BytesOfColumns {
    const int32_t* pixel;
    int64_t count, group = 0;

    Group next(int32_t latest) {
        const int64_t from = overlapped(group / kGroups * kVector, count * kPixel) + group % kGroups * kWindow;
        ++group;
        const int32_t *p = pixel + min(from / kPixel, count - 1), c = int32_t(from % kPixel);
        const int32_t end = c + kWindow - 1, last = end / kPixel;
        // Columns never go back, so that the least byte is the first one or begins the second pixel. Behind the last one
        // is another only where a pixel repeats, and all are in a window.
        int32_t first = min(p[0] * kPixel + c, latest);
        if (c > 0) first = min(first, p[1] * kPixel);
        return {first,
                p[last] * kPixel + end % kPixel - first,
                {eight(p, c, first), eight(p + (c + 8) / kPixel, (c + 8) % kPixel, first)}};
    }

private:
    // Eight bytes from byte c of a pixel on: a pixel's follow each other, and above them those of the next.
    static uint64_t eight(const int32_t* p, int32_t c, int32_t first) {
        constexpr uint64_t kFollowing = 0x0706050403020100;
        uint64_t v = uint64_t(p[0] * kPixel + c - first) * Group::kOnes + kFollowing;
        for (int32_t at = kPixel - c; at < 8; at += kPixel) {
            const uint64_t next = uint64_t(*++p * kPixel - first) * Group::kOnes + kFollowing;
            v = (v & ((uint64_t(1) << 8 * at) - 1)) | next << 8 * at;
        }
        return v;
    }
};

// Pixels of which each is a word, whose last quarter stays the destination's.
template <class Word>
void row_of_kept(const Columns& c, const uint8_t* TARN_RESTRICT s, uint8_t* TARN_RESTRICT d) {
    constexpr Word kColours = Word(~Word(0)) >> 2 * sizeof(Word);
    const int32_t* pixel = c.pixel;
    for (int64_t x = 0, n = c.count; x < n; ++x, d += sizeof(Word)) {
        Word from, to;
        memcpy(&from, s + pixel[x] * int64_t(sizeof from), sizeof from);
        memcpy(&to, d, sizeof to);
        to = (from & kColours) | (to & ~kColours);
        memcpy(d, &to, sizeof to);
    }
}

// Rows by their pixels, by windows, and by segments: each makes the row d of the row s.
template <int kPixel, bool kKept>
struct ByPixel {
    Columns c;
    [[gnu::always_inline]] void operator()(const uint8_t* TARN_RESTRICT s, uint8_t* TARN_RESTRICT d) const {
        if constexpr (kKept && kPixel == 4) return row_of_kept<uint32_t>(c, s, d);
        if constexpr (kKept && kPixel == 8) return row_of_kept<uint64_t>(c, s, d);
        const int32_t* pixel = c.pixel;
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
};

template <int kPixel>
inline Bytes mask_of_kept() {
    return kPixel == 4 ? colour_mask<uint8_t>() : colour_mask<int16_t>();
}
// vector(io, offset, number) for the vectors of a row of n bytes, from the v-th on; the last one overlaps.
template <class Vector>
[[gnu::always_inline]] inline void each_numbered(int64_t n, int64_t v, Vector vector) {
    if (n < kVector) return vector(Part{n}, 0, 0);
    const int64_t last = (n - 1) / kVector;
    for (; v < last; ++v) vector(Whole{}, v * kVector, v);
    vector(Whole{}, n - kVector, last);
}

// kPeriod: of the vectors that repeat, whose tables stay in registers; 0 without any.
template <int kPixel, bool kKept, bool kTwo, int kPeriod>
struct ByWindows {
    int64_t count;
    Windows windows;
    [[gnu::always_inline]] void operator()(const uint8_t* s, uint8_t* d) const {
        const Bytes mask = mask_of_kept<kPixel>();
        const auto by_tables = [&](auto io, int64_t i, int64_t v) __attribute__((always_inline)) {
            store_form_where<kKept>(io, d + i, pick<kTwo>(windows, s, v * kGroups), mask);
        };
        int64_t v = 0;
        if constexpr (kPeriod > 0) {  // there are many vectors
            for (; v < windows.repeats.from; ++v) by_tables(Whole{}, v * kVector, v);
            const Period<kPeriod, kTwo> period(windows);
            for (const uint8_t* from = s; v < windows.repeats.to; from += windows.repeats.step)
#pragma GCC unroll 3
                for (int k = 0; k < kPeriod; ++k, ++v)
                    store_form_where<kKept>(Whole{}, d + v * kVector, period.pick(from, k), mask);
        }
        each_numbered(count * kPixel, v, by_tables);
    }
};

// kCount: vectors of a group; 0: any number.
template <int kPixel, bool kKept, int kCount>
struct BySegments {
    int64_t count;
    Segments segments;
    [[gnu::always_inline]] void operator()(const uint8_t* s, uint8_t* d) const {
        const Bytes mask = mask_of_kept<kPixel>();
        each_numbered(
            count * kPixel, 0, [&](auto io, int64_t i, int64_t v) __attribute__((always_inline)) {
                store_form_where<kKept>(io, d + i, pick<kCount>(segments, s, v), mask);
            });
    }
};

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

// All rows by row(s, d), but those that repeat a source row: they are copied.
template <bool kKept, class Row>
inline void each_row(const Job& j, int64_t row_bytes, const Row row) {
    Walk line(j.region.height, j.dst_size.height, 0, j.top);
    int64_t last = -1;
    for (int64_t y = j.top; y < j.bottom; ++y, line.next()) {
        uint8_t* d = j.dst_row<uint8_t>(y);
        if (!kKept && line.whole == last)
            move_row(d, j.dst_row<uint8_t>(y - 1), row_bytes);
        else
            row(j.src_row<uint8_t>(j.region.y + line.whole), d);
        last = line.whole;
    }
}

// Vectors that hold what a group needs, wherever it begins.
template <int kPixel>
int64_t vectors_of_group(const Job& j) {
    const int64_t from = j.region.width, to = j.dst_size.width;
    const int64_t pixels = ((kPixelsOfGroup<kPixel> - 1) * from + to - 1) / to + 1;
    return (pixels * kPixel + kVector - 1) / kVector;
}

enum class Way { by_pixel, by_windows, by_segments };
// Whether pixels of this size are ever picked from windows or segments.
template <int kPixel>
constexpr bool kPicked = kHasLookup&& kPixel < 16;

// How rows are made at best. To find what groups are picked from costs as much as some rows pixel by pixel. Where a
// vector has as much as two windows, it takes their place.
template <int kPixel>
Way way_of(const Job& j, int64_t src_row_bytes, Segments& segments) {
    constexpr int64_t kMostVectors = (kGroups == 1 ? 8 : 12 / kGroups) / kPixel;  // in the time of single pixels
    static_assert(kMostVectors * kVector <= kLongestSegment);
    const int64_t from = j.region.width, to = j.dst_size.width;
    if (!kPicked<kPixel> || j.bottom - j.top < 5 * kPixel) return Way::by_pixel;
    if (from <= to || (from <= 2 * to && kVector != 2 * kWindow)) return Way::by_windows;
    segments.count = vectors_of_group<kPixel>(j);
    const int64_t bytes = segments.count * kVector;
    if (segments.count <= kMostVectors && bytes <= src_row_bytes && src_row_bytes <= INT32_MAX) return Way::by_segments;
    return from <= 2 * to ? Way::by_windows : Way::by_pixel;
}

// The same, not inlined, and of a row of its own, which no store can change: what it reads of tables' addresses stays in
// registers from row to row.
template <bool kKept, class Row>
[[gnu::noinline]] void each_picked_row(const Job& j, int64_t row_bytes, const Row row) {
    each_row<kKept>(j, row_bytes, row);
}

template <int kPixel, bool kKept, bool kTwo>
void rows_by_windows(const Job& j, int64_t row_bytes, const Windows& w) {
    const int64_t count = j.dst_size.width;
    if (w.repeats.period == 1)
        each_picked_row<kKept>(j, row_bytes, ByWindows<kPixel, kKept, kTwo, 1>{count, w});
    else if (w.repeats.period == 3)
        each_picked_row<kKept>(j, row_bytes, ByWindows<kPixel, kKept, kTwo, 3>{count, w});
    else
        each_picked_row<kKept>(j, row_bytes, ByWindows<kPixel, kKept, kTwo, 0>{count, w});
}

template <int kPixel, bool kKept>
Status nearest(const Job& j) {
    // Four bytes of which one is kept are of 8 bits each.
    if constexpr (kPixel <= 4 && kPixel != 3)
        if (halves_width(j)) return nearest_of_half<kPixel, kKept>(j);
    const int64_t row_bytes = j.dst_size.width * int64_t(kPixel), src_row_bytes = j.src_size.width * int64_t(kPixel);
    const int64_t groups = (row_bytes + kVector - 1) / kVector * kGroups;
    Columns c{j.dst_size.width, nullptr, j.dst_size.width - 1};
    Windows windows;
    Segments segments;
    const Way way = way_of<kPixel>(j, src_row_bytes, segments);
    Scratch scratch(j.allocator);
    const auto arrays = [&](auto part) {
        part(c.pixel, c.count + kWindow);
        if (way == Way::by_windows) windows.carve(part, groups);
        if (way == Way::by_segments) segments.carve(part, groups);
    };
    if (!scratch.carve(arrays)) return kNoMemory;

    Walk column(j.region.width, c.count, 0, 0);
    for (int64_t x = 0; x < c.count; ++x, column.next()) c.pixel[x] = int32_t(j.region.x + column.whole);
    if (way != Way::by_pixel)
        for (int64_t x = c.count; x < c.count + kWindow; ++x) c.pixel[x] = c.pixel[c.count - 1];
    while (c.movable > 0 && c.pixel[c.movable - 1] == j.src_size.width - 1) --c.movable;

    if constexpr (kPicked<kPixel>) {
        const BytesOfColumns<kPixel> bytes{c.pixel, c.count};
        if (way == Way::by_windows && find_windows(windows, groups, src_row_bytes, bytes)) {
            find_repeats(windows, row_bytes / kVector, [](int64_t, int64_t) { return true; });
            windows.two ? rows_by_windows<kPixel, kKept, true>(j, row_bytes, windows)
                        : rows_by_windows<kPixel, kKept, false>(j, row_bytes, windows);
            return kOk;
        }
        if (way == Way::by_segments) {
            fill_segments(segments, groups, src_row_bytes, bytes);
            if (segments.count == 1)
                each_picked_row<kKept>(j, row_bytes, BySegments<kPixel, kKept, 1>{c.count, segments});
            else if (segments.count == 2)
                each_picked_row<kKept>(j, row_bytes, BySegments<kPixel, kKept, 2>{c.count, segments});
            else
                each_picked_row<kKept>(j, row_bytes, BySegments<kPixel, kKept, 0>{c.count, segments});
            return kOk;
        }
    }
    each_row<kKept>(j, row_bytes, ByPixel<kPixel, kKept>{c});
    return kOk;
}

}  // namespace

TARN_BODIES(resize_nearest, Resize, u8_s16_f32, c1_c3_c4_c3x,
            resize<nearest<channels(kForm) * sizeof(T), kept(kForm)>, T, kForm>)

}  // namespace tarn::k::TARN_LEVEL
