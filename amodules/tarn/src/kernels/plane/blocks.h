// For kernel sources only: planes whose elements change their type or value one by one, in blocks of kVector elements:
// a vector of the narrowest type, up to four of the others. Large outputs go around the cache by way of a strip of
// elements.
#pragma once

#include "kernels/plane/pattern.h"
#include "kernels/plane/plane.h"
#include "kernels/simd/round.h"
#include "kernels/simd/stream.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Elements of a strip: whole pixels of any form, whole cache lines, and little enough for the first-level cache.
constexpr int64_t kStrip = 1536;

// What is stored of a block.
template <bool kKept, class D>
[[gnu::always_inline]] inline Block<D> formed(const D* d, Block<D> block) {
    for (int v = 0; v < int(sizeof(D)); ++v)
        block.v[v] = formed<kKept>(Whole{}, d + v * kLanes<D>, block.v[v], colour_mask<D>());
    return block;
}
template <class D>
[[gnu::always_inline]] inline void store_block(D* d, const Block<D>& block) {
    for (int v = 0; v < int(sizeof(D)); ++v) store(d + v * kLanes<D>, block.v[v]);
}

// f, block by block, over rows of n elements, whole pixels and not less than a block. f(s, phase) makes the block of
// the kVector elements at s; a map that is not the same for every block has a period of three. A row's last block
// overlaps the one before it, and is made first: the destination may be the source. By itself, and with all of it
// inlined: within its several callers compilers leave a call per block, and the constants in memory.
template <bool kKept, class S, class D, class F>
[[gnu::noinline]] void map_rows(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, int64_t rows,
                                int64_t n, const F& map) {
    const F f = map;  // in registers
    const int64_t last = n - kVector, whole = n / kVector * kVector;
    for (int64_t y = 0; y < rows; ++y) {
        const S* s = row<S>(src, src_stride, y);
        D* d = row<D>(dst, dst_stride, y);
        const auto block = [&](int64_t i, auto phase) __attribute__((always_inline)) {
            store_block(d + i, formed<kKept>(d + i, f(s + i, phase)));
        };
        Block<D> end;
        if (last != whole - kVector) end = formed<kKept>(d + last, f(s + last, LastPhase{}));
        int64_t i = 0;
        if constexpr (F::kPeriod == 3) {
            for (; i + 3 * kVector <= n; i += 3 * kVector)
                block(i, Phase<0>{}), block(i + kVector, Phase<1>{}), block(i + 2 * kVector, Phase<2>{});
            if (i < whole) block(i, Phase<0>{});
            if (i + kVector < whole) block(i + kVector, Phase<1>{});
        } else {
            for (; i < whole; i += kVector) block(i, Phase<0>{});
        }
        if (last != whole - kVector) store_block(d + last, end);
    }
}

// One row, by way of buffers where it is less than a block.
template <bool kKept, class S, class D, class F>
inline void map_row(const S* s, D* d, int64_t n, const F& f) {
    if (n >= kVector) return map_rows<kKept, S, D>(s, 0, d, 0, 1, n, f);
    S from[kVector] = {};
    D to[kVector];
    memcpy(from, s, size_t(n) * sizeof(S));
    if constexpr (kKept) memcpy(to, d, size_t(n) * sizeof(D));
    map_rows<kKept, S, D>(from, 0, to, 0, 1, kVector, f);
    memcpy(d, to, size_t(n) * sizeof(D));
}

// Rows of less than a block, n elements each: many of them brought together.
template <bool kKept, class S, class D, class F>
[[gnu::noinline]] void map_narrow(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, int64_t rows,
                                  int64_t n, const F& f) {
    S from[kStrip];
    D to[kStrip];
    const auto place = [&](int64_t y) { return row<uint8_t>(dst, dst_stride, y); };
    const auto made = [&](int64_t i) { return reinterpret_cast<uint8_t*>(to + i * n); };
    for (int64_t y = 0, count; y < rows; y += count) {
        count = min(kStrip / n, rows - y);
        for (int64_t i = 0; i < count; ++i) {
            copy_short(reinterpret_cast<uint8_t*>(from + i * n), row<uint8_t>(src, src_stride, y + i), n * sizeof(S));
            if constexpr (kKept) copy_short(made(i), place(y + i), n * sizeof(D));
        }
        map_row<kKept>(from, to, count * n, f);
        for (int64_t i = 0; i < count; ++i) copy_short(place(y + i), made(i), n * sizeof(D));
    }
}

// Elements of a row's first strip, so that the others begin with a cache line: whole pixels, where there are such.
inline int64_t first_strip(const void* d, int64_t element_bytes, int64_t channels) {
    int64_t n = kStrip - (reinterpret_cast<intptr_t>(d) & 63) / element_bytes;
    for (int line = 0; line < 2 && n % channels; ++line) n -= 64 / element_bytes;
    return n % channels ? kStrip : n;
}

// Whether a mapped plane goes around the cache. Elements that become smaller never: reading the destination's lines
// first costs less than the strip (4096 x 4096 floats to 16 bits 1.03 times as fast without it, 2560 x 1440 1.15).
template <bool kKept, class S, class D>
inline bool streams_blocks(const void* src, const void* dst, Size size, int64_t channels) {
    return !kKept && sizeof(D) >= sizeof(S) && src != dst &&
           streams(size.height * (size.width * channels) * int64_t(sizeof(S) + sizeof(D)));
}

// dst := f of src, by map_row. kKept: the fourth channel of the destination stays. strip: room for kStrip elements
// where the plane goes around the cache, else null.
template <bool kKept, class S, class D, class F>
void map_blocks(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size, int64_t channels,
                D* strip, const F& f) {
    const Rows rows = rows_of(size, Pitch{src_stride, channels * int64_t(sizeof(S))},
                              Pitch{dst_stride, channels * int64_t(sizeof(D))});
    const int64_t n = rows.pixels * channels;
    if (n < kVector && rows.count > 1)
        return map_narrow<kKept, S, D>(src, src_stride, dst, dst_stride, rows.count, n, f);
    if (!strip) {
        if (n >= kVector) return map_rows<kKept, S, D>(src, src_stride, dst, dst_stride, rows.count, n, f);
        return map_row<kKept>(static_cast<const S*>(src), static_cast<D*>(dst), n, f);
    }
    for (int64_t y = 0; y < rows.count; ++y) {
        const S* s = row<S>(src, src_stride, y);
        D* d = row<D>(dst, dst_stride, y);
        for (int64_t i = 0, count; i < n; i += count) {
            count = min(n - i, i ? kStrip : first_strip(d, sizeof(D), channels));
            map_row<kKept>(s + i, strip, count, f);
            stream_row(d + i, strip, count * int64_t(sizeof(D)));
        }
    }
    stream_fence();
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
