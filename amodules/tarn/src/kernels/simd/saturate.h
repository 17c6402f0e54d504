// For kernel sources only: one element converted to another type, saturated to its range. Floats go to the nearest
// integer, ties to the even one; NaN gives the type's smallest value. Written without library calls and branches, so
// that loops over these functions become vectors at every level.
#pragma once

#include "kernels/base/body.h"
#include "kernels/plane/plane.h"
#include "kernels/simd/round.h"

namespace tarn::k::TARN_LEVEL {
namespace {

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
[[maybe_unused]] inline uint8_t saturate(float v) {
    return round_to<uint8_t>(v);
}
template <>
[[maybe_unused]] inline int16_t saturate(float v) {
    return round_to<int16_t>(v);
}
template <>
[[maybe_unused]] inline int32_t saturate(float v) {
    return round_to<int32_t>(v);
}
template <>
[[maybe_unused]] inline float saturate(float v) {
    return v;
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
