// For kernel sources only: planes whose elements change their type or value one by one, in blocks of kVector elements: a
// vector of the narrowest type, up to four of the others. Large outputs go around the cache by way of a strip of elements.
#pragma once

#include "kernels/plane/pattern.h"
#include "kernels/plane/plane.h"
#include "kernels/simd/round.h"
#include "kernels/simd/stream.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Elements of a strip: whole pixels of any form, whole cache lines, and little enough for the first-level cache.
constexpr int64_t kStrip = 1536;

// The vectors of a block from `first` on.
template <bool kKept, class D>
[[gnu::always_inline]] inline void store_block(D* d, const Block<D>& block, int64_t first = 0) {
    for (int v = 0; v < int(sizeof(D)); ++v)
        if (v >= first) store_form<kKept>(Whole{}, d + v * kLanes<D>, block.v[v], colour_mask<D>());
}

// Whole blocks of n elements, a multiple of kVector, from s to d. f(s, phase) makes the block of the kVector elements at s; a
// map that is not the same for every block has a period of three. By itself, and with all of it inlined: within its several
// callers compilers leave a call per block, and the constants in memory.
template <bool kKept, class S, class D, class F>
[[gnu::noinline]] void map_even(const S* s, D* d, int64_t n, const F& map) {
    const F f = map;  // in registers
    const auto block = [&](int64_t i, auto phase) __attribute__((always_inline)) {
        store_block<kKept>(d + i, f(s + i, phase));
    };
    int64_t i = 0;
    if constexpr (F::kPeriod == 3) {
        for (; i + 3 * kVector <= n; i += 3 * kVector)
            block(i, Phase<0>{}), block(i + kVector, Phase<1>{}), block(i + 2 * kVector, Phase<2>{});
        if (i < n) block(i, Phase<0>{});
        if (i + kVector < n) block(i + kVector, Phase<1>{});
    } else {
        for (; i < n; i += kVector) block(i, Phase<0>{});
    }
}

// n elements, whole pixels, but no whole blocks: the last one overlaps the one before it, and is made first where the
// destination is the source. What is less than a block goes by way of buffers.
template <bool kKept, class S, class D, class F>
[[gnu::noinline]] void map_uneven(const S* s, D* d, int64_t n, const F& f) {
    if (n < kVector) {
        S from[kVector] = {};
        D to[kVector];
        memcpy(from, s, size_t(n) * sizeof(S));
        if constexpr (kKept) memcpy(to, d, size_t(n) * sizeof(D));
        store_block<kKept>(to, f(from, Phase<0>{}));
        memcpy(d, to, size_t(n) * sizeof(D));
        return;
    }
    const int64_t last = n - kVector, whole = n / kVector * kVector;
    if constexpr (sizeof(S) == sizeof(D))
        if (static_cast<const void*>(s) == d) {
            const Block<D> made = f(s + last, LastPhase{});
            map_even<kKept>(s, d, whole, f);
            return store_block<kKept>(d + last, made);
        }
    map_even<kKept>(s, d, whole, f);
    store_block<kKept>(d + last, f(s + last, LastPhase{}), (whole - last) / kLanes<D>);
}

template <bool kKept, class S, class D, class F>
inline void map_row(const S* s, D* d, int64_t n, const F& f) {
    if (n % kVector == 0)
        map_even<kKept>(s, d, n, f);
    else
        map_uneven<kKept>(s, d, n, f);
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

// Whether a mapped plane goes around the cache.
template <bool kKept, class S, class D>
inline bool streams_blocks(const void* src, const void* dst, Size size, int64_t channels) {
    return !kKept && src != dst && streams(size.height * (size.width * channels) * int64_t(sizeof(S) + sizeof(D)));
}

// dst := f of src, by map_row. kKept: the fourth channel of the destination stays. strip: room for kStrip elements where the
// plane goes around the cache, else null.
template <bool kKept, class S, class D, class F>
void map_blocks(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size, int64_t channels,
                D* strip, const F& f) {
    const Rows rows = rows_of(size, Pitch{src_stride, channels * int64_t(sizeof(S))},
                              Pitch{dst_stride, channels * int64_t(sizeof(D))});
    const int64_t n = rows.pixels * channels;
    const bool streamed = strip;
    if (n < kVector && rows.count > 1)
        return map_narrow<kKept, S, D>(src, src_stride, dst, dst_stride, rows.count, n, f);
    for (int64_t y = 0; y < rows.count; ++y) {
        const S* s = row<S>(src, src_stride, y);
        D* d = row<D>(dst, dst_stride, y);
        for (int64_t i = 0, count; i < n; i += count) {
            count = !streamed ? n : min(n - i, i ? kStrip : first_strip(d, sizeof(D), channels));
            map_row<kKept>(s + i, streamed ? strip : d + i, count, f);
            if (streamed) stream_row(d + i, strip, count * int64_t(sizeof(D)));
        }
    }
    if (streamed) stream_fence();
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
