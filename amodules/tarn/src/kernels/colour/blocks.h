// For kernel sources only: planes of pixels whose channels change places, number or layout, in blocks of kPixels
// pixels. An operator names its planes on both sides (kIn, kOut) and the bytes of a pixel in each (kInBytes,
// kOutBytes), and makes a block from pointers to them: it reads a whole block before it writes, and nothing beyond.
// Large outputs go around the cache.
#pragma once

#include "kernels/plane/channels.h"
#include "kernels/plane/plane.h"
#include "kernels/plane/store.h"
#include "kernels/simd/stream.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Pointers to the same pixel of so many planes.
template <class Byte, int kCount>
struct Places {
    Byte* p[kCount];
    Places moved(int64_t bytes) const {
        Places at = *this;
        for (Byte*& each : at.p) each += bytes;
        return at;
    }
};
template <int kCount>
using From = Places<const uint8_t, kCount>;
template <int kCount>
using To = Places<uint8_t, kCount>;

// A row of less than a block, by way of buffers.
template <class Op>
[[gnu::noinline]] void map_rest(const From<Op::kIn>& s, const To<Op::kOut>& d, int64_t pixels, const Op& op) {
    alignas(64) uint8_t in[Op::kIn][Op::kPixels * Op::kInBytes] = {}, out[Op::kOut][Op::kPixels * Op::kOutBytes];
    From<Op::kIn> from;
    To<Op::kOut> to;
    for (int i = 0; i < Op::kIn; ++i) {
        memcpy(in[i], s.p[i], size_t(pixels * Op::kInBytes));
        from.p[i] = in[i];
    }
    for (int i = 0; i < Op::kOut; ++i) to.p[i] = out[i];
    op(from, to, Cached{});
    for (int i = 0; i < Op::kOut; ++i) memcpy(d.p[i], out[i], size_t(pixels * Op::kOutBytes));
}

// What makes the end of a row: an operator of smaller blocks where there is one.
template <class Op>
inline auto rest_of(const Op& op) {
    if constexpr (requires { op.rest(); })
        return op.rest();
    else
        return op;
}

// n pixels that are no whole blocks. The last block overlaps the one before it; where source and destination are one it
// is made first, in a buffer.
template <class Op, class Out>
[[gnu::noinline]] void map_uneven(const From<Op::kIn>& s, const To<Op::kOut>& d, int64_t n, bool in_place, const Op& op,
                                  Out out) {
    const auto rest = rest_of(op);
    using Rest = decltype(rest_of(op));
    static_assert(Op::kPixels % Rest::kPixels == 0);
    if (n < Rest::kPixels) return map_rest(s, d, n, rest);
    const int64_t last = n - Rest::kPixels;
    const From<Op::kIn> last_in = s.moved(last * Op::kInBytes);
    const To<Op::kOut> last_out = d.moved(last * Op::kOutBytes);
    const auto whole_blocks = [&] {
        int64_t x = 0;
        for (; x + Op::kPixels <= n; x += Op::kPixels) op(s.moved(x * Op::kInBytes), d.moved(x * Op::kOutBytes), out);
        if constexpr (Rest::kPixels < Op::kPixels)
            for (; x <= last; x += Rest::kPixels) rest(s.moved(x * Op::kInBytes), d.moved(x * Op::kOutBytes), Cached{});
    };
    if (!in_place || n % Rest::kPixels == 0) {
        whole_blocks();
        if (n % Rest::kPixels) rest(last_in, last_out, Cached{});
        return;
    }
    alignas(64) uint8_t made[Op::kOut][Rest::kPixels * Op::kOutBytes];
    To<Op::kOut> to;
    for (int i = 0; i < Op::kOut; ++i) to.p[i] = made[i];
    rest(last_in, to, Cached{});
    whole_blocks();
    for (int i = 0; i < Op::kOut; ++i) memcpy(last_out.p[i], made[i], sizeof made[i]);
}

// n pixels, by whole blocks in the way of `out`.
template <class Op, class Out>
inline void map_run(const From<Op::kIn>& s, const To<Op::kOut>& d, int64_t n, bool in_place, const Op& op, Out out) {
    if (n % Op::kPixels != 0) return map_uneven(s, d, n, in_place, op, out);
    for (int64_t x = 0; x < n; x += Op::kPixels) op(s.moved(x * Op::kInBytes), d.moved(x * Op::kOutBytes), out);
}

