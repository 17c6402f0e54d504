// For kernel sources only: medians by networks, column of vectors by column, in bands of rows. Small squares have
// networks of their own (median_network.h). For other masks of few elements one is made in each call: merge exchange
// (Batcher 1968; Knuth 1998, 5.2.2 M) sorts any number of elements, and only those of its exchanges are kept that the
// median depends on.
#pragma once

#include "kernels/filter/median_network.h"
#include "kernels/plane/plane.h"
#include "kernels/plane/store.h"

namespace tarn::k::TARN_LEVEL {
namespace {

constexpr int64_t kMostSmall = 42;  // elements under a mask

class SmallNetwork {
public:
    // The median of `count` elements, 1 to kMostSmall.
    explicit SmallNetwork(int count) : median_((count - 1) / 2) {
        struct All {
            Exchange e[kMost];
        } all;
        int n = 0, top = 1;
        while (top < count) top *= 2;
        for (int p = top / 2; p > 0; p /= 2) {
            for (int q = top / 2, r = 0, d = p;; d = q - p, q /= 2, r = p) {
                for (int i = 0; i < count - d; ++i)
                    if ((i & p) == r) all.e[n++] = {uint16_t(i), uint16_t(i + d)};
                if (q == p) break;
            }
        }
        uint64_t wanted = uint64_t(1) << median_;
        first_ = kMost;
        while (n-- > 0) {
            const Exchange e = all.e[n];
            const uint64_t both = uint64_t(1) << e.lower | uint64_t(1) << e.upper;
            if (!(wanted & both)) continue;
            wanted |= both;
            exchanges_[--first_] = {uint16_t(e.lower * kElement), uint16_t(e.upper * kElement)};
        }
    }

    // One vector's columns, downwards: `rows` outputs at d, whose windows begin at s. pitch: bytes from pixel to pixel.
    template <class T>
    void columns(const uint8_t* s, int64_t src_stride, int64_t pitch, uint8_t* d, int64_t dst_stride, int64_t rows,
                 Size mask) const {
        using V = Vec<T>;
        // Two rows go through an exchange together.
        alignas(64) uint8_t elements[kMostSmall * kElement];
        for (int64_t y = 0; y < rows; y += 2, s += 2 * src_stride, d += 2 * dst_stride) {
            const bool two = y + 1 < rows;
            const int64_t below = two ? src_stride : 0;
            uint8_t* to = elements;
            for (int64_t j = 0; j < mask.height; ++j) {
                const uint8_t* from = s + j * src_stride;
                for (int64_t i = 0; i < mask.width; ++i, from += pitch, to += kElement) {
                    store(to, load<V>(from));
                    store(to + kVector, load<V>(from + below));
                }
            }
            for (const Exchange* e = exchanges_ + first_; e < exchanges_ + kMost; ++e) {
                uint8_t *const lower = elements + e->lower, *const upper = elements + e->upper;
                const V a = load<V>(lower), b = load<V>(upper);
                const V c = load<V>(lower + kVector), f = load<V>(upper + kVector);
                store(lower, min(a, b));
                store(upper, max(a, b));
                store(lower + kVector, min(c, f));
                store(upper + kVector, max(c, f));
            }
            const uint8_t* const median = elements + median_ * kElement;
            store(d, load<V>(median));
            if (two) store(d + dst_stride, load<V>(median + kVector));
            __builtin_prefetch(s + (mask.height + 1) * src_stride + kAhead);
            __builtin_prefetch(d + dst_stride + kAhead, 1);
        }
    }

private:
    static constexpr int64_t kElement = 2 * kVector;
    struct Exchange {
        uint16_t lower, upper;  // where the elements stand, in bytes
    };
    static constexpr int kMost = 309;  // of kMostSmall elements
    Exchange exchanges_[kMost];        // from first_ on
    int first_, median_;
};

// Rows of a band: it reads a mask's height less one more, and all of them lie in memory pages of their own.
constexpr int64_t kNetworkRows = 32;

// columns(s, src_stride, d, dst_stride, rows) makes one vector's columns. s: the first window's corner.
template <class T, Form kForm, class Columns>
void median_columns_of(const uint8_t* s, int32_t src_stride, void* dst, int32_t dst_stride, Size size, Size mask,
                       const Columns& columns) {
    // A mask of one row needs the most room.
    alignas(64) uint8_t narrow[kNetworkRows * (kVector + kMostSmall * kPixelBytes<T, kForm>)];
    alignas(64) uint8_t results[kNetworkRows * kVector];
    const int64_t before = (mask.width - 1) * kPixelBytes<T, kForm>;
    for (int64_t top = 0; top < size.height; top += kNetworkRows, s += kNetworkRows * src_stride) {
        const int64_t rows = min(kNetworkRows, size.height - top);
        each_overlapped(size.width * kPixelBytes<T, kForm>, [&](auto io, int64_t i) {
            uint8_t* const d = row<uint8_t>(dst, dst_stride, top) + i;
            if constexpr (!__is_same(decltype(io), Whole)) {
                for (int64_t y = 0; y < rows + mask.height - 1; ++y)
                    memcpy(narrow + y * (kVector + before), s + y * src_stride, size_t(io.n + before));
                columns(narrow, kVector + before, results, kVector, rows);
            } else if constexpr (kept(kForm)) {
                columns(s + i, src_stride, results, kVector, rows);
            } else {
                return columns(s + i, src_stride, d, dst_stride, rows);
            }
            for (int64_t y = 0; y < rows; ++y)
                store_form<kept(kForm)>(io, d + y * dst_stride, load<Bytes>(results + y * kVector), colour_mask<T>());
        });
    }
}

// Whether the mask is small, and the median made.
template <class T, Form kForm>
bool median_small(const uint8_t* s, int32_t src_stride, void* dst, int32_t dst_stride, Size size, Size mask) {
    constexpr int64_t kPitch = kPixelBytes<T, kForm>;
    const auto square = [=]() -> void (*)(const uint8_t*, int64_t, int64_t, uint8_t*, int64_t, int64_t) {
        if (mask.width == mask.height) {
            switch (mask.width) {
                case 3:
                    return median_columns<3, T>;
                case 5:
                    return median_columns<5, T>;
                case 7:
                    return median_columns<7, T>;
                case 9:
                    return median_columns<9, T>;
                case 11:
                    return median_columns<11, T>;
                case 13:
                    // By counts bytes take no longer.
                    if constexpr (sizeof(T) > 1) return median_columns<13, T>;
            }
        }
        return nullptr;
    }();
    if (square) {
        median_columns_of<T, kForm>(s, src_stride, dst, dst_stride, size, mask,
                                    [=](const uint8_t* from, int64_t from_stride, uint8_t* d, int64_t d_stride,
                                        int64_t rows) { square(from, from_stride, kPitch, d, d_stride, rows); });
        return true;
    }
    // By counts bytes soon take no longer.
    constexpr int64_t kMostArea = sizeof(T) == 1 ? 30 : kMostSmall;
    if (int64_t(mask.width) * mask.height > kMostArea) return false;
    const SmallNetwork network(mask.width * mask.height);
    median_columns_of<T, kForm>(
        s, src_stride, dst, dst_stride, size, mask,
        [&](const uint8_t* from, int64_t from_stride, uint8_t* d, int64_t d_stride, int64_t rows) {
            network.columns<T>(from, from_stride, kPitch, d, d_stride, rows, mask);
        });
    return true;
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
