// For kernel sources only: one element converted to another type, saturated to its range. Floats go to the nearest
// integer, ties to the even one; NaN gives the type's smallest value. Written without library calls and branches, so
// that loops over these functions become vectors at every level.
#pragma once

#include "kernels/base/body.h"
#include "kernels/plane/plane.h"

namespace tarn::k::TARN_LEVEL {
namespace {

template <class D>
struct Limits;
template <>
struct Limits<uint8_t> {
    static constexpr int32_t kMin = 0, kMax = 255;
};
template <>
struct Limits<int16_t> {
    static constexpr int32_t kMin = -32768, kMax = 32767;
};

// Integers to integers.
template <class D, class S>
[[maybe_unused]] inline D saturate(S v) {
    return D(clamp<int32_t>(v, Limits<D>::kMin, Limits<D>::kMax));
}
template <>
[[maybe_unused]] inline uint8_t saturate(int16_t v) {
    return uint8_t(clamp<int16_t>(v, 0, 255));  // in 16 bits: twice as many to a vector
}
template <>
[[maybe_unused]] inline int16_t saturate(uint8_t v) {
    return v;
}
template <>
[[maybe_unused]] inline int32_t saturate(uint8_t v) {
    return v;
}
template <>
[[maybe_unused]] inline int32_t saturate(int16_t v) {
    return v;
}

// Anything to floats; 32-bit integers are rounded to the nearest float.
template <>
[[maybe_unused]] inline float saturate(uint8_t v) {
    return float(int32_t(v));
}
template <>
[[maybe_unused]] inline float saturate(int16_t v) {
    return float(int32_t(v));
}
template <>
[[maybe_unused]] inline float saturate(int32_t v) {
    return float(v);
}
template <>
[[maybe_unused]] inline float saturate(float v) {
    return v;
}

// Floats to 8 and 16 bits. In range, the sum with 1.5 x 2^23 has a last place of 1: its low bits are the rounded value.
template <class D>
[[maybe_unused]] inline D saturate_small(float v) {
    constexpr float kMin = Limits<D>::kMin, kMax = Limits<D>::kMax;
    v = v > kMin ? v : kMin;  // in this order: NaN gives kMin
    v = v < kMax ? v : kMax;
    return D(__builtin_bit_cast(int32_t, v + 12582912.0f) - 0x4b400000);
}
template <>
[[maybe_unused]] inline uint8_t saturate(float v) {
    return saturate_small<uint8_t>(v);
}
template <>
[[maybe_unused]] inline int16_t saturate(float v) {
    return saturate_small<int16_t>(v);
}

// Floats to 32 bits. Below 2^23 a sum with 2^23 of the same sign rounds; from there on every float is an integer.
template <>
[[maybe_unused]] inline int32_t saturate(float v) {
    constexpr float kTwo23 = 8388608.0f, kTwo31 = 2147483648.0f;
    const float shift = v < 0 ? -kTwo23 : kTwo23;
    const float whole = v > -kTwo23 && v < kTwo23 ? (v + shift) - shift : v;
    return v >= kTwo31 ? INT32_MAX : v >= -kTwo31 ? int32_t(whole) : INT32_MIN;
}

// Moves n pixels of four elements from a buffer to d, the fourth element of d kept. Whole pixels as integers: they need
// not be aligned as such.
template <class D>
[[maybe_unused]] inline void blend_c3x(const D* TARN_RESTRICT buffer, D* TARN_RESTRICT d, int64_t n) {
    static_assert(sizeof(D) == 4);
    int64_t x = 0;
#if defined(__AVX512F__)
    for (; x + 4 <= n; x += 4) _mm512_mask_storeu_epi32(d + 4 * x, 0x7777, _mm512_loadu_si512(buffer + 4 * x));
#endif
    for (; x < n; ++x) memcpy(d + 4 * x, buffer + 4 * x, 12);
}
template <>
[[maybe_unused]] inline void blend_c3x(const uint8_t* TARN_RESTRICT buffer, uint8_t* TARN_RESTRICT d, int64_t n) {
    for (int64_t x = 0; x < n; ++x) {
        uint32_t a, b;
        memcpy(&a, buffer + 4 * x, 4);
        memcpy(&b, d + 4 * x, 4);
        b = (a & 0x00ffffff) | (b & 0xff000000);
        memcpy(d + 4 * x, &b, 4);
    }
}
template <>
[[maybe_unused]] inline void blend_c3x(const int16_t* TARN_RESTRICT buffer, int16_t* TARN_RESTRICT d, int64_t n) {
    for (int64_t x = 0; x < n; ++x) {
        uint64_t a, b;
        memcpy(&a, buffer + 4 * x, 8);
        memcpy(&b, d + 4 * x, 8);
        b = (a & 0x0000ffffffffffff) | (b & 0xffff000000000000);
        memcpy(d + 4 * x, &b, 8);
    }
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