// Rows of less than a block, n pixels each: many of them brought together.
template <class Op>
[[gnu::noinline]] void map_narrow(const From<Op::kIn>& s, int32_t src_stride, const To<Op::kOut>& d, int32_t dst_stride,
                                  int64_t rows, int64_t n, const Op& op) {
    constexpr int64_t kTogether = 256;  // pixels
    alignas(64) uint8_t in[Op::kIn][kTogether * Op::kInBytes], out[Op::kOut][kTogether * Op::kOutBytes];
    From<Op::kIn> from;
    To<Op::kOut> to;
    for (int i = 0; i < Op::kIn; ++i) from.p[i] = in[i];
    for (int i = 0; i < Op::kOut; ++i) to.p[i] = out[i];
    for (int64_t y = 0, count; y < rows; y += count) {
        count = min(kTogether / n, rows - y);
        for (int i = 0; i < Op::kIn; ++i)
            for (int64_t r = 0, bytes = n * Op::kInBytes; r < count; ++r)
                copy_short(in[i] + r * bytes, s.p[i] + (y + r) * src_stride, bytes);
        map_uneven(from, to, count * n, false, op, Cached{});
        for (int i = 0; i < Op::kOut; ++i)
            for (int64_t r = 0, bytes = n * Op::kOutBytes; r < count; ++r)
                copy_short(d.p[i] + (y + r) * dst_stride, out[i] + r * bytes, bytes);
    }
}

// Pixels before those that begin with a cache line in every plane; -1 where there are none.
template <int kOut>
inline int64_t pixels_to_line(const To<kOut>& d, int64_t pixel_bytes) {
    for (int64_t n = 0; n < 64; ++n) {
        bool all = true;
        for (const uint8_t* p : d.p) all = all && ((reinterpret_cast<intptr_t>(p) + n * pixel_bytes) & 63) == 0;
        if (all) return n;
    }
    return -1;
}

// The same around the cache, where the planes' lines allow it.
template <class Op>
[[gnu::noinline]] void stream_run(const From<Op::kIn>& s, const To<Op::kOut>& d, int64_t n, const Op& op) {
    const int64_t head = pixels_to_line(d, Op::kOutBytes);
    if (head < 0 || head + 64 + Op::kPixels > n) return map_run(s, d, n, false, op, Cached{});
    if (head > 0) map_run(s, d, head, false, op, Cached{});
    map_run(s.moved(head * Op::kInBytes), d.moved(head * Op::kOutBytes), n - head, false, op, Streamed{});
}

// The planes are checked here, all of a side having one stride.
template <class Op>
Status map_pixels(const void* const* src, int32_t src_stride, void* const* dst, int32_t dst_stride, Size size,
                  const Op& op) {
    From<Op::kIn> s;
    To<Op::kOut> d;
    for (int i = 0; i < Op::kIn; ++i)
        if (!(s.p[i] = static_cast<const uint8_t*>(src[i]))) return kNull;
    for (int i = 0; i < Op::kOut; ++i)
        if (!(d.p[i] = static_cast<uint8_t*>(dst[i]))) return kNull;
    if (Status status = check(size)) return status;
    const Rows rows = rows_of(size, Pitch{src_stride, Op::kInBytes}, Pitch{dst_stride, Op::kOutBytes});
    const bool in_place = src[0] == dst[0];
    constexpr int64_t kMoved = Op::kIn * Op::kInBytes + Op::kOut * Op::kOutBytes;
    const bool streamed = !in_place && streams(rows.count * rows.pixels * kMoved);
    if (rows.count > 1 && rows.pixels < decltype(rest_of(op))::kPixels) {
        map_narrow(s, src_stride, d, dst_stride, rows.count, rows.pixels, op);
        return kOk;
    }
    for (int64_t y = 0; y < rows.count; ++y) {
        if (streamed)
            stream_run(s.moved(y * src_stride), d.moved(y * dst_stride), rows.pixels, op);
        else
            map_run(s.moved(y * src_stride), d.moved(y * dst_stride), rows.pixels, in_place, op, Cached{});
    }
    if (streamed) stream_fence();
    return kOk;
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
