// For kernel sources only: planes of pixels whose channels change places, number or layout, in blocks of kPixels pixels. An
// operator names its planes on both sides (kIn, kOut) and the bytes of a pixel in each (kInBytes, kOutBytes), and makes a
// block from pointers to them: it reads a whole block before it writes, and nothing beyond. Large outputs go around the
// cache by way of strips.
#pragma once

#include "kernels/plane/plane.h"
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

// What is left of a row, less than a block, by way of buffers.
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
    op(from, to);
    for (int i = 0; i < Op::kOut; ++i) memcpy(d.p[i], out[i], size_t(pixels * Op::kOutBytes));
}

// n pixels. The last block overlaps the one before it, unless source and destination are one.
template <class Op>
inline void map_run(const From<Op::kIn>& s, const To<Op::kOut>& d, int64_t n, bool in_place, const Op& op) {
    const auto block = [&](int64_t x) { op(s.moved(x * Op::kInBytes), d.moved(x * Op::kOutBytes)); };
    int64_t x = 0;
    for (; x + Op::kPixels <= n; x += Op::kPixels) block(x);
    if (x == n) return;
    if (n > Op::kPixels && !in_place) return block(n - Op::kPixels);
    map_rest(s.moved(x * Op::kInBytes), d.moved(x * Op::kOutBytes), n - x, op);
}

// Bytes of all strips together, little enough for the first-level cache beside their source.
constexpr int64_t kStripBytes = 6144;

// Pixels of a row's first strip, so that the others begin with a cache line where they can.
inline int64_t first_pixels(const uint8_t* d, int64_t pixel_bytes, int64_t strip) {
    for (int64_t n = strip; n > strip - 64; --n)
        if (((reinterpret_cast<intptr_t>(d) + n * pixel_bytes) & 63) == 0) return n;
    return strip;
}

template <class Op>
[[gnu::noinline]] void stream_run(const From<Op::kIn>& s, const To<Op::kOut>& d, int64_t n, const Op& op) {
    constexpr int64_t kPixels = kStripBytes / (Op::kOut * Op::kOutBytes) / 64 * 64;
    alignas(64) uint8_t strips[Op::kOut][kPixels * Op::kOutBytes];
    To<Op::kOut> strip;
    for (int i = 0; i < Op::kOut; ++i) strip.p[i] = strips[i];
    for (int64_t x = 0, count; x < n; x += count) {
        count = min(n - x, x ? kPixels : first_pixels(d.p[0], Op::kOutBytes, kPixels));
        map_run(s.moved(x * Op::kInBytes), strip, count, false, op);
        for (int i = 0; i < Op::kOut; ++i) stream_row(d.p[i] + x * Op::kOutBytes, strips[i], count * Op::kOutBytes);
    }
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
    const bool streamed = !in_place && streams(rows.count * rows.pixels * Op::kOut * Op::kOutBytes);
    for (int64_t y = 0; y < rows.count; ++y) {
        if (streamed)
            stream_run(s.moved(y * src_stride), d.moved(y * dst_stride), rows.pixels, op);
        else
            map_run(s.moved(y * src_stride), d.moved(y * dst_stride), rows.pixels, in_place, op);
    }
    if (streamed) stream_fence();
    return kOk;
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
