// For the 8-bit linear resize only: 16-bit fixed-point vectors, and the resize to exactly half, which is the mean of 2
// x 2 pixels.
#pragma once

#include "kernels/plane/taps.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// The product of two fractions, rounded: what pmulhrsw does.
[[maybe_unused]] inline int32_t multiply(int32_t a, int32_t b) { return (a * b + 0x4000) >> 15; }

// Drops kBits fraction bits: to the nearest, ties to even.
template <int kBits>
[[maybe_unused]] inline int32_t round_even(int32_t v) {
    return (v + (1 << (kBits - 1)) - 1 + (v >> kBits & 1)) >> kBits;
}

#if defined(__SSSE3__)
inline __m128i window(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
#endif

#if defined(__AVX512BW__)
#define TARN_VECTORS
using Vector = __m512i;
inline Vector load(const void* p) { return _mm512_loadu_si512(p); }
inline void store(void* p, Vector v) { _mm512_storeu_si512(p, v); }
inline Vector all16(int v) { return _mm512_set1_epi16(int16_t(v)); }
inline Vector add16(Vector a, Vector b) { return _mm512_add_epi16(a, b); }
inline Vector sub16(Vector a, Vector b) { return _mm512_sub_epi16(a, b); }
inline Vector multiply(Vector a, Vector b) { return _mm512_mulhrs_epi16(a, b); }
template <int kBits>
inline Vector down(Vector v) {
    return _mm512_srli_epi16(v, kBits);
}
inline Vector bits(Vector a, Vector b) { return _mm512_and_si512(a, b); }
inline Vector either(Vector a, Vector b) { return _mm512_or_si512(a, b); }
inline Vector shuffle(Vector v, Vector at) { return _mm512_shuffle_epi8(v, at); }
inline Vector weigh_pairs(Vector bytes, Vector weights) { return _mm512_maddubs_epi16(bytes, weights); }
inline Vector pack_in_lanes(Vector a, Vector b) { return _mm512_packus_epi16(a, b); }
inline Vector to_bytes(Vector a, Vector b) {
    return _mm512_permutexvar_epi64(_mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7), _mm512_packus_epi16(a, b));
}
inline Vector windows(const uint8_t* s, const int64_t* from) {
    Vector v = _mm512_castsi128_si512(window(s + from[0]));
    v = _mm512_mask_broadcast_i32x4(v, 0x00f0, window(s + from[1]));
    v = _mm512_mask_broadcast_i32x4(v, 0x0f00, window(s + from[2]));
    return _mm512_mask_broadcast_i32x4(v, 0xf000, window(s + from[3]));
}
#elif defined(__AVX2__)
#define TARN_VECTORS
using Vector = __m256i;
inline Vector load(const void* p) { return _mm256_loadu_si256(static_cast<const Vector*>(p)); }
inline void store(void* p, Vector v) { _mm256_storeu_si256(static_cast<Vector*>(p), v); }
inline Vector all16(int v) { return _mm256_set1_epi16(int16_t(v)); }
inline Vector add16(Vector a, Vector b) { return _mm256_add_epi16(a, b); }
inline Vector sub16(Vector a, Vector b) { return _mm256_sub_epi16(a, b); }
inline Vector multiply(Vector a, Vector b) { return _mm256_mulhrs_epi16(a, b); }
template <int kBits>
inline Vector down(Vector v) {
    return _mm256_srli_epi16(v, kBits);
}
inline Vector bits(Vector a, Vector b) { return _mm256_and_si256(a, b); }
inline Vector either(Vector a, Vector b) { return _mm256_or_si256(a, b); }
inline Vector shuffle(Vector v, Vector at) { return _mm256_shuffle_epi8(v, at); }
inline Vector weigh_pairs(Vector bytes, Vector weights) { return _mm256_maddubs_epi16(bytes, weights); }
inline Vector pack_in_lanes(Vector a, Vector b) { return _mm256_packus_epi16(a, b); }
inline Vector to_bytes(Vector a, Vector b) { return _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), 0xd8); }
inline Vector windows(const uint8_t* s, const int64_t* from) {
    return _mm256_inserti128_si256(_mm256_castsi128_si256(window(s + from[0])), window(s + from[1]), 1);
}
#elif defined(__SSSE3__)
#define TARN_VECTORS
using Vector = __m128i;
inline Vector load(const void* p) { return _mm_loadu_si128(static_cast<const Vector*>(p)); }
inline void store(void* p, Vector v) { _mm_storeu_si128(static_cast<Vector*>(p), v); }
inline Vector all16(int v) { return _mm_set1_epi16(int16_t(v)); }
inline Vector add16(Vector a, Vector b) { return _mm_add_epi16(a, b); }
inline Vector sub16(Vector a, Vector b) { return _mm_sub_epi16(a, b); }
inline Vector multiply(Vector a, Vector b) { return _mm_mulhrs_epi16(a, b); }
template <int kBits>
inline Vector down(Vector v) {
    return _mm_srli_epi16(v, kBits);
}
inline Vector bits(Vector a, Vector b) { return _mm_and_si128(a, b); }
inline Vector either(Vector a, Vector b) { return _mm_or_si128(a, b); }
inline Vector shuffle(Vector v, Vector at) { return _mm_shuffle_epi8(v, at); }
inline Vector weigh_pairs(Vector bytes, Vector weights) { return _mm_maddubs_epi16(bytes, weights); }
inline Vector pack_in_lanes(Vector a, Vector b) { return _mm_packus_epi16(a, b); }
inline Vector to_bytes(Vector a, Vector b) { return _mm_packus_epi16(a, b); }
inline Vector windows(const uint8_t* s, const int64_t* from) { return load(s + from[0]); }
#endif

