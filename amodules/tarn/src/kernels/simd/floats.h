// For kernel sources only: the level's widest float vector, filled from elements of any type and stored as elements of
// any type, four vectors at a time. Values are those of saturate.h: floats go to the nearest integer, ties to the even
// one, and saturate; NaN gives the type's smallest value.
#pragma once

#include "kernels/base/body.h"
#include "kernels/plane/plane.h"
#include "kernels/simd/saturate.h"

namespace tarn::k::TARN_LEVEL {
namespace {

#if defined(__AVX512BW__)
#define TARN_F(op) _mm512_##op
using Floats = __m512;
using Ints = __m512i;
[[maybe_unused]] inline Floats load(const uint8_t* p) {
    return _mm512_cvtepi32_ps(_mm512_cvtepu8_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))));
}
[[maybe_unused]] inline Floats load(const int16_t* p) {
    return _mm512_cvtepi32_ps(_mm512_cvtepi16_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p))));
}
[[maybe_unused]] inline void store(void* p, Ints v) { _mm512_storeu_si512(p, v); }
// Packing works within 128-bit lanes: these put the lanes' parts in order.
[[maybe_unused]] inline Ints in_order(Ints packed_twice) {
    return _mm512_permutexvar_epi32(_mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15),
                                    packed_twice);
}
[[maybe_unused]] inline Ints in_order_pairs(Ints packed_once) {
    return _mm512_permutexvar_epi64(_mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7), packed_once);
}
// cvtps gives the smallest integer for what is out of range, which above 2^31 is the wrong end.
[[maybe_unused]] inline Ints nearest(Floats v) {
    const __mmask16 over = _mm512_cmp_ps_mask(v, _mm512_set1_ps(2147483648.0f), _CMP_GE_OQ);
    return _mm512_mask_mov_epi32(_mm512_cvtps_epi32(v), over, _mm512_set1_epi32(INT32_MAX));
}
#define TARN_PACK16 _mm512_packs_epi32
#define TARN_PACK8 _mm512_packus_epi16
#elif defined(__AVX2__)
#define TARN_F(op) _mm256_##op
using Floats = __m256;
using Ints = __m256i;
[[maybe_unused]] inline Floats load(const uint8_t* p) {
    return _mm256_cvtepi32_ps(_mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))));
}
[[maybe_unused]] inline Floats load(const int16_t* p) {
    return _mm256_cvtepi32_ps(_mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))));
}
[[maybe_unused]] inline void store(void* p, Ints v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }
[[maybe_unused]] inline Ints in_order(Ints packed_twice) {
    return _mm256_permutevar8x32_epi32(packed_twice, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}
[[maybe_unused]] inline Ints in_order_pairs(Ints packed_once) { return _mm256_permute4x64_epi64(packed_once, 0xd8); }
[[maybe_unused]] inline Ints nearest(Floats v) {
    const Floats over = _mm256_cmp_ps(v, _mm256_set1_ps(2147483648.0f), _CMP_GE_OQ);
    return _mm256_xor_si256(_mm256_cvtps_epi32(v), _mm256_castps_si256(over));  // the smallest becomes the largest
}
#define TARN_PACK16 _mm256_packs_epi32
#define TARN_PACK8 _mm256_packus_epi16
#elif defined(__SSE2__)
#define TARN_F(op) _mm_##op
using Floats = __m128;
using Ints = __m128i;
[[maybe_unused]] inline Floats load(const uint8_t* p) {
    int32_t bytes;
    memcpy(&bytes, p, 4);
    const Ints zero = _mm_setzero_si128();
    return _mm_cvtepi32_ps(_mm_unpacklo_epi16(_mm_unpacklo_epi8(_mm_cvtsi32_si128(bytes), zero), zero));
}
[[maybe_unused]] inline Floats load(const int16_t* p) {
    const Ints v = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
    return _mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpacklo_epi16(v, v), 16));
}
[[maybe_unused]] inline void store(void* p, Ints v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }
[[maybe_unused]] inline Ints in_order(Ints packed_twice) { return packed_twice; }
[[maybe_unused]] inline Ints in_order_pairs(Ints packed_once) { return packed_once; }
[[maybe_unused]] inline Ints nearest(Floats v) {
    const Floats over = _mm_cmpge_ps(v, _mm_set1_ps(2147483648.0f));
    return _mm_xor_si128(_mm_cvtps_epi32(v), _mm_castps_si128(over));
}
#define TARN_PACK16 _mm_packs_epi32
#define TARN_PACK8 _mm_packus_epi16
#endif

