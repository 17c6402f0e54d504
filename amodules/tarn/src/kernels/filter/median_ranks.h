// For kernel sources only: the median of 16-bit elements under masks of any size. A tile's elements are sorted once,
// and stand for their ranks from there on, each of which occurs once (Weiss 2006). The ranks fall into at most 256 bins
// of as many each, and counts of the bins tell in which of them a window's median lies, and which of the bin's elements
// in the window it is. For each rank there is the column of its element, while that is in a row under the mask: the
// window's elements of a bin are found by comparing the columns, a vector of ranks at a time.
#pragma once

#include "kernels/filter/median_counts.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// The order of a tile's elements, by counts of their lower and then of their upper bytes. An Entry holds an
// element's number and a byte.
template <class Entry>
struct Sorting {
    Entry* order;     // in the order of the lower bytes: which element, and below it the upper byte
    uint32_t* ranks;  // of each element, row by row
    int16_t* sorted;
    template <class Part>
    void carve(Part part, int64_t n) {
        part(order, n), part(ranks, n), part(sorted, n);
    }

    // size: the tile's; step: bytes from one element to the next.
    void sort(const uint8_t* src, int64_t src_stride, int64_t step, Size size) {
        uint32_t of_lower[256] = {}, of_upper[256] = {};
        const auto each = [&](auto f) __attribute__((always_inline)) {
            uint32_t i = 0;
            for (int64_t y = 0; y < size.height; ++y)
                for (int64_t x = 0; x < size.width; ++x) {
                    uint16_t v;
                    memcpy(&v, src + y * src_stride + x * step, sizeof v);
                    f(i++, v & 255, v >> 8 ^ 128);
                }
        };
        each([&](uint32_t, int low, int high) { ++of_lower[low], ++of_upper[high]; });
        uint32_t lower_before = 0, upper_before = 0;
        for (int i = 0; i < 256; ++i) {
            lower_before += of_lower[i], of_lower[i] = lower_before - of_lower[i];
            upper_before += of_upper[i], of_upper[i] = upper_before - of_upper[i];
        }
        each([&](uint32_t i, int low, int high) { order[of_lower[low]++] = Entry(i) << 8 | Entry(high); });
        uint32_t place = 0;
        for (int low = 0; low < 256; ++low)
            for (; place < of_lower[low]; ++place) {
                const Entry entry = order[place];
                const int high = int(entry & 255);
                const uint32_t rank = of_upper[high]++;
                ranks[entry >> 8] = rank;
                sorted[rank] = int16_t((high ^ 128) << 8 | low);
            }
    }
};

// The place of the n-th bit that is set, n from 0, without a branch (Vigna 2008): sums over the bytes tell the byte, a
// table the bit.
struct PlacesInByte {
    uint8_t of[8][256];
    constexpr PlacesInByte() : of{} {
        for (int byte = 0; byte < 256; ++byte)
            for (int place = 0, n = 0; place < 8; ++place)
                if (byte >> place & 1) of[n++][byte] = uint8_t(place);
    }
};
inline int64_t nth_bit(uint64_t bits, uint64_t n) {
    static constexpr PlacesInByte kPlaces{};
    constexpr uint64_t kOnes = 0x0101010101010101;
    uint64_t sums = bits - (bits >> 1 & kOnes * 0x55);
    sums = (sums & kOnes * 0x33) + (sums >> 2 & kOnes * 0x33);
    sums = ((sums + (sums >> 4)) & kOnes * 0x0f) * kOnes;
    const uint64_t passed = ((n * kOnes | kOnes * 0x80) - sums) & kOnes * 0x80;  // a bit of each byte
    const int place = int((passed >> 7) * kOnes >> 56) * 8;
    return place + kPlaces.of[n - (sums << 8 >> place & 255)][bits >> place & 255];
}

template <class T>
struct SignedOf;
template <>
struct SignedOf<uint8_t> {
    using Type = int8_t;
};
template <>
struct SignedOf<uint16_t> {
    using Type = int16_t;
};
template <>
struct SignedOf<uint32_t> {
    using Type = int32_t;
};