#if defined(TARN_VECTORS)
constexpr int kBytes = int(sizeof(Vector));  // of a register
constexpr int kLanes = kBytes / 2;           // 16-bit ones

template <int kBits>
inline Vector round_even(Vector v) {
    constexpr int kHalf = 1 << (kBits - 1);
#if defined(__AVX512BW__)
    const __mmask32 is_odd = _mm512_test_epi16_mask(v, all16(1 << kBits));
    return down<kBits>(add16(v, _mm512_mask_mov_epi16(all16(kHalf - 1), is_odd, all16(kHalf))));
#else
    const Vector odd = bits(down<kBits>(v), all16(1));
    return down<kBits>(add16(add16(v, all16(kHalf - 1)), odd));
#endif
}

// Stores n bytes of a register, all that is left of a row; kKept: but no fourth of four.
template <bool kKept>
inline void store_some(uint8_t* dst, Vector v, int64_t n) {
#if defined(__AVX512BW__)
    const __mmask64 carried = kKept ? 0x7777777777777777 : ~__mmask64(0);
    _mm512_mask_storeu_epi8(dst, n < kBytes ? carried & ((__mmask64(1) << n) - 1) : carried, v);
#else
    uint8_t bytes[kBytes];
    store(bytes, v);
    for (int64_t i = 0; i < min<int64_t>(n, kBytes); ++i)
        if (!kKept || i % 4 != 3) dst[i] = bytes[i];
#endif
}
#endif

#if defined(TARN_VECTORS)
// The same 16 bytes for every 128-bit lane of a shuffle.
inline Vector in_every_lane(__m128i v) {
#if defined(__AVX512BW__)
    return _mm512_broadcast_i32x4(v);
#elif defined(__AVX2__)
    return _mm256_broadcastsi128_si256(v);
#else
    return v;
#endif
}

