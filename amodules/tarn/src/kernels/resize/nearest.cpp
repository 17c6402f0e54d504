// Nearest-neighbour resize. It moves whole pixels, so one body per pixel size serves all element types. The source
// columns are found once per call. Where a byte shuffle exists and the image shrinks to no less than half, 16 output
// bytes come from one or two 16-byte windows of the source row, four such groups to a wide register; elsewhere pixel by
// pixel. Destination rows of one source row are copies of the first.
#include "kernels/resize/half_u8.h"

namespace tarn::k::TARN_LEVEL {
namespace {

constexpr int kGroup = 16;  // bytes

// The columns of a row of outputs.
struct Columns {
    int64_t count;         // outputs
    const int32_t* pixel;  // source column of each, from the source row's start
    int64_t groups;        // groups of 16 output bytes; 0: pixel by pixel
    bool two_windows;      // some group takes bytes beyond its first window
    const int64_t* from;   // first byte of each group's window
    const uint8_t* low;    // 16 per group: which byte of the first window, 0x80 for none
    const uint8_t* high;   // the same for the second, which follows the first
};

template <int kPixel, bool kKept>
void row_by_pixel(const uint8_t* s, const Columns& c, uint8_t* d) {
    for (int64_t x = 0; x < c.count; ++x)
        memcpy(d + x * kPixel, s + c.pixel[x] * int64_t(kPixel), kKept ? kPixel / 4 * 3 : kPixel);
}

// Every second pixel, at exactly half the width: one or two bytes each.
template <int kPixel>
void row_of_second(const uint8_t* TARN_RESTRICT s, int64_t n, uint8_t* TARN_RESTRICT d) {
    int64_t x = 0;
#if defined(TARN_VECTORS)
    if (kPixel == 1)
        for (; n - x >= kBytes; x += kBytes)
            store(d + x, to_bytes(down<8>(load(s + 2 * x)), down<8>(load(s + 2 * x + kBytes))));
#endif
    for (; x < n; ++x) memcpy(d + x * kPixel, s + (2 * x + 1) * kPixel, kPixel);
}

// The last group ends at the row's end: it may repeat bytes of the group before.
inline int64_t group_start(int64_t group, int64_t row_bytes) { return min(group * kGroup, row_bytes - kGroup); }

// Fills the groups' tables; returns false when a group needs more than two windows.
template <int kPixel>
bool find_windows(Columns& c, int64_t src_row_bytes, int64_t* from, uint8_t* low, uint8_t* high) {
    const int64_t row_bytes = c.count * kPixel;
    for (int64_t g = 0; g < c.groups; ++g) {
        const int64_t start = group_start(g, row_bytes);
        int64_t at[kGroup];
        int64_t x = start / kPixel, channel = start % kPixel;
        for (int i = 0; i < kGroup; ++i) {
            at[i] = c.pixel[x] * int64_t(kPixel) + channel;
            if (++channel == kPixel) channel = 0, ++x;
        }
        int64_t first = at[0];
        for (int i = 1; i < kGroup; ++i) first = min(first, at[i]);
        first = min(first, src_row_bytes - 2 * kGroup);
        for (int i = 0; i < kGroup; ++i) {
            const int64_t byte = at[i] - first;
            if (byte >= 2 * kGroup) return false;
            if (byte >= kGroup) c.two_windows = true;
            low[g * kGroup + i] = byte < kGroup ? uint8_t(byte) : 0x80;
            high[g * kGroup + i] = byte < kGroup ? 0x80 : uint8_t(byte - kGroup);
        }
        from[g] = first;
    }
    return true;
}

#if defined(__SSSE3__)

// A byte per channel of a kept pixel: -1 where the result goes, 0 where the destination stays.
template <int kPixel>
inline __m128i kept_mask() {
    return kPixel == 4   ? _mm_set1_epi32(0x00ffffff)
           : kPixel == 8 ? _mm_set1_epi64x(0x0000ffffffffffff)
                         : _mm_set_epi32(0, -1, -1, -1);
}

#if defined(__AVX512BW__)
template <int kPixel>
inline __mmask64 kept_bits() {
    return kPixel == 4 ? 0x7777777777777777 : kPixel == 8 ? 0x3f3f3f3f3f3f3f3f : 0x0fff0fff0fff0fff;
}
#endif

template <int kPixel, bool kKept, bool kTwo>
void row_by_shuffle(const uint8_t* s, const Columns& c, uint8_t* d) {
    const int64_t row_bytes = c.count * kPixel;
    int64_t g = 0;
#if defined(__AVX512BW__)
    const auto windows = [&](const int64_t* from, int64_t ahead) {
        __m512i v = _mm512_castsi128_si512(window(s + from[0] + ahead));
        v = _mm512_mask_broadcast_i32x4(v, 0x00f0, window(s + from[1] + ahead));
        v = _mm512_mask_broadcast_i32x4(v, 0x0f00, window(s + from[2] + ahead));
        return _mm512_mask_broadcast_i32x4(v, 0xf000, window(s + from[3] + ahead));
    };
    for (; (g + 4) * kGroup <= row_bytes; g += 4) {
        __m512i v = _mm512_shuffle_epi8(windows(c.from + g, 0), _mm512_loadu_si512(c.low + g * kGroup));
        if (kTwo)
            v = _mm512_or_si512(
                v, _mm512_shuffle_epi8(windows(c.from + g, kGroup), _mm512_loadu_si512(c.high + g * kGroup)));
        if (kKept)
            _mm512_mask_storeu_epi8(d + g * kGroup, kept_bits<kPixel>(), v);
        else
            _mm512_storeu_si512(d + g * kGroup, v);
    }
#endif
    for (; g < c.groups; ++g) {
        const uint8_t* from = s + c.from[g];
        __m128i* to = reinterpret_cast<__m128i*>(d + group_start(g, row_bytes));
        __m128i v = _mm_shuffle_epi8(window(from), window(c.low + g * kGroup));
        if (kTwo) v = _mm_or_si128(v, _mm_shuffle_epi8(window(from + kGroup), window(c.high + g * kGroup)));
        if (kKept) {
            const __m128i mask = kept_mask<kPixel>();
            v = _mm_or_si128(_mm_and_si128(v, mask), _mm_andnot_si128(mask, _mm_loadu_si128(to)));
        }
        _mm_storeu_si128(to, v);
    }
}
constexpr bool kShuffles = true;

#else

template <int kPixel, bool kKept, bool kTwo>
void row_by_shuffle(const uint8_t* s, const Columns& c, uint8_t* d) {
    row_by_pixel<kPixel, kKept>(s, c, d);
}
constexpr bool kShuffles = false;

#endif

template <int kPixel>
Status nearest_of_half(const Job& j) {
    Walk line(j.region.height, j.dst_size.height, 0, 0);
    for (int64_t y = 0; y < j.dst_size.height; ++y, line.next()) {
        const uint8_t* s = row<uint8_t>(j.src, j.src_stride, j.region.y + line.whole) + int64_t(j.region.x) * kPixel;
        uint8_t* d = row<uint8_t>(j.dst, j.dst_stride, y);
        row_of_second<kPixel>(s, j.dst_size.width, d);
    }
    return kOk;
}

template <int kPixel, bool kKept>
Status nearest(const Job& j) {
    if (Status s = check(j)) return s;
    if constexpr (kPixel == 1 || (kPixel == 2 && !kKept))
        if (j.region.width == 2 * int64_t(j.dst_size.width)) return nearest_of_half<kPixel>(j);
    const int64_t width = j.dst_size.width, row_bytes = width * kPixel;
    const int64_t src_row_bytes = int64_t(j.src_size.width) * kPixel;
    const bool shuffle =
        kShuffles && kPixel < 16 && row_bytes >= kGroup && src_row_bytes >= 2 * kGroup && j.region.width <= 2 * width;
    Columns c{width, nullptr, shuffle ? (row_bytes + kGroup - 1) / kGroup : 0, false, nullptr, nullptr, nullptr};

    Scratch scratch(j.allocator);
    scratch.want<int32_t>(width);
    scratch.want<int64_t>(c.groups);
    scratch.want<uint8_t>(c.groups * kGroup);
    scratch.want<uint8_t>(c.groups * kGroup);
    if (!scratch.allocate()) return kNoMemory;
    int32_t* pixel = scratch.take<int32_t>(width);
    int64_t* from = scratch.take<int64_t>(c.groups);
    uint8_t* low = scratch.take<uint8_t>(c.groups * kGroup);
    uint8_t* high = scratch.take<uint8_t>(c.groups * kGroup);

    Walk column(j.region.width, width, 0, 0);
    for (int64_t x = 0; x < width; ++x, column.next()) pixel[x] = int32_t(j.region.x + column.whole);
    c.pixel = pixel, c.from = from, c.low = low, c.high = high;
    if (shuffle && !find_windows<kPixel>(c, src_row_bytes, from, low, high)) c.groups = 0;

    Walk line(j.region.height, j.dst_size.height, 0, 0);
    int64_t last = -1;
    for (int64_t y = 0; y < j.dst_size.height; ++y, line.next()) {
        uint8_t* d = row<uint8_t>(j.dst, j.dst_stride, y);
        const uint8_t* s = row<uint8_t>(j.src, j.src_stride, j.region.y + line.whole);
        if (!kKept && line.whole == last)
            memcpy(d, row<uint8_t>(j.dst, j.dst_stride, y - 1), size_t(row_bytes));
        else if (c.groups == 0)
            row_by_pixel<kPixel, kKept>(s, c, d);
        else if (c.two_windows)
            row_by_shuffle<kPixel, kKept, true>(s, c, d);
        else
            row_by_shuffle<kPixel, kKept, false>(s, c, d);
        last = line.whole;
    }
    return kOk;
}

}  // namespace

#define NEAREST(name, pixel_bytes, kept)                                                                              \
    Status name(const void* src, int32_t src_stride, Size src_size, Region region, void* dst, int32_t dst_stride,     \
                Size dst_size, const Allocator& allocator) {                                                          \
        return nearest<pixel_bytes, kept>({src, src_stride, src_size, region, dst, dst_stride, dst_size, allocator}); \
    }
NEAREST(resize_nearest_u8_c1, 1, false)
NEAREST(resize_nearest_u8_c3, 3, false)
NEAREST(resize_nearest_u8_c4, 4, false)
NEAREST(resize_nearest_u8_c3x, 4, true)
NEAREST(resize_nearest_s16_c1, 2, false)
NEAREST(resize_nearest_s16_c3, 6, false)
NEAREST(resize_nearest_s16_c4, 8, false)
NEAREST(resize_nearest_s16_c3x, 8, true)
NEAREST(resize_nearest_f32_c1, 4, false)
NEAREST(resize_nearest_f32_c3, 12, false)
NEAREST(resize_nearest_f32_c4, 16, false)
NEAREST(resize_nearest_f32_c3x, 16, true)
#undef NEAREST

}  // namespace tarn::k::TARN_LEVEL
