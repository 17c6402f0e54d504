// The instructions of 64-byte vectors, made of those of half the width, so that their code is tried on machines without
// them. Included before all else in kernel sources that are built for level 3's processors. SIMDe has most of the
// functions; those that it lacks, or takes with other parameters, follow.
#pragma once

#include <immintrin.h>
#include <stdint.h>
#include <string.h>

#define SIMDE_ENABLE_NATIVE_ALIASES
#include <simde/x86/avx512.h>

#define TARN_EMULATED 1
#define __AVX512BW__ 1

namespace tarn_emulated {

using I = simde__m512i;
using F = simde__m512;
using D = simde__m512d;
inline simde__m512i_private parts(I v) { return simde__m512i_to_private(v); }
inline simde__m512_private parts(F v) { return simde__m512_to_private(v); }
inline simde__m512d_private parts(D v) { return simde__m512d_to_private(v); }
inline I whole(simde__m512i_private v) { return simde__m512i_from_private(v); }
inline D whole(simde__m512d_private v) { return simde__m512d_from_private(v); }

// Both halves' results.
template <class Op>
inline I of_halves(Op op, I a) {
    auto v = parts(a);
    for (auto& half : v.m256i) half = op(half);
    return whole(v);
}
template <class Op>
inline I of_halves(Op op, I a, I b) {
    auto v = parts(a);
    for (int i = 0; i < 2; ++i) v.m256i[i] = op(v.m256i[i], parts(b).m256i[i]);
    return whole(v);
}
inline I madd_epi16(I a, I b) {
    return of_halves([](auto a, auto b) { return _mm256_madd_epi16(a, b); }, a, b);
}
inline I mulhi_epu16(I a, I b) {
    return of_halves([](auto a, auto b) { return _mm256_mulhi_epu16(a, b); }, a, b);
}

// a + b and a * b where of two NaN the first wins, as the instructions answer.
template <class Op, class V>
inline V ordered(Op op, V a, V b) {
    __m256 v[2], w[2];
    memcpy(v, &a, sizeof v), memcpy(w, &b, sizeof w);
    for (int i = 0; i < 2; ++i) op(v[i], w[i]);
    memcpy(&a, v, sizeof v);
    return a;
}
template <class V>
inline V add_ordered(V a, V b) {
    return ordered([](__m256& v, __m256 w) { asm("vaddps %1, %0, %0" : "+x"(v) : "x"(w)); }, a, b);
}
template <class V>
inline V mul_ordered(V a, V b) {
    return ordered([](__m256& v, __m256 w) { asm("vmulps %1, %0, %0" : "+x"(v) : "x"(w)); }, a, b);
}

// A bit for each pair of elements that compare so, by the codes of integers' comparisons.
template <class Element, int kBytes, class V>
inline uint64_t compare(V a, V b, int how) {
    Element v[kBytes / sizeof(Element)], w[kBytes / sizeof(Element)];
    memcpy(v, &a, kBytes), memcpy(w, &b, kBytes);
    uint64_t bits = 0;
    for (size_t i = 0; i < kBytes / sizeof(Element); ++i) {
        const bool holds[] = {v[i] == w[i], v[i]<w[i], v[i] <= w[i], false, v[i] != w[i], v[i] >= w[i], v[i]> w[i]};
        bits |= uint64_t(holds[how]) << i;
    }
    return bits;
}

inline I joined(__m256i lower, __m256i upper) {
    simde__m512i_private v;
    v.m256i[0] = lower, v.m256i[1] = upper;
    return whole(v);
}
inline __m128i upper_half(__m256i a) { return _mm256_extracti128_si256(a, 1); }
inline I cvtepu8_epi16(__m256i a) {
    return joined(_mm256_cvtepu8_epi16(_mm256_castsi256_si128(a)), _mm256_cvtepu8_epi16(upper_half(a)));
}
inline I cvtepu8_epi32(__m128i a) {
    return joined(_mm256_cvtepu8_epi32(a), _mm256_cvtepu8_epi32(_mm_srli_si128(a, 8)));
}
inline I cvtepi16_epi32(__m256i a) {
    return joined(_mm256_cvtepi16_epi32(_mm256_castsi256_si128(a)), _mm256_cvtepi16_epi32(upper_half(a)));
}
inline I cvtps_epi32(F a) { return joined(_mm256_cvtps_epi32(parts(a).m256[0]), _mm256_cvtps_epi32(parts(a).m256[1])); }
inline D cvtps_pd(__m256 a) {
    simde__m512d_private v;
    v.m256d[0] = _mm256_cvtps_pd(_mm256_castps256_ps128(a));
    v.m256d[1] = _mm256_cvtps_pd(_mm256_extractf128_ps(a, 1));
    return whole(v);
}
inline __m256 cvtpd_ps(D a) {
    return _mm256_set_m128(_mm256_cvtpd_ps(parts(a).m256d[1]), _mm256_cvtpd_ps(parts(a).m256d[0]));
}

// Bytes, and elements, whose bits are set. The others of memory are not touched.
inline I mask_loadu_epi8(I others, uint64_t bits, const void* p) {
    auto v = parts(others);
    for (int i = 0; i < 64; ++i)
        if (bits >> i & 1) v.u8[i] = static_cast<const uint8_t*>(p)[i];
    return whole(v);
}
template <size_t kBytes>
inline void mask_storeu(void* p, uint64_t bits, I v) {
    const auto bytes = parts(v);
    for (size_t i = 0; i < 64; ++i)
        if (bits >> i / kBytes & 1) static_cast<uint8_t*>(p)[i] = bytes.u8[i];
}
inline void stream(void* p, I v) {  // to aligned places alone, as the instruction
    if (reinterpret_cast<uint64_t>(p) % sizeof v) __builtin_trap();
    memcpy(p, &v, sizeof v);
}

}  // namespace tarn_emulated