// Brings the first 12 bytes of every 128-bit lane together at the register's start.
inline Vector join_twelves(Vector v) {
#if defined(__AVX512BW__)
    return _mm512_permutexvar_epi32(_mm512_setr_epi32(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 3, 7, 11, 15), v);
#elif defined(__AVX2__)
    return _mm256_permutevar8x32_epi32(v, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
#else
    return v;
#endif
}

// Outputs of one register: a lane of three channels makes four whole pixels.
template <int kChannels>
constexpr int kHalfBytes = kChannels == 3 ? kBytes / 16 * 12 : kBytes;

// The means of 2 x 2 pixels: kHalfBytes bytes of outputs from kBytes * 2 bytes of each row.
template <int kChannels>
inline Vector half_vector(const uint8_t* upper, const uint8_t* lower) {
    const Vector ones = all16(0x0101);
    const auto mean = [&](Vector a, Vector b) {
        return round_even<2>(add16(weigh_pairs(a, ones), weigh_pairs(b, ones)));
    };
    if constexpr (kChannels == 3) {
        // A lane holds the four source pixels of one window of either kind; the bytes of two neighbours go together.
        static constexpr int64_t kEven[] = {0, 24, 48, 72}, kOdd[] = {12, 36, 60, 84};
        const Vector neighbours = in_every_lane(_mm_setr_epi8(0, 3, 1, 4, 2, 5, 6, 9, 7, 10, 8, 11, -1, -1, -1, -1));
        const Vector close_up = in_every_lane(_mm_setr_epi8(0, 1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13, -1, -1, -1, -1));
        const auto pairs = [&](const uint8_t* p, const int64_t* from) { return shuffle(windows(p, from), neighbours); };
        return join_twelves(shuffle(
            pack_in_lanes(mean(pairs(upper, kEven), pairs(lower, kEven)), mean(pairs(upper, kOdd), pairs(lower, kOdd))),
            close_up));
    } else {
        const Vector neighbours = in_every_lane(_mm_setr_epi8(0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15));
        const auto pairs = [&](const uint8_t* p) { return kChannels == 1 ? load(p) : shuffle(load(p), neighbours); };
        return to_bytes(mean(pairs(upper), pairs(lower)), mean(pairs(upper + kBytes), pairs(lower + kBytes)));
    }
}

template <int kChannels, bool kKept>
void half_row(const uint8_t* upper, const uint8_t* lower, int64_t n, uint8_t* dst) {
    constexpr int kStep = kHalfBytes<kChannels>;
    int64_t i = 0;
    for (; n - i >= kBytes; i += kStep) {  // of three channels a store overlaps the next
        const Vector v = half_vector<kChannels>(upper + 2 * i, lower + 2 * i);
        if (kKept)
            store_some<true>(dst + i, v, kBytes);
        else
            store(dst + i, v);
    }
    for (; i < n; i += kStep) {
        const int64_t count = min<int64_t>(kStep, n - i);
        uint8_t above[2 * kBytes] = {}, below[2 * kBytes] = {};
        memcpy(above, upper + 2 * i, size_t(2 * count));
        memcpy(below, lower + 2 * i, size_t(2 * count));
        store_some<kKept>(dst + i, half_vector<kChannels>(above, below), count);
    }
}

#else

template <int kChannels, bool kKept>
void half_row(const uint8_t* upper, const uint8_t* lower, int64_t n, uint8_t* dst) {
    for (int64_t i = 0; i < n; ++i) {
        if (kKept && i % 4 == 3) continue;
        const int64_t at = i / kChannels * 2 * kChannels + i % kChannels;
        dst[i] = uint8_t(round_even<2>(upper[at] + upper[at + kChannels] + lower[at] + lower[at + kChannels]));
    }
}

#endif

template <int kChannels, bool kKept>
Status half(const Job& j) {
    for (int64_t y = 0; y < j.dst_size.height; ++y) {
        const int64_t at = j.region.x * int64_t(kChannels);
        half_row<kChannels, kKept>(row<uint8_t>(j.src, j.src_stride, j.region.y + 2 * y) + at,
                                   row<uint8_t>(j.src, j.src_stride, j.region.y + 2 * y + 1) + at,
                                   int64_t(j.dst_size.width) * kChannels, row<uint8_t>(j.dst, j.dst_stride, y));
    }
    return kOk;
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
