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

// A block from s to d, or its first n elements by way of buffers. f(s, phase) makes the block of the kVector elements at s.
template <bool kKept, class S, class D, class F, class P>
inline void map_block(Whole whole, const S* s, D* d, const F& f, P phase) {
    const Block<D> block = f(s, phase);
    for (int v = 0; v < int(sizeof(D)); ++v) store_form<kKept>(whole, d + v * kLanes<D>, block.v[v], colour_mask<D>());
}
template <bool kKept, class S, class D, class F, class P>
inline void map_block(Part part, const S* s, D* d, const F& f, P phase) {
    S from[kVector] = {};
    D to[kVector];
    memcpy(from, s, size_t(part.n) * sizeof(S));
    if constexpr (kKept) memcpy(to, d, size_t(part.n) * sizeof(D));
    map_block<kKept>(Whole{}, from, to, f, phase);
    memcpy(d, to, size_t(part.n) * sizeof(D));
}

// n elements from s to d. A map that is not the same for every block has a period of three.
template <bool kKept, class S, class D, class F>
inline void map_row(const S* s, D* d, int64_t n, const F& map) {
    const F f = map;  // in registers
    if constexpr (F::kPeriod == 3)
        each_phase(n, [&](auto io, int64_t i, auto phase) { map_block<kKept>(io, s + i, d + i, f, phase); });
    else
        each_vector(n, [&](auto io, int64_t i) { map_block<kKept>(io, s + i, d + i, f, Phase<0>{}); });
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
