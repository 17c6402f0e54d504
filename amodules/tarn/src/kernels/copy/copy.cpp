// Plane copies. A copy that carries every channel sees bytes only, so one body serves all element types and channel
// counts; the c3x forms blend whole pixels under a channel mask. The order of rows and of bytes in a row is chosen so
// that a plane may be shifted within its own buffer. Stores go around the cache only where the output is so large that
// it would evict everything anyway: below that they lose.
#include "kernels/copy/copy.h"

#include "kernels/base/body.h"
#include "kernels/plane/plane.h"
#include "kernels/simd/stream.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// True when going from the first row to the last could overwrite source rows not read yet.
bool from_the_end(const void* src, int32_t src_stride, const void* dst, int32_t dst_stride) {
    const intptr_t shift = reinterpret_cast<intptr_t>(dst) - reinterpret_cast<intptr_t>(src);
    return src_stride == dst_stride && shift != 0 && (shift > 0) == (dst_stride > 0);
}

Status copy_bytes(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size, int64_t pixel_bytes) {
    if (Status s = check(size, src, dst)) return s;
    if (src == dst && src_stride == dst_stride) return kOk;
    const Rows rows = rows_of(size, size.width * pixel_bytes, 1, src_stride, dst_stride);
    const bool reverse = from_the_end(src, src_stride, dst, dst_stride);
    const intptr_t distance = reinterpret_cast<intptr_t>(dst) - reinterpret_cast<intptr_t>(src);
    const int64_t span = size.height * (int64_t(src_stride) < 0 ? -int64_t(src_stride) : int64_t(src_stride));
    const bool apart = distance >= span || -distance >= span;
    if (streams(rows.count * rows.length) && apart && src_stride == dst_stride) {
        for (int64_t y = 0; y < rows.count; ++y)
            stream_row(row<uint8_t>(dst, dst_stride, y), row<uint8_t>(src, src_stride, y), rows.length);
        stream_fence();
        return kOk;
    }
    for (int64_t i = 0; i < rows.count; ++i) {
        const int64_t y = reverse ? rows.count - 1 - i : i;
        memmove(row<uint8_t>(dst, dst_stride, y), row<uint8_t>(src, src_stride, y), size_t(rows.length));
    }
    return kOk;
}

// Three channels of four. Pixels as one integer P, the fourth channel kept by a mask; pixels need not be aligned to P.
template <class P>
inline P blend(P dst, P src, P mask) {
    return (src & mask) | (dst & ~mask);
}

void copy_row_u8_c3x(uint8_t* d, const uint8_t* s, int64_t n) {
    for (int64_t x = 0; x < n; ++x) {
        uint32_t a, b;
        memcpy(&a, s + 4 * x, 4);
        memcpy(&b, d + 4 * x, 4);
        b = blend(b, a, uint32_t(0x00ffffff));
        memcpy(d + 4 * x, &b, 4);
    }
}

void copy_row_s16_c3x(uint8_t* d, const uint8_t* s, int64_t n) {
    for (int64_t x = 0; x < n; ++x) {
        uint64_t a, b;
        memcpy(&a, s + 8 * x, 8);
        memcpy(&b, d + 8 * x, 8);
        b = blend(b, a, uint64_t(0x0000ffffffffffff));
        memcpy(d + 8 * x, &b, 8);
    }
}

void copy_row_s32_c3x(uint8_t* d, const uint8_t* s, int64_t n) {
    int64_t x = 0;
#if defined(__AVX512F__)
    // Four pixels; the fourth lane of each is not stored at all.
    for (; x + 4 <= n; x += 4) _mm512_mask_storeu_epi32(d + 16 * x, 0x7777, _mm512_loadu_si512(s + 16 * x));
#elif defined(__SSE2__)
    const __m128i mask = _mm_set_epi32(0, -1, -1, -1);
    for (; x < n; ++x) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 16 * x));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(d + 16 * x));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 16 * x),
                         _mm_or_si128(_mm_and_si128(a, mask), _mm_andnot_si128(mask, b)));
    }
#endif
    for (; x < n; ++x) memcpy(d + 16 * x, s + 16 * x, 12);
}

using CopyRow = void(uint8_t* d, const uint8_t* s, int64_t n);

// A row whose destination overlaps it: through a buffer, piece by piece, in the order that reads before it writes.
void copy_row_overlapping(CopyRow* copy_row, uint8_t* d, const uint8_t* s, int64_t n, int64_t pixel_bytes,
                          bool reverse) {
    constexpr int64_t kPiece = 64;
    uint8_t buffer[kPiece * 16];
    for (int64_t done = 0; done < n; done += kPiece) {
        const int64_t count = min(kPiece, n - done);
        const int64_t x = reverse ? n - done - count : done;
        memcpy(buffer, s + x * pixel_bytes, size_t(count * pixel_bytes));
        copy_row(d + x * pixel_bytes, buffer, count);
    }
}

Status copy_c3x(CopyRow* copy_row, int64_t pixel_bytes, const void* src, int32_t src_stride, void* dst,
                int32_t dst_stride, Size size) {
    if (Status s = check(size, src, dst)) return s;
    if (src == dst && src_stride == dst_stride) return kOk;
    const bool reverse = from_the_end(src, src_stride, dst, dst_stride);
    for (int64_t i = 0; i < size.height; ++i) {
        const int64_t y = reverse ? size.height - 1 - i : i;
        uint8_t* d = row<uint8_t>(dst, dst_stride, y);
        const uint8_t* s = row<uint8_t>(src, src_stride, y);
        const int64_t bytes = size.width * pixel_bytes;
        if (d - s < bytes && s - d < bytes)
            copy_row_overlapping(copy_row, d, s, size.width, pixel_bytes, d > s);
        else
            copy_row(d, s, size.width);
    }
    return kOk;
}

}  // namespace

#define COPY(name, element_bytes, channels)                                                      \
    Status name(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size) { \
        return copy_bytes(src, src_stride, dst, dst_stride, size, element_bytes * channels);     \
    }
#define COPY_C3X(name, copy_row, pixel_bytes)                                                    \
    Status name(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size) { \
        return copy_c3x(copy_row, pixel_bytes, src, src_stride, dst, dst_stride, size);          \
    }
COPY(copy_u8_c1, 1, 1)
COPY(copy_u8_c3, 1, 3)
COPY(copy_u8_c4, 1, 4)
COPY_C3X(copy_u8_c3x, copy_row_u8_c3x, 4)
COPY(copy_s16_c1, 2, 1)
COPY(copy_s16_c3, 2, 3)
COPY(copy_s16_c4, 2, 4)
COPY_C3X(copy_s16_c3x, copy_row_s16_c3x, 8)
COPY(copy_s32_c1, 4, 1)
COPY(copy_s32_c3, 4, 3)
COPY(copy_s32_c4, 4, 4)
COPY_C3X(copy_s32_c3x, copy_row_s32_c3x, 16)
#undef COPY
#undef COPY_C3X

}  // namespace tarn::k::TARN_LEVEL
