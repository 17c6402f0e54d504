// For kernel sources only: the median of bytes under masks of any size, at one cost for all of them (Perreault & Hebert
// 2007). Each column of the mask's height has counts of 256 bins, in two steps of sixteen: how many elements lie below
// each group of sixteen bins, and below each bin within its group. Going down a row, a column gains an element and
// loses one; going along the row, the window's counts gain a column and lose one: the groups' at every pixel, a group's
// bins only while the wanted element lies in that group, and from where they were left when it comes back.
#pragma once

#include "kernels/plane/plane.h"
#include "kernels/plane/scratch.h"
#include "kernels/simd/simd.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Sixteen counts of a column in bytes and of the window in 16 bits, for areas of up to 65535 and heights of up to 255.
struct SmallCounts {
    using Column = uint8_t;
    using Count = uint16_t;
    using Window = U16x16;
    using Entry = uint32_t;  // for tiles of less than 2^24 elements
    static constexpr int64_t kMostHigh = 255, kMostArea = 65535;
};

// The same for masks of any size that memory holds.
struct U64x16 {
    uint64_t v[16];
};
inline U64x16 widening_add(U64x16 c, const uint32_t* p) {
    for (int i = 0; i < 16; ++i) c.v[i] += p[i];
    return c;
}
inline U64x16 widening_exchange(U64x16 c, const uint32_t* in, const uint32_t* out) {
    for (int i = 0; i < 16; ++i) c.v[i] += in[i] - uint64_t(out[i]);
    return c;
}
inline int64_t count_up_to(const U64x16& c, uint64_t limit) {
    int64_t n = 0;
    for (int i = 0; i < 16; ++i) n += c.v[i] <= limit;
    return n;
}
struct LargeCounts {
    using Column = uint32_t;
    using Count = uint64_t;
    using Window = U64x16;
    using Entry = uint64_t;
};

// Columns of a strip, those around it included: their counts stay in the second-level cache. Wide masks take wider
// strips, or most of the work would be that of columns around.
constexpr int64_t kCountedColumns = 1024;

// How windows lie in a row: so many, each so many columns wide.
struct Windows {
    int64_t count, width;
    int64_t columns() const { return count + width - 1; }
};

template <class Counts>
class MedianCounts {
public:
    using Column = typename Counts::Column;
    using Count = typename Counts::Count;
    using Window = typename Counts::Window;

    MedianCounts(int64_t width, int64_t mask_width) {
        const int64_t most = max(kCountedColumns - mask_width, mask_width), strips = (width + most - 1) / most;
        windows_ = (width + strips - 1) / strips;
        // Of an odd number of cache lines, so that the groups do not meet in the same cache sets.
        pitch_ = ((windows_ + mask_width - 1 + 3) / 4 | 1) * 4 * 16;
    }
    // So many windows at a time.
    int64_t windows() const { return windows_; }
    template <class Part>
    void carve(Part part) {
        part(groups_, pitch_), part(bins_, 16 * pitch_), part(rest_, pitch_ / 16), part(group_, pitch_ / 16);
    }

    void clear() {
        memset(groups_, 0, size_t(pitch_) * sizeof *groups_);
        memset(bins_, 0, size_t(16 * pitch_) * sizeof *bins_);
    }
    // The first n columns gain the elements of a row, `step` apart.
    void gain(const uint8_t* in, int64_t n, int64_t step) {
        const int64_t pitch = pitch_;
        Column *TARN_RESTRICT g = groups_, *TARN_RESTRICT b = bins_;
        for (; n > 0; --n, in += step, g += 16, b += 16) {
            add<+1>(g, *in >> 4);
            add<+1>(b + (*in >> 4) * pitch, *in & 15);
        }
    }
    // The same, and they lose those of another row.
    void exchange(const uint8_t* in, const uint8_t* out, int64_t n, int64_t step) {
        const int64_t pitch = pitch_;
        Column *TARN_RESTRICT g = groups_, *TARN_RESTRICT b = bins_;
        for (; n > 0; --n, in += step, out += step, g += 16, b += 16) {
            const int64_t v = *in, w = *out;
            each_group([&](int i) __attribute__((always_inline)) {
                store(g + i, load<Group>(g + i) + load<Group>(kSteps.above(v >> 4) + i) -
                                 load<Group>(kSteps.above(w >> 4) + i));
            });
            add<+1>(b + (v >> 4) * pitch, v & 15);
            add<-1>(b + (w >> 4) * pitch, w & 15);
        }
    }

