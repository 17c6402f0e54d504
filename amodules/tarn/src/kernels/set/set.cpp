// Fills. The constants' pattern spans three vectors, so every channel count is a stream of whole vectors. A mask is
// spread from pixels to elements: as bits for masked stores where the processor has them, otherwise as bytes of a small
// block that plain loops blend.
#include "kernels/set/set.h"

#include "kernels/simd/vectors.h"

namespace tarn::k::TARN_LEVEL {
namespace {

template <class T, int kChannels, bool kKept>
Pattern constant_pattern(const void* constant) {
    T pixel[4] = {};
    memcpy(pixel, constant, (kKept ? 3 : kChannels) * sizeof(T));
    return pattern_of<T, kChannels>(pixel);
}

template <class T, int kChannels, bool kKept>
Status set(const void* constant, void* dst, int32_t dst_stride, Size size) {
    if (Status s = check(size, constant, dst)) return s;
    const Pattern pattern = constant_pattern<T, kChannels, kKept>(constant);
    const Bytes mask = colour_mask<T>();
    const Rows rows = rows_of(size, size.width * int64_t(kChannels * sizeof(T)), 1, dst_stride);
    for (int64_t y = 0; y < rows.count; ++y) {
        uint8_t* d = row<uint8_t>(dst, dst_stride, y);
        each_vector(rows.length, [=](auto io, int64_t i, auto phase) {
            if constexpr (kKept)
                io.store(d + i, select(mask, pattern.v[phase.index], io.load(d + i)));
            else
                io.store(d + i, pattern.v[phase.index]);
        });
    }
    return kOk;
}

#if defined(__AVX512BW__)

// Stores the lanes of v (elements of sizeof(T) bytes) whose bits are set.
template <class T>
void store_lanes(uint8_t* d, uint64_t lanes, Bytes v) {
    if constexpr (sizeof(T) == 1)
        _mm512_mask_storeu_epi8(d, lanes, (__m512i)v);
    else if constexpr (sizeof(T) == 2)
        _mm512_mask_storeu_epi16(d, __mmask32(lanes), (__m512i)v);
    else
        _mm512_mask_storeu_epi32(d, __mmask16(lanes), (__m512i)v);
}

// A vector holds kLanes elements; 64 mask bytes select kChannels * 64 elements. Three vectors' worth of pixels (or one,
// when the pixel divides a vector) is handled at a time, so that the pattern's phase is known.
template <class T, int kChannels, bool kKept>
void masked_row(uint8_t* d, const uint8_t* mask, int64_t n, const Pattern& pattern) {
    constexpr int kLanes = 64 / sizeof(T);
    // Bits of the selected pixels spread to their elements: one bit per pixel deposited at every kChannels-th place,
    // then copied upwards over the channels that are set.
    constexpr uint64_t kFirst = kChannels == 1   ? ~uint64_t(0)
                                : kChannels == 4 ? 0x1111111111111111
                                                 : 0x9249249249249249;
    constexpr uint64_t kCopies = kChannels == 1 ? 1 : 7;
    for (int64_t x = 0; x < n; x += 64) {
        const __mmask64 there = n - x >= 64 ? ~uint64_t(0) : ~uint64_t(0) >> (64 - (n - x));
        uint64_t bits =
            _mm512_mask_test_epi8_mask(there, _mm512_maskz_loadu_epi8(there, mask + x), _mm512_set1_epi8(-1));
        if (bits == 0) continue;
        uint8_t* p = d + x * int64_t(kChannels * sizeof(T));
        if constexpr (kChannels == 3) {
            // 21 pixels and a third fill a word of 64 elements: three words begin at channel 0, 1 and 2 of a pixel.
            const uint64_t w0 = _pdep_u64(bits, kFirst) * 7;
            const uint64_t w1 = _pdep_u64(bits >> 22, kFirst << 2) * 7 | (bits >> 21 & 1) * 3;
            const uint64_t w2 = _pdep_u64(bits >> 43, kFirst << 1) * 7 | (bits >> 42 & 1);
            const uint64_t words[3] = {w0, w1, w2};
            for (int v = 0; v < 3 * int(sizeof(T)); ++v)
                store_lanes<T>(p + 64 * v, words[v / int(sizeof(T))] >> v % int(sizeof(T)) * (kLanes & 63),
                               pattern.v[v % 3]);
        } else {
            for (int word = 0; word < kChannels; ++word) {
                const uint64_t lanes = _pdep_u64(bits >> word * 16 % 64, kFirst) * kCopies;
                for (int v = 0; v < int(sizeof(T)); ++v)
                    store_lanes<T>(p + 64 * (word * int(sizeof(T)) + v), lanes >> v * (kLanes & 63), pattern.v[0]);
            }
        }
    }
}

#else

template <class T, int kChannels, bool kKept>
void masked_row(uint8_t* d, const uint8_t* mask, int64_t n, const Pattern& pattern) {
    // A block of pixels whose elements fill whole patterns; its constants are the same in every block.
    constexpr int64_t kBlock = 48, kElements = kBlock * kChannels;
    T constants[kElements], pixel[4];
    memcpy(pixel, &pattern, kChannels * sizeof(T));
    for (int64_t i = 0; i < kElements; ++i) constants[i] = pixel[i % kChannels];
    for (int64_t x = 0; x < n; x += kBlock) {
        const int64_t count = min(kBlock, n - x);
        uint8_t chosen[kElements] = {};
        const uint8_t* m = mask + x;
        for (int64_t i = 0; i < count; ++i)
            for (int c = 0; c < (kKept ? 3 : kChannels); ++c) chosen[i * kChannels + c] = m[i];
        T elements[kElements];
        uint8_t* p = d + x * int64_t(kChannels * sizeof(T));
        if (count == kBlock)
            memcpy(elements, p, sizeof elements);
        else
            memcpy(elements, p, size_t(count) * kChannels * sizeof(T));
        for (int64_t i = 0; i < kElements; ++i) elements[i] = chosen[i] ? constants[i] : elements[i];
        if (count == kBlock)
            memcpy(p, elements, sizeof elements);
        else
            memcpy(p, elements, size_t(count) * kChannels * sizeof(T));
    }
}

#endif

template <class T, int kChannels, bool kKept>
Status masked_set(const void* constant, void* dst, int32_t dst_stride, Size size, const void* mask,
                  int32_t mask_stride) {
    if (Status s = check(size, constant, dst, mask)) return s;
    const Pattern pattern = constant_pattern<T, kChannels, kKept>(constant);
    for (int64_t y = 0; y < size.height; ++y)
        masked_row<T, kChannels, kKept>(row<uint8_t>(dst, dst_stride, y), row<uint8_t>(mask, mask_stride, y),
                                        size.width, pattern);
    return kOk;
}

}  // namespace

#define SET(type, form, T, channels, kept)                                                                         \
    Status set_##type##_##form(const void* constant, void* dst, int32_t dst_stride, Size size) {                   \
        return set<T, channels, kept>(constant, dst, dst_stride, size);                                            \
    }                                                                                                              \
    Status set_m_##type##_##form(const void* constant, void* dst, int32_t dst_stride, Size size, const void* mask, \
                                 int32_t mask_stride) {                                                            \
        return masked_set<T, channels, kept>(constant, dst, dst_stride, size, mask, mask_stride);                  \
    }
SET(u8, c1, uint8_t, 1, false)
SET(u8, c3, uint8_t, 3, false)
SET(u8, c3x, uint8_t, 4, true)
SET(s16, c1, int16_t, 1, false)
SET(s16, c3, int16_t, 3, false)
SET(s16, c3x, int16_t, 4, true)
SET(s32, c1, int32_t, 1, false)
SET(s32, c3, int32_t, 3, false)
SET(s32, c3x, int32_t, 4, true)
#undef SET

}  // namespace tarn::k::TARN_LEVEL