#if defined(TARN_F)
constexpr int kFloats = sizeof(Floats) / 4;
[[maybe_unused]] inline Floats load(const float* p) { return TARN_F(loadu_ps)(p); }
[[maybe_unused]] inline Floats all(float v) { return TARN_F(set1_ps)(v); }
[[maybe_unused]] inline Floats add(Floats a, Floats b) { return TARN_F(add_ps)(a, b); }
[[maybe_unused]] inline Floats mul(Floats a, Floats b) { return TARN_F(mul_ps)(a, b); }
// Rounded integers, cut from above only: what is below, and NaN, becomes the smallest integer, which packing saturates.
[[maybe_unused]] inline Ints nearest_below(Floats v, float top) {
    return TARN_F(cvtps_epi32)(TARN_F(min_ps)(TARN_F(set1_ps)(top), v));  // in this order: NaN stays
}
[[maybe_unused]] inline void store4(uint8_t* p, Floats a, Floats b, Floats c, Floats d) {
    store(p, in_order(TARN_PACK8(TARN_PACK16(nearest_below(a, 255), nearest_below(b, 255)),
                                 TARN_PACK16(nearest_below(c, 255), nearest_below(d, 255)))));
}
[[maybe_unused]] inline void store4(int16_t* p, Floats a, Floats b, Floats c, Floats d) {
    store(p, in_order_pairs(TARN_PACK16(nearest_below(a, 32767), nearest_below(b, 32767))));
    store(p + 2 * kFloats, in_order_pairs(TARN_PACK16(nearest_below(c, 32767), nearest_below(d, 32767))));
}
[[maybe_unused]] inline void store4(int32_t* p, Floats a, Floats b, Floats c, Floats d) {
    store(p, nearest(a));
    store(p + kFloats, nearest(b));
    store(p + 2 * kFloats, nearest(c));
    store(p + 3 * kFloats, nearest(d));
}
[[maybe_unused]] inline void store4(float* p, Floats a, Floats b, Floats c, Floats d) {
    TARN_F(storeu_ps)(p, a);
    TARN_F(storeu_ps)(p + kFloats, b);
    TARN_F(storeu_ps)(p + 2 * kFloats, c);
    TARN_F(storeu_ps)(p + 3 * kFloats, d);
}
#undef TARN_F
#undef TARN_PACK16
#undef TARN_PACK8
#else
using Floats = float __attribute__((vector_size(16)));
constexpr int kFloats = 4;
template <class S>
[[maybe_unused]] inline Floats load(const S* p) {
    return Floats{saturate<float, S>(p[0]), saturate<float, S>(p[1]), saturate<float, S>(p[2]),
                  saturate<float, S>(p[3])};
}
[[maybe_unused]] inline Floats all(float v) { return Floats{v, v, v, v}; }
[[maybe_unused]] inline Floats add(Floats a, Floats b) { return a + b; }
[[maybe_unused]] inline Floats mul(Floats a, Floats b) { return a * b; }
template <class D>
[[maybe_unused]] inline void store4(D* p, Floats a, Floats b, Floats c, Floats d) {
    for (int e = 0; e < 4; ++e) {
        p[e] = saturate<D, float>(a[e]);
        p[4 + e] = saturate<D, float>(b[e]);
        p[8 + e] = saturate<D, float>(c[e]);
        p[12 + e] = saturate<D, float>(d[e]);
    }
}
#endif

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
