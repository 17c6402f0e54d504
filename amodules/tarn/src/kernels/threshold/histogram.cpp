// Histograms. Bytes are counted by value, in eight or sixteen tables in turn: neighbours are often equal, and a count
// that was just stored can't be read at once. That leaves a store for each byte, one a cycle, as the limit. Their
// values are then put into the intervals. Other elements are put into intervals in groups, and counted there.
#include "kernels/plane/plane.h"
#include "kernels/plane/store.h"
#include "kernels/threshold/threshold.h"

namespace tarn::k::TARN_LEVEL {
namespace {

constexpr int64_t kLarge = 1 << 13;  // pixels that are worth sixteen tables

// Rows that are too short to be fetched by themselves are fetched ahead.
constexpr int64_t kShortRow = 512, kRowsAhead = 8, kLine = 64;

template <int kTables>
struct ByteCounts {
    ByteCounts() {
        for (int t = 0; t < kTables; ++t)
            for (int v = 0; v < 256; v += kLanes<uint32_t>) store(in[t] + v, U32{});
    }
    uint32_t in[kTables][256];
};

// Counts every kApart-th byte of n pixels of that many, from each of the first kUsed.
template <int kApart, int kUsed, int kTables>
inline void count_bytes(const uint8_t* s, int64_t n, ByteCounts<kTables>& counts) {
    int64_t i = 0;
    if constexpr (kApart == 1) {
        for (; i + 16 <= n; i += 16) {
            uint64_t lower, upper;
            memcpy(&lower, s + i, 8);
            memcpy(&upper, s + i + 8, 8);
#pragma GCC unroll 8
            for (int b = 0; b < 8; ++b) {
                ++counts.in[b][lower >> 8 * b & 255];
                ++counts.in[kTables - 8 + (b ^ 4)][upper >> 8 * b & 255];
            }
        }
    }
    for (; i < n; ++i)
        for (int c = 0; c < kUsed; ++c) ++counts.in[c][s[i * kApart + c]];
}

// Puts the counts of values into their intervals, which are mostly the values themselves.
template <int kTables>
inline void add_counts(const ByteCounts<kTables>& part, const Bins& bins, uint64_t* counts) {
    uint32_t all[256];
    for (int v = 0; v < 256; v += kLanes<uint32_t>) {
        U32 sum = load<U32>(part.in[0] + v);
        for (int t = 1; t < kTables; ++t) sum += load<U32>(part.in[t] + v);
        store(all + v, sum);
    }
    if (bins.count == 256 && bins.lower == 0 && bins.upper == 255) {
        for (int v = 0; v < 256; ++v) counts[v] += all[v];
    } else {
        for (int v = 0; v < 256; ++v)
            if (const int32_t bin = bin_of(bins, v); bin >= 0) counts[bin] += all[v];
    }
}

template <int kApart, int kUsed, int kTables>
void count_byte_rows(const void* src, int32_t stride, int64_t n, int64_t rows, const Bins& bins, uint64_t* counts) {
    constexpr int64_t kMost = int64_t(1) << 30;  // pixels between two sums, which 32 bits hold
    const int64_t fetched = n * kApart < kShortRow ? rows : 0;
    const auto fetch = [=](int64_t y) {
        const uint8_t* s = row<uint8_t>(src, stride, y);
        for (int64_t i = 0; i < n * kApart; i += kLine) __builtin_prefetch(s + i);
    };
    for (int64_t y = 0; y < min(kRowsAhead, fetched); ++y) fetch(y);
    for (int64_t y = 0, x = 0; y < rows;) {
        ByteCounts<kTables> part;
        for (int64_t room = kMost; room > 0 && y < rows;) {
            if (y + kRowsAhead < fetched) fetch(y + kRowsAhead);
            const int64_t now = min(room, n - x);
            count_bytes<kApart, kUsed>(row<uint8_t>(src, stride, y) + x * kApart, now, part);
            room -= now;
            x += now;
            if (x == n) x = 0, ++y;
        }
        add_counts(part, bins, counts);
    }
}

template <class T, Form kForm>
void count_rows(const void* src, int32_t stride, Rows rows, const Bins& bins, uint64_t* counts) {
    // A form without a kept channel is a row of elements.
    constexpr int kApart = kept(kForm) ? channels(kForm) : 1, kUsed = kept(kForm) ? used(kForm) : 1;
    const int64_t n = rows.pixels * channels(kForm) / kApart;
    if constexpr (sizeof(T) == 1) {
        if (n * rows.count < kLarge || kApart > 1)
            count_byte_rows<kApart, kUsed, 8>(src, stride, n, rows.count, bins, counts);
        else
            count_byte_rows<kApart, kUsed, 16>(src, stride, n, rows.count, bins, counts);
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
    each_vector(bins->count * int64_t(sizeof *counts),
                [=](auto io, int64_t i) { io.store(reinterpret_cast<uint8_t*>(counts) + i, Bytes{}); });
    count_rows<T, kForm>(src, stride, rows_of(size, Pitch{stride, kPixelBytes<T, kForm>}), *bins, counts);
    return kOk;
}

}  // namespace

TARN_BODIES(histogram, Histogram, u8_s16_f32, c1_c3_c3x, histogram<T, kForm>)

}  // namespace tarn::k::TARN_LEVEL