#undef _mm512_madd_epi16
#undef _mm512_mulhi_epu16
#undef _mm512_shuffle_epi32
#undef _mm512_cmp_epi16_mask
#undef _mm512_cmp_epu8_mask
#undef _mm512_cmpneq_epi64_mask
#undef _mm256_cmple_epu16_mask
#undef _mm512_mask_cmp_ps_mask
#undef _mm512_cvtepu8_epi16
#undef _mm512_cvtepu8_epi32
#undef _mm512_cvtepi16_epi32
#undef _mm512_cvtps_epi32
#undef _mm512_cvtps_pd
#undef _mm512_cvtpd_ps
#undef _mm512_extractf32x8_ps
#undef _mm512_mask_loadu_epi8
#undef _mm512_mask_storeu_epi8
#undef _mm512_mask_storeu_epi16
#undef _mm512_mask_storeu_epi32
#undef _mm512_stream_si512
#define _mm512_madd_epi16 tarn_emulated::madd_epi16
#define _mm512_mulhi_epu16 tarn_emulated::mulhi_epu16
#define _mm512_shuffle_epi32(v, how) \
    tarn_emulated::of_halves([](auto half) { return _mm256_shuffle_epi32(half, how); }, tarn_emulated::I(v))
#define _mm512_cmp_epi16_mask tarn_emulated::compare<int16_t, 64>
#define _mm512_cmp_epu8_mask tarn_emulated::compare<uint8_t, 64>
#define _mm512_cmpneq_epi64_mask(a, b) tarn_emulated::compare<int64_t, 64>(a, b, _MM_CMPINT_NE)
#define _mm256_cmple_epu16_mask(a, b) tarn_emulated::compare<uint16_t, 32>(a, b, _MM_CMPINT_LE)
#define _mm512_mask_cmp_ps_mask(bits, a, b, how) __mmask16((bits)&_mm512_cmp_ps_mask(a, b, how))
#define _mm512_cvtepu8_epi16 tarn_emulated::cvtepu8_epi16
#define _mm512_cvtepu8_epi32 tarn_emulated::cvtepu8_epi32
#define _mm512_cvtepi16_epi32 tarn_emulated::cvtepi16_epi32
#define _mm512_cvtps_epi32 tarn_emulated::cvtps_epi32
#define _mm512_cvtps_pd tarn_emulated::cvtps_pd
#define _mm512_cvtpd_ps tarn_emulated::cvtpd_ps
#define _mm512_extractf32x8_ps(v, half) tarn_emulated::parts(v).m256[half]
#define _mm512_mask_loadu_epi8 tarn_emulated::mask_loadu_epi8
#define _mm512_mask_storeu_epi8 tarn_emulated::mask_storeu<1>
#define _mm512_mask_storeu_epi16 tarn_emulated::mask_storeu<2>
#define _mm512_mask_storeu_epi32 tarn_emulated::mask_storeu<4>
#define _mm512_stream_si512 tarn_emulated::stream
