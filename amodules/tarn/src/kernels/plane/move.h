// For kernel sources only: planes moved as they are. A move that carries every channel sees bytes only, so one body
// serves all element types and channel counts; the c3x forms blend under a mask of channels. The order of rows and of
// bytes in a row is chosen so that a plane may be shifted within its own buffer. Stores go around the cache only where
// the output is so large that it would evict everything anyway: below that they lose.
#pragma once

#include "kernels/plane/plane.h"
#include "kernels/plane/store.h"
#include "kernels/simd/stream.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// True when going from the first row to the last could overwrite source rows not read yet.
inline bool from_the_end(const void* src, int32_t src_stride, const void* dst, int32_t dst_stride) {
    const intptr_t shift = reinterpret_cast<intptr_t>(dst) - reinterpret_cast<intptr_t>(src);
    return src_stride == dst_stride && shift != 0 && (shift > 0) == (dst_stride > 0);
}

// Bytes of a row that is moved sooner than a library's move is called.
constexpr int64_t kMostShort = 512;

// Bytes of a row that are worth stores around the cache: the lines at its ends are stored into the cache even so.
constexpr int64_t kLeastStreamed = 1024;

// The bytes from a plane's lowest pixel to its highest.
struct Extent {
    intptr_t from, to;
    Extent(const void* data, int32_t stride, Size size, int64_t pixel_bytes) {
        const int64_t last = (size.height - 1) * int64_t(stride);
        from = reinterpret_cast<intptr_t>(data) + min<int64_t>(last, 0);
        to = reinterpret_cast<intptr_t>(data) + max<int64_t>(last, 0) + size.width * pixel_bytes;
    }
    bool apart_from(Extent other) const { return to <= other.from || other.to <= from; }
};

// Moves n bytes of a row, which may overlap. Beyond some 2 KiB libraries leave this to the processor's string move,
// which goes byte by byte where the destination lies less than a line behind the source, whole pages not counted: 10 to
// 20 times as long. Such rows go by vectors.
inline void move_row(uint8_t* d, const uint8_t* s, int64_t n) {
    constexpr int64_t kBlock = 4 * kVector, kLeast = 2048;
    constexpr uintptr_t kLine = 64, kPage = 4096;
    const uintptr_t ahead = (reinterpret_cast<uintptr_t>(d) - reinterpret_cast<uintptr_t>(s)) % kPage;
    if (n < kLeast || ahead == 0 || ahead >= kLine) {
        memmove(d, s, size_t(n));
        return;
    }
    const auto move_block = [=](int64_t i) {
        Bytes v[4];
        for (int k = 0; k < 4; ++k) v[k] = load<Bytes>(s + i + k * kVector);
        for (int k = 0; k < 4; ++k) store(d + i + k * kVector, v[k]);
    };
    // The block that overlaps its neighbour is read before others write over it, and written last.
    const int64_t last = d < s || d - s >= n ? n - kBlock : 0;
    Bytes rest[4];
    for (int k = 0; k < 4; ++k) rest[k] = load<Bytes>(s + last + k * kVector);
    if (last > 0)
        for (int64_t i = 0; i < last; i += kBlock) move_block(i);
    else
        for (int64_t i = n - kBlock; i > 0; i -= kBlock) move_block(i);
    for (int k = 0; k < 4; ++k) store(d + last + k * kVector, rest[k]);
}

[[maybe_unused]] Status copy_rows(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size,
                                  int64_t pixel_bytes) {
    if (Status s = check(size, src, dst)) return s;
    if (src == dst && src_stride == dst_stride) return kOk;
    const Rows rows = rows_of(size, Pitch{src_stride, pixel_bytes}, Pitch{dst_stride, pixel_bytes});
    const int64_t row_bytes = rows.pixels * pixel_bytes;
    const Extent source(src, src_stride, size, pixel_bytes), destination(dst, dst_stride, size, pixel_bytes);
    const bool apart = destination.apart_from(source);
    if (apart && row_bytes <= kMostShort) {
        for (int64_t y = 0; y < rows.count; ++y)
            copy_short(row<uint8_t>(dst, dst_stride, y), row<uint8_t>(src, src_stride, y), row_bytes);
        return kOk;
    }
    if (apart && row_bytes >= kLeastStreamed && streams(2 * rows.count * row_bytes)) {
        for (int64_t y = 0; y < rows.count; ++y)
            stream_row(row<uint8_t>(dst, dst_stride, y), row<uint8_t>(src, src_stride, y), row_bytes);
        stream_fence();
        return kOk;
    }
    const bool reverse = from_the_end(src, src_stride, dst, dst_stride);
    for (int64_t i = 0; i < rows.count; ++i) {
        const int64_t y = reverse ? rows.count - 1 - i : i;
        move_row(row<uint8_t>(dst, dst_stride, y), row<uint8_t>(src, src_stride, y), row_bytes);
    }
    return kOk;
}

// Three channels of four: n bytes.
inline void copy_row_c3x(uint8_t* d, const uint8_t* s, int64_t n, Bytes colours) {
    store_each<true>(d, n, colours, [=](auto io, int64_t i) { return io.load(s + i); });
}

// The same where source and destination overlap: through a buffer, piece by piece, in the order that reads before it
// writes.
inline void copy_overlapping_row_c3x(uint8_t* d, const uint8_t* s, int64_t n, Bytes colours) {
    constexpr int64_t kPiece = 1024;
    uint8_t buffer[kPiece];
    for (int64_t done = 0; done < n; done += kPiece) {
        const int64_t count = min(kPiece, n - done), i = d > s ? n - done - count : done;
        memcpy(buffer, s + i, size_t(count));
        copy_row_c3x(d + i, buffer, count, colours);
    }
}

[[maybe_unused]] Status copy_rows_c3x(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size,
                                      int64_t pixel_bytes, Bytes colours) {
    if (Status s = check(size, src, dst)) return s;
    if (src == dst && src_stride == dst_stride) return kOk;
    const bool reverse = from_the_end(src, src_stride, dst, dst_stride);
    const Rows rows = rows_of(size, Pitch{src_stride, pixel_bytes}, Pitch{dst_stride, pixel_bytes});
    const int64_t n = rows.pixels * pixel_bytes;
    for (int64_t i = 0; i < rows.count; ++i) {
        const int64_t y = reverse ? rows.count - 1 - i : i;
        uint8_t* d = row<uint8_t>(dst, dst_stride, y);
        const uint8_t* s = row<uint8_t>(src, src_stride, y);
        if (d - s < n && s - d < n)
            copy_overlapping_row_c3x(d, s, n, colours);
        else
            copy_row_c3x(d, s, n, colours);
    }
    return kOk;
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
