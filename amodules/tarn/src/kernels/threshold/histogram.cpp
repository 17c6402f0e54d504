// Histograms. Bytes are counted by value, in eight tables in turn: neighbours are often equal, and a count that was just stored
// can't be read at once. Their values are then put into the intervals. Other elements are put into intervals in groups, and
// counted there.
#include "kernels/plane/plane.h"
#include "kernels/simd/simd.h"
#include "kernels/threshold/threshold.h"

namespace tarn::k::TARN_LEVEL {
namespace {

constexpr int kTables = 8;

struct ByteCounts {
    uint32_t in[kTables][256];
};

// Counts every kApart-th byte of n pixels of that many, from each of the first kUsed.
template <int kApart, int kUsed>
inline void count_bytes(const uint8_t* s, int64_t n, ByteCounts& counts) {
    int64_t i = 0;
    if constexpr (kApart == 1) {
        for (; i + 16 <= n; i += 16) {
            uint64_t lower, upper;
            memcpy(&lower, s + i, 8);
            memcpy(&upper, s + i + 8, 8);
#pragma GCC unroll 8
            for (int b = 0; b < 8; ++b) {
                ++counts.in[b][lower >> 8 * b & 255];
                ++counts.in[b ^ 4][upper >> 8 * b & 255];
            }
        }
    }
    for (; i < n; ++i)
        for (int c = 0; c < kUsed; ++c) ++counts.in[c][s[i * kApart + c]];
}

template <class T, Form kForm>
void count_rows(const void* src, int32_t stride, Rows rows, const Bins& bins, uint64_t* counts) {
    // A form without a kept channel is a row of elements.
    constexpr int kApart = kept(kForm) ? channels(kForm) : 1, kUsed = kept(kForm) ? used(kForm) : 1;
    const int64_t n = rows.pixels * channels(kForm) / kApart;
    if constexpr (sizeof(T) == 1) {
        constexpr int64_t kMost = int64_t(1) << 30;  // pixels between two sums, which 32 bits hold
        for (int64_t y = 0, x = 0; y < rows.count;) {
            ByteCounts part;
            for (size_t i = 0; i < sizeof part; i += kVector) store(reinterpret_cast<uint8_t*>(&part) + i, Bytes{});
            for (int64_t room = kMost; room > 0 && y < rows.count;) {
                const int64_t now = min(room, n - x);
                count_bytes<kApart, kUsed>(row<uint8_t>(src, stride, y) + x * kApart, now, part);
                room -= now;
                x += now;
                if (x == n) x = 0, ++y;
            }
            uint32_t all[256] = {};
            for (int t = 0; t < kTables; ++t)
                for (int v = 0; v < 256; ++v) all[v] += part.in[t][v];
            int32_t bin[256];
            for (int v = 0; v < 256; ++v) bin[v] = bin_of(bins, v);
            for (int v = 0; v < 256; ++v)
                if (bin[v] >= 0) counts[bin[v]] += all[v];
        }
    } else {
        constexpr int64_t kGroup = 256;
        int32_t bin[kGroup];
        for (int64_t y = 0; y < rows.count; ++y) {
            const Loose<T>* s = row<Loose<T>>(src, stride, y);
            for (int64_t i = 0; i < n; i += kGroup) {
                const int64_t count = min(kGroup, n - i);
                for (int c = 0; c < kUsed; ++c) {
                    for (int64_t j = 0; j < count; ++j) bin[j] = bin_of(bins, double(s[(i + j) * kApart + c]));
                    for (int64_t j = 0; j < count; ++j)
                        if (bin[j] >= 0) ++counts[bin[j]];
                }
            }
        }
    }
}

template <class T, Form kForm>
Status histogram(const void* src, int32_t stride, Size size, const Bins* bins, uint64_t* counts) {
    if (Status s = check(size, src, bins, counts)) return s;
    const double span = double(bins->upper) - double(bins->lower);
    if (bins->count < 1 || !(span > 0) || span - span != 0) return kBadArg;
    memset(counts, 0, size_t(bins->count) * sizeof *counts);
    count_rows<T, kForm>(src, stride, rows_of(size, Pitch{stride, kPixelBytes<T, kForm>}), *bins, counts);
    return kOk;
}

}  // namespace

TARN_BODIES(histogram, Histogram, u8_s16_f32, c1_c3_c3x, histogram<T, kForm>)

}  // namespace tarn::k::TARN_LEVEL