    // found(x, bin, rest) for each window in order: the bin where the element of this rank lies, and the element's rank
    // within the bin.
    template <class Found>
    void search(Windows windows, Count rank, Found found) {
        search_groups(windows, rank);
        search_bins(windows, found);
    }

private:
    // Ones above element i, 0 <= i < 16, else zeros.
    struct Steps {
        alignas(64) Column v[32];
        constexpr Steps() : v{} {
            for (int i = 16; i < 32; ++i) v[i] = 1;
        }
        const Column* above(int64_t i) const { return v + 15 - i; }
    };
    static constexpr Steps kSteps{};
    typedef Column Group __attribute__((vector_size(16)));
    // f(i) for the first element of each 16 bytes of sixteen.
    template <class F>
    [[gnu::always_inline]] static void each_group(F f) {
#pragma GCC unroll 4
        for (int i = 0; i < 16; i += 16 / int(sizeof(Column))) f(i);
    }
    template <int kSign>
    [[gnu::always_inline]] static void add(Column* to, int64_t above) {
        const Column* const steps = kSteps.above(above);
        each_group([=](int i) __attribute__((always_inline)) {
            const Group v = load<Group>(to + i), step = load<Group>(steps + i);
            store(to + i, kSign > 0 ? v + step : v - step);
        });
    }

    void search_groups(Windows windows, Count rank) {
        const Column* g = groups_;
        Count* const rest = rest_;
        uint8_t* const group = group_;
        Window window{};
        for (int64_t i = 0; i < windows.width; ++i) window = widening_add(window, g + i * 16);
        for (int64_t x = 0;; ++x, g += 16) {
            const int64_t i = count_up_to(window, rank) - 1;
            Count below[16];
            store(below, window);
            group[x] = uint8_t(i);
            rest[x] = Count(rank - below[i]);
            if (x + 1 == windows.count) break;
            window = widening_exchange(window, g + windows.width * 16, g);
        }
    }
    template <class Found>
    void search_bins(Windows windows, Found found) {
        const int64_t width = windows.width, n = windows.count;
        const Count* const rest = rest_;
        const uint8_t* const group = group_;
        Window counted[16];
        int64_t at[16];  // the window that a group's bins were last counted of
        for (int64_t& x : at) x = -width;
        for (int64_t x = 0; x < n; ++x) {
            const int64_t g = group[x];
            const Column* b = bins_ + g * pitch_;
            Window window{};
            if (2 * (x - at[g]) < width) {
                window = counted[g];
                for (int64_t i = at[g]; i < x; ++i)
                    window = widening_exchange(window, b + (i + width) * 16, b + i * 16);
            } else {
                for (int64_t i = x; i < x + width; ++i) window = widening_add(window, b + i * 16);
            }
            for (;; ++x) {
                const int64_t bin = count_up_to(window, rest[x]) - 1;
                found(x, g * 16 + bin, rest[x], window);
                if (x + 1 == n || group[x + 1] != g) break;
                window = widening_exchange(window, b + (x + width) * 16, b + x * 16);
            }
            counted[g] = window;
            at[g] = x;
        }
    }

    Column *groups_, *bins_;  // sixteen for each column; and for each group, a pitch apart
    Count* rest_;             // the wanted element's rank within its group, for each window
    uint8_t* group_;          // that group
    int64_t windows_, pitch_;
};

// src: the first window's corner. Channels are worked on one after the other.
template <class Counts>
Status median_counted(const uint8_t* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size, Size mask,
                      int64_t step, int64_t channels, int64_t rank, const Allocator& allocator) {
    MedianCounts<Counts> counts(size.width, mask.width);
    Scratch scratch(allocator);
    if (!scratch.carve([&](auto part) { counts.carve(part); })) return kNoMemory;
    for (int64_t left = 0; left < size.width; left += counts.windows())
        for (int64_t c = 0; c < channels; ++c) {
            const uint8_t* s = src + left * step + c;
            const Windows windows{min(counts.windows(), size.width - left), mask.width};
            counts.clear();
            for (int64_t j = 0; j < mask.height; ++j) counts.gain(s + j * src_stride, windows.columns(), step);
            for (int64_t y = 0;; ++y, s += src_stride) {
                uint8_t* const d = row<uint8_t>(dst, dst_stride, y) + left * step + c;
                counts.search(windows, typename Counts::Count(rank),
                              [=](int64_t x, int64_t bin, auto, const auto&) { d[x * step] = uint8_t(bin); });
                if (y + 1 == size.height) break;
                counts.exchange(s + int64_t(mask.height) * src_stride, s, windows.columns(), step);
            }
        }
    return kOk;
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