// Columns of elements by their ranks, none where the element is not in a row under the mask.
template <class Column>
struct Columns {
    using Signed = typename SignedOf<Column>::Type;
    Column* of;
    static constexpr Column kNone = Column(-1);
    static constexpr Signed kLeast = Signed(Column(1) << (8 * sizeof(Column) - 1));  // from which numbers are compared
    static constexpr int64_t kBlock = 128;                                           // ranks looked through at a time

    // The rank of element `rest` among those from rank `from` on whose columns are x to x + width - 1. In which half of
    // a block it lies can't be foreseen, and is told without a branch.
    int64_t find(int64_t from, int64_t rest, int64_t x, int64_t width) const {
        const auto first = splat(Column(x + kLeast));
        const auto end = splat(Signed(width + kLeast));
        for (;; from += kBlock) {
            const uint64_t lower = bits_inside(of + from, first, end);
            const uint64_t upper = bits_inside(of + from + kBlock / 2, first, end);
            const int64_t n = count_bits(lower), both = n + count_bits(upper);
            if (rest >= both) {
                rest -= both;
                continue;
            }
            const bool above = rest >= n;
            return from + (above ? kBlock / 2 : 0) + nth_bit(above ? upper : lower, uint64_t(above ? rest - n : rest));
        }
    }

private:
    // A bit for each of 64 columns.
    template <class U, class V>
    static uint64_t bits_inside(const Column* p, U first, V end) {
        uint64_t bits = 0;
        for (int i = 0; i < 64; i += int(kVector)) {
            const auto inside = [=](int j) { return (V)((V)(load<U>(p + i + j * kLanes<Column>) - first) < end); };
            Bytes narrowed;
            if constexpr (sizeof(Column) == 1)
                narrowed = (Bytes)inside(0);
            else if constexpr (sizeof(Column) == 2)
                narrowed = in_order_once((Bytes)narrow_groups(inside(0), inside(1)));
            else
                narrowed = in_order_twice(
                    (Bytes)narrow_groups(narrow_groups(inside(0), inside(1)), narrow_groups(inside(2), inside(3))));
            bits |= negative_bits((S8)narrowed) << i;
        }
        return bits;
    }
};

// A tile is no wider than its columns have numbers, and holds so many elements that what is needed of them stays in the
// second-level cache; but it has no fewer columns and rows of windows than the mask, or most of the work would be for
// what lies around them.
template <class Column>
Size tile_size(Size size, Size mask) {
    constexpr int64_t kWidest = sizeof(Column) == 1 ? 255 : 512;
    const int64_t elements = sizeof(Column) > 1 ? 262144 : mask.height > 64 ? 65536 : 32768;
    const int64_t width = min<int64_t>(size.width, max<int64_t>(kWidest - (mask.width - 1), mask.width));
    const int64_t rows = elements / (width + mask.width - 1) - (mask.height - 1);
    return {int32_t(width), int32_t(min<int64_t>(size.height, max<int64_t>(rows, mask.height)))};
}

template <class Column, class Counts>
class RankedTile {
public:
    RankedTile(Size windows, Size mask)
        : counts_(windows.width, mask.width),
          mask_(mask),
          columns_(int64_t(windows.width) + mask.width - 1),
          elements_(columns_ * (int64_t(windows.height) + mask.height - 1)) {
        while (elements_ > int64_t(256) << bits_) ++bits_;
    }
    int64_t elements() const { return elements_; }
    template <class Part>
    void carve(Part part) {
        counts_.carve(part), sorting_.carve(part, elements_);
        part(column_.of, int64_t(256) << bits_), part(in_, columns_), part(out_, columns_), part(found_, columns_);
    }

