// The median under a rectangular mask.
#include "kernels/filter/filter.h"
#include "kernels/filter/median_counts.h"
#include "kernels/filter/median_network.h"
#include "kernels/plane/plane.h"
#include "kernels/plane/scratch.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// What a mask selects: the element of this rank, counted from 0, of so many.
struct Selection {
    int64_t area, rank;
    explicit Selection(Size mask) : area(int64_t(mask.width) * mask.height), rank((area - 1) / 2) {}
};

// Counts of the window's values, in blocks of 256.
template <class T>
struct Counts {
    static constexpr int kBlocks = sizeof(T) == 1 ? 1 : 256;
    uint32_t block[kBlocks], value[kBlocks * 256];

    static int place(T v) { return sizeof(T) == 1 ? v : v + 32768; }
    void add(T v, uint32_t n) {
        block[place(v) >> 8] += n;
        value[place(v)] += n;
    }
    T find(uint32_t rank) const {
        int p = 0;
        while (block[p >> 8] <= rank) rank -= block[p >> 8], p += 256;
        while (value[p] <= rank) rank -= value[p++];
        return T(sizeof(T) == 1 ? p : p - 32768);
    }
};

template <class T, Form kForm>
Status median(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size, Size mask, Offset anchor,
              const Allocator& allocator) {
    if (Status s = check(size, src, dst)) return s;
    if (mask.width <= 0 || mask.height <= 0 || anchor.x < 0 || anchor.x >= mask.width || anchor.y < 0 ||
        anchor.y >= mask.height)
        return kBadArg;
    constexpr int64_t kPitch = kPixelBytes<T, kForm>;
    const uint8_t* corner = row<uint8_t>(src, src_stride, -anchor.y) - anchor.x * kPitch;
    if (mask.width == mask.height && (mask.width == 3 || mask.width == 5 || mask.width == 7)) {
        if (mask.width == 3) median_network<3, T, kForm>(corner, src_stride, dst, dst_stride, size);
        if (mask.width == 5) median_network<5, T, kForm>(corner, src_stride, dst, dst_stride, size);
        if (mask.width == 7) median_network<7, T, kForm>(corner, src_stride, dst, dst_stride, size);
        return kOk;
    }
    if constexpr (sizeof(T) == 1) {
        const int64_t area = int64_t(mask.width) * mask.height;
        const auto counted = area <= SmallCounts::kMostArea && mask.height <= SmallCounts::kMostHigh
                                 ? median_counted<SmallCounts>
                                 : median_counted<LargeCounts>;
        return counted(corner, src_stride, dst, dst_stride, size, mask, kPitch, used(kForm), (area - 1) / 2, allocator);
    }
    constexpr int kChannels = channels(kForm);
    const Selection wanted(mask);
    Scratch scratch(allocator);
    Counts<T>* counts = nullptr;
    if (!scratch.carve([&](auto part) { part(counts, 1); })) return kNoMemory;
    memset(counts, 0, sizeof *counts);
    for (int64_t y = 0; y < size.height; ++y)
        for (int c = 0; c < used(kForm); ++c) {
            const auto column = [&](int64_t x, uint32_t n) {
                for (int64_t j = 0; j < mask.height; ++j)
                    counts->add(row<Loose<T>>(src, src_stride, y - anchor.y + j)[(x - anchor.x) * kChannels + c], n);
            };
            for (int64_t i = 0; i < mask.width; ++i) column(i, 1);
            for (int64_t x = 0;; ++x) {
                row<Loose<T>>(dst, dst_stride, y)[x * kChannels + c] = counts->find(uint32_t(wanted.rank));
                column(x, uint32_t(-1));
                if (x + 1 == size.width) break;
                column(x + mask.width, 1);
            }
            for (int64_t i = 1; i < mask.width; ++i) column(size.width - 1 + i, uint32_t(-1));
        }
    return kOk;
}

}  // namespace

TARN_BODIES(median, Filter, u8_s16, c1_c3_c4_c3x, median<T, kForm>)

}  // namespace tarn::k::TARN_LEVEL