    // size: of the tile, in windows; src: the first window's corner; step: bytes from one element to the next.
    void run(const uint8_t* src, int64_t src_stride, uint8_t* dst, int64_t dst_stride, int64_t step, Size size,
             int64_t rank) {
        const Windows windows{size.width, mask_.width};
        const int64_t n = windows.columns();
        sorting_.sort(src, src_stride, step, {int32_t(n), size.height + mask_.height - 1});
        memset(column_.of, 0xff, (size_t(256) << bits_) * sizeof(Column));
        counts_.clear();
        for (int64_t j = 0; j < mask_.height; ++j) {
            enter(j, n);
            counts_.gain(in_, n, 1);
        }
        for (int64_t y = 0;; ++y, dst += dst_stride) {
            search(windows, rank, dst, step);
            if (y + 1 == size.height) break;
            enter(y + mask_.height, n);
            leave(y, n);
            counts_.exchange(in_, out_, n, 1);
        }
    }

private:
    struct Found {
        int64_t from,
            rest;  // a bin's first rank, and how many of the window's elements in the bin lie below the wanted one
    };

    void bins_of(const uint32_t* ranks, int64_t n, uint8_t* TARN_RESTRICT bins) const {
        const int bits = bits_;
        for (int64_t x = 0; x < n; ++x) bins[x] = uint8_t(ranks[x] >> bits);
    }
    void enter(int64_t y, int64_t n) {
        const uint32_t* const ranks = sorting_.ranks + y * n;
        bins_of(ranks, n, in_);
        Column* const of = column_.of;
        for (int64_t x = 0; x < n; ++x) of[ranks[x]] = Column(x);
    }
    void leave(int64_t y, int64_t n) {
        const uint32_t* const ranks = sorting_.ranks + y * n;
        bins_of(ranks, n, out_);
        Column* const of = column_.of;
        for (int64_t x = 0; x < n; ++x) of[ranks[x]] = Columns<Column>::kNone;
    }
    // First all bins, then the ranks in them: what a guess gone wrong throws away is little.
    void search(Windows windows, int64_t rank, uint8_t* d, int64_t step) {
        Found* const found = found_;
        const int bits = bits_;
        counts_.search(
            windows, typename Counts::Count(rank),
            [=](int64_t x, int64_t bin, auto rest, const auto& counted) __attribute__((always_inline)) {
                typename Counts::Count below[16];
                store(below, counted);
                found[x] = {bin << bits, int64_t(rest - below[bin & 15])};
            });
        const Columns<Column> column = column_;
        const int16_t* const sorted = sorting_.sorted;
        for (int64_t x = 0; x < windows.count; ++x, d += step)
            memcpy(d, sorted + column.find(found[x].from, found[x].rest, x, windows.width), sizeof *sorted);
    }

    MedianCounts<Counts> counts_;
    Sorting<typename Counts::Entry> sorting_;
    Columns<Column> column_;
    uint8_t *in_, *out_;  // bins of rows that enter and leave the mask
    Found* found_;
    Size mask_;
    int64_t columns_, elements_;
    int bits_ = 7;  // of a rank within its bin: a block at least
};

// src: the first window's corner. Channels are worked on one after the other.
template <class Column, class Counts>
Status median_ranked(const uint8_t* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size, Size mask,
                     int64_t pixel_bytes, int64_t channels, int64_t rank, const Allocator& allocator) {
    const Size most = tile_size<Column>(size, mask);
    RankedTile<Column, Counts> tile(most, mask);
    if (tile.elements() > int64_t(0xffffffff)) return kNoMemory;  // ranks have 32 bits
    Scratch scratch(allocator);
    if (!scratch.carve([&](auto part) { tile.carve(part); })) return kNoMemory;
    for (int64_t top = 0; top < size.height; top += most.height)
        for (int64_t left = 0; left < size.width; left += most.width) {
            const Size part{int32_t(min<int64_t>(most.width, size.width - left)),
                            int32_t(min<int64_t>(most.height, size.height - top))};
            for (int64_t c = 0; c < channels; ++c) {
                const int64_t at = left * pixel_bytes + c * int64_t(sizeof(int16_t));
                tile.run(src + top * src_stride + at, src_stride, row<uint8_t>(dst, dst_stride, top) + at, dst_stride,
                         pixel_bytes, part, rank);
            }
        }
    return kOk;
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
