// The words of 64-byte vectors: AVX-512 F, CD, BW, DQ, VL. For simd.h only. TARN_EMULATED: the tests' build for
// machines without their registers.
#pragma once

namespace tarn::k::TARN_LEVEL {
namespace {

// ---- Parts --------------------------------------------------------------------------------------------------------

// A bit for each of the first n bytes, 0 <= n <= 64.
inline __mmask64 first_bytes(int64_t n) { return _bzhi_u64(~uint64_t(0), unsigned(n)); }

// The first n bytes at p, 0 <= n <= kVector, and behind them those of `others`.
template <class V>
inline V load_n(const void* p, int64_t n, V others) {
    return (V)_mm512_mask_loadu_epi8((__m512i)others, first_bytes(n), p);
}
template <class V>
inline void store_n(void* p, V v, int64_t n) {
    _mm512_mask_storeu_epi8(p, first_bytes(n), (__m512i)v);
}

// Stores the bytes whose mask is all ones. One instruction with a constant mask.
template <class V>
inline void store_where(void* p, Bytes mask, V v) {
    _mm512_mask_storeu_epi8(p, _mm512_movepi8_mask((__m512i)mask), (__m512i)v);
}
template <class V>
inline void store_where_n(void* p, Bytes mask, V v, int64_t n) {
    _mm512_mask_storeu_epi8(p, _mm512_movepi8_mask((__m512i)mask) & first_bytes(n), (__m512i)v);
}

// v, in a register: of a vector that several steps take compilers else read it from memory in each.
template <class V>
inline V in_register(V v) {
#ifndef TARN_EMULATED
    asm("" : "+v"(v));
#endif
    return v;
}

// The 16 bytes at each of kGroups addresses, a group each, read and written.
[[gnu::always_inline]] inline Bytes load_groups(const uint8_t* base, const int64_t* from) {
    const auto group = [&](int i) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(base + from[i])); };
    __m512i v = _mm512_castsi128_si512(group(0));
    v = _mm512_mask_broadcast_i32x4(v, 0x00f0, group(1));
    v = _mm512_mask_broadcast_i32x4(v, 0x0f00, group(2));
    return (Bytes)_mm512_mask_broadcast_i32x4(v, 0xf000, group(3));
}
[[gnu::always_inline]] inline void store_groups(uint8_t* base, const int64_t* to, Bytes v) {
    const auto group = [&](int i) { return reinterpret_cast<__m128i*>(base + to[i]); };
    _mm_storeu_si128(group(0), _mm512_castsi512_si128((__m512i)v));
    _mm_storeu_si128(group(1), _mm512_extracti32x4_epi32((__m512i)v, 1));
    _mm_storeu_si128(group(2), _mm512_extracti32x4_epi32((__m512i)v, 2));
    _mm_storeu_si128(group(3), _mm512_extracti32x4_epi32((__m512i)v, 3));
}

// Elements from addresses of their own, base + at[...], without gathers, which are slow on many processors. Of each
// group: the 16 bytes at at[step g], and 8 bytes each at at[step g] and the next.
inline __m512i joined(__m128i a, __m128i b, __m128i c, __m128i d) {
    return _mm512_inserti64x4(_mm512_castsi256_si512(_mm256_inserti128_si256(_mm256_castsi128_si256(a), b, 1)),
                              _mm256_inserti128_si256(_mm256_castsi128_si256(c), d, 1), 1);
}
[[gnu::always_inline]] inline Bytes load_groups(const uint8_t* base, const int32_t* at, int step) {
    const int64_t from[] = {at[0], at[step], at[2 * step], at[3 * step]};
    return load_groups(base, from);
}
[[gnu::always_inline]] inline Bytes load_halves(const uint8_t* base, const int32_t* at, int step) {
    const auto half = [&](int i) { return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(base + at[i])); };
    const auto both = [&](int i) {
        return _mm_castps_si128(
            _mm_loadh_pi(_mm_castsi128_ps(half(i)), reinterpret_cast<const __m64*>(base + at[i + 1])));
    };
    return (Bytes)joined(both(0), both(step), both(2 * step), both(3 * step));
}
// A vector of 4 bytes each.
[[gnu::always_inline]] inline Bytes load_quarters(const uint8_t* base, const int32_t* at) {
    const auto quarter = [&](int i) { return *reinterpret_cast<const Loose<int32_t>*>(base + at[i]); };
    const auto four = [&](int i) { return _mm_setr_epi32(quarter(i), quarter(i + 1), quarter(i + 2), quarter(i + 3)); };
    return (Bytes)joined(four(0), four(4), four(8), four(12));
}
// A vector of 2 bytes each, widened.
[[gnu::always_inline]] inline S16 load_pairs(const uint8_t* base, const int32_t* at) {
    const auto pair = [&](int i) { return *reinterpret_cast<const Loose<int16_t>*>(base + at[i]); };
    const auto eight = [&](int i) {
        return _mm_setr_epi16(pair(i), pair(i + 1), pair(i + 2), pair(i + 3), pair(i + 4), pair(i + 5), pair(i + 6),
                              pair(i + 7));
    };
    return (S16)_mm512_cvtepu8_epi16(_mm256_inserti128_si256(_mm256_castsi128_si256(eight(0)), eight(8), 1));
}

// Stores around the cache; p is aligned to the vector.
inline void stream(void* p, Bytes v) { _mm512_stream_si512(static_cast<__m512i*>(p), (__m512i)v); }
// A group to each of kGroups addresses, aligned to 16 bytes.
inline void stream_groups(uint8_t* base, const int64_t* to, Bytes v) {
    const auto group = [&](int i) { return reinterpret_cast<__m128i*>(base + to[i]); };
    _mm_stream_si128(group(0), _mm512_castsi512_si128((__m512i)v));
    _mm_stream_si128(group(1), _mm512_extracti32x4_epi32((__m512i)v, 1));
    _mm_stream_si128(group(2), _mm512_extracti32x4_epi32((__m512i)v, 2));
    _mm_stream_si128(group(3), _mm512_extracti32x4_epi32((__m512i)v, 3));
}
// Orders streamed stores before those that follow.
inline void stream_fence() { _mm_sfence(); }

// ---- Arithmetic ---------------------------------------------------------------------------------------------------

inline U8 saturated_add(U8 a, U8 b) { return (U8)_mm512_adds_epu8((__m512i)a, (__m512i)b); }
inline S16 saturated_add(S16 a, S16 b) { return (S16)_mm512_adds_epi16((__m512i)a, (__m512i)b); }
inline U8 saturated_sub(U8 a, U8 b) { return (U8)_mm512_subs_epu8((__m512i)a, (__m512i)b); }
inline S16 saturated_sub(S16 a, S16 b) { return (S16)_mm512_subs_epi16((__m512i)a, (__m512i)b); }
inline U8 min(U8 a, U8 b) { return (U8)_mm512_min_epu8((__m512i)a, (__m512i)b); }
inline U8 max(U8 a, U8 b) { return (U8)_mm512_max_epu8((__m512i)a, (__m512i)b); }
inline S16 min(S16 a, S16 b) { return (S16)_mm512_min_epi16((__m512i)a, (__m512i)b); }
inline S16 max(S16 a, S16 b) { return (S16)_mm512_max_epi16((__m512i)a, (__m512i)b); }
inline U16 min(U16 a, U16 b) { return (U16)_mm512_min_epu16((__m512i)a, (__m512i)b); }
inline S32 min(S32 a, S32 b) { return (S32)_mm512_min_epi32((__m512i)a, (__m512i)b); }
inline S32 max(S32 a, S32 b) { return (S32)_mm512_max_epi32((__m512i)a, (__m512i)b); }
inline U32 max(U32 a, U32 b) { return (U32)_mm512_max_epu32((__m512i)a, (__m512i)b); }
// b where either is NaN, and of two zeros.
inline F32 min(F32 a, F32 b) { return (F32)_mm512_min_ps((__m512)a, (__m512)b); }
inline F32 max(F32 a, F32 b) { return (F32)_mm512_max_ps((__m512)a, (__m512)b); }
inline F64 min(F64 a, F64 b) { return (F64)_mm512_min_pd((__m512d)a, (__m512d)b); }
inline F64 max(F64 a, F64 b) { return (F64)_mm512_max_pd((__m512d)a, (__m512d)b); }
// a + b and a * b where of two NaN the first wins: the processor's own answer. Compilers swap the operands of their own
// + and *.
#ifdef TARN_EMULATED
using tarn_emulated::add_ordered, tarn_emulated::mul_ordered;
#else
inline F32 add_ordered(F32 a, F32 b) {
    F32 r;
    asm("vaddps %2, %1, %0" : "=v"(r) : "v"(a), "v"(b));
    return r;
}
inline F32 mul_ordered(F32 a, F32 b) {
    F32 r;
    asm("vmulps %2, %1, %0" : "=v"(r) : "v"(a), "v"(b));
    return r;
}
#endif
// (a + b + 1) / 2.
inline U8 average(U8 a, U8 b) { return (U8)_mm512_avg_epu8((__m512i)a, (__m512i)b); }
// The upper halves of the products.
inline S16 mul_high(S16 a, S16 b) { return (S16)_mm512_mulhi_epi16((__m512i)a, (__m512i)b); }
inline U16 mul_high(U16 a, U16 b) { return (U16)_mm512_mulhi_epu16((__m512i)a, (__m512i)b); }
// Products of fractions of 15 bits, rounded: (a * b + 0x4000) >> 15.
inline S16 mul_fixed15(S16 a, S16 b) { return (S16)_mm512_mulhrs_epi16((__m512i)a, (__m512i)b); }
// Products of neighbours, added in pairs, saturated: a[2i] b[2i] + a[2i + 1] b[2i + 1].
inline S16 mul_add_pairs(U8 a, S8 b) { return (S16)_mm512_maddubs_epi16((__m512i)a, (__m512i)b); }
inline S32 mul_add_pairs(S16 a, S16 b) { return (S32)_mm512_madd_epi16((__m512i)a, (__m512i)b); }
// a + b in 16 bits, of the groups' lower and upper halves.
inline U16 widening_add_lower(U8 a, U8 b) {
    return (U16)_mm512_maddubs_epi16(_mm512_unpacklo_epi8((__m512i)a, (__m512i)b), _mm512_set1_epi8(1));
}
inline U16 widening_add_upper(U8 a, U8 b) {
    return (U16)_mm512_maddubs_epi16(_mm512_unpackhi_epi8((__m512i)a, (__m512i)b), _mm512_set1_epi8(1));
}
// Sums of eight bytes each.
inline U64 sums_of_8(U8 v) { return (U64)_mm512_sad_epu8((__m512i)v, (__m512i)U8{}); }
// a * b + c, rounded once.
inline F32 mul_add(F32 a, F32 b, F32 c) { return (F32)_mm512_fmadd_ps((__m512)a, (__m512)b, (__m512)c); }
// Element i: the sum of v[i]'s elements, those 8 apart added first, then those 4, 2 and 1 apart. Each step adds to
// elements of two vectors their partners, which a permute brings.
inline F32 sums_of_each(const F32 (&v)[16]) {
    const __m512i by8 = _mm512_setr_epi32(8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23);
    const __m512i by4 = _mm512_setr_epi32(4, 5, 6, 7, 16, 17, 18, 19, 12, 13, 14, 15, 24, 25, 26, 27);
    const __m512i by2 = _mm512_setr_epi32(2, 3, 16, 17, 6, 7, 20, 21, 10, 11, 24, 25, 14, 15, 28, 29);
    const __m512i by1 = _mm512_setr_epi32(1, 16, 3, 18, 5, 20, 7, 22, 9, 24, 11, 26, 13, 28, 15, 30);
    const auto fold = [](__m512 a, __m512 b, __mmask16 mask, __m512i partners) {
        return _mm512_add_ps(_mm512_mask_blend_ps(mask, a, b), _mm512_permutex2var_ps(a, partners, b));
    };
    __m512 a[8];
    for (int i = 0; i < 8; ++i) a[i] = fold((__m512)v[i], (__m512)v[i + 8], 0xff00, by8);
    for (int i = 0; i < 4; ++i) a[i] = fold(a[i], a[i + 4], 0xf0f0, by4);
    for (int i = 0; i < 2; ++i) a[i] = fold(a[i], a[i + 2], 0xcccc, by2);
    return (F32)fold(a[0], a[1], 0xaaaa, by1);
}

// counts + 1 where a <= b, and where lower <= v <= upper.
inline U8 count_le(U8 counts, U8 a, U8 b) {
    const __mmask64 in = _mm512_cmple_epu8_mask((__m512i)a, (__m512i)b);
    return (U8)_mm512_mask_sub_epi8((__m512i)counts, in, (__m512i)counts, _mm512_set1_epi8(-1));
}
inline U32 count_within(U32 counts, F32 v, F32 lower, F32 upper) {
    const __mmask16 above = _mm512_cmp_ps_mask((__m512)v, (__m512)lower, _CMP_GE_OQ);
    const __mmask16 in = _mm512_mask_cmp_ps_mask(above, (__m512)v, (__m512)upper, _CMP_LE_OQ);
    return (U32)_mm512_mask_sub_epi32((__m512i)counts, in, (__m512i)counts, _mm512_set1_epi32(-1));
}
// v + more, and one more than that where v has a bit of `odd`.
inline U16 add_and_carry(U16 v, uint16_t more, uint16_t odd) {
    const __mmask32 is_odd = _mm512_test_epi16_mask((__m512i)v, _mm512_set1_epi16(int16_t(odd)));
    const __m512i added =
        _mm512_mask_mov_epi16(_mm512_set1_epi16(int16_t(more)), is_odd, _mm512_set1_epi16(int16_t(more + 1)));
    return v + (U16)added;
}
// v, or the one NaN where v is any.
inline F32 settle_nan(F32 v) {
    const __mmask16 nan = _mm512_cmp_ps_mask((__m512)v, (__m512)v, _CMP_UNORD_Q);
    return (F32)_mm512_mask_mov_ps((__m512)v, nan, _mm512_set1_ps(__builtin_nanf("")));
}

// ---- Moves within groups ------------------------------------------------------------------------------------------

inline Bytes interleave_lower8(Bytes a, Bytes b) { return (Bytes)_mm512_unpacklo_epi8((__m512i)a, (__m512i)b); }
inline Bytes interleave_upper8(Bytes a, Bytes b) { return (Bytes)_mm512_unpackhi_epi8((__m512i)a, (__m512i)b); }
inline Bytes interleave_lower16(Bytes a, Bytes b) { return (Bytes)_mm512_unpacklo_epi16((__m512i)a, (__m512i)b); }
inline Bytes interleave_upper16(Bytes a, Bytes b) { return (Bytes)_mm512_unpackhi_epi16((__m512i)a, (__m512i)b); }
inline Bytes interleave_lower32(Bytes a, Bytes b) { return (Bytes)_mm512_unpacklo_epi32((__m512i)a, (__m512i)b); }
inline Bytes interleave_upper32(Bytes a, Bytes b) { return (Bytes)_mm512_unpackhi_epi32((__m512i)a, (__m512i)b); }
inline Bytes interleave_lower64(Bytes a, Bytes b) { return (Bytes)_mm512_unpacklo_epi64((__m512i)a, (__m512i)b); }
inline Bytes interleave_upper64(Bytes a, Bytes b) { return (Bytes)_mm512_unpackhi_epi64((__m512i)a, (__m512i)b); }
// Each group: elements 0 and 2, or 1 and 3, of four bytes of a's group, then of b's.
inline Bytes even32(Bytes a, Bytes b) { return (Bytes)_mm512_shuffle_ps((__m512)a, (__m512)b, 0x88); }
inline Bytes odd32(Bytes a, Bytes b) { return (Bytes)_mm512_shuffle_ps((__m512)a, (__m512)b, 0xdd); }
// a's even groups, then b's; and the odd ones.
inline Bytes even_groups(Bytes a, Bytes b) { return (Bytes)_mm512_shuffle_i32x4((__m512i)a, (__m512i)b, 0x88); }
inline Bytes odd_groups(Bytes a, Bytes b) { return (Bytes)_mm512_shuffle_i32x4((__m512i)a, (__m512i)b, 0xdd); }
// One element of four bytes of each group, four times.
template <int kElement>
inline Bytes repeat32(Bytes v) {
    return (Bytes)_mm512_shuffle_epi32((__m512i)v, _MM_PERM_ENUM(kElement * 0x55));
}
// Narrowed with saturation: each group holds a's of the group, then b's. Undoes both interleaves.
inline U8 narrow_groups_u8(S16 a, S16 b) { return (U8)_mm512_packus_epi16((__m512i)a, (__m512i)b); }
inline S8 narrow_groups(S16 a, S16 b) { return (S8)_mm512_packs_epi16((__m512i)a, (__m512i)b); }
inline S16 narrow_groups(S32 a, S32 b) { return (S16)_mm512_packs_epi32((__m512i)a, (__m512i)b); }
// a where the mask's bytes are all ones, b where they are zero.
inline Bytes blend(Bytes mask, Bytes a, Bytes b) { return select(mask, a, b); }
// Byte i of each group is byte index[i] of v's group; 0 where the index has its top bit.
inline Bytes lookup(Bytes v, Bytes index) { return (Bytes)_mm512_shuffle_epi8((__m512i)v, (__m512i)index); }
// The same with the byte of `rest` where the index has its top bit. Elsewhere rest is zero.
inline Bytes lookup_or(Bytes v, Bytes index, Bytes rest) {
    return (Bytes)_mm512_mask_shuffle_epi8((__m512i)rest, ~_mm512_movepi8_mask((__m512i)index), (__m512i)v,
                                           (__m512i)index);
}
// The same 16 bytes in every group.
inline Bytes every_group(const void* p) {
    return (Bytes)_mm512_broadcast_i32x4(_mm_loadu_si128(static_cast<const __m128i*>(p)));
}

// ---- Moves across groups ------------------------------------------------------------------------------------------

// Element i is element index[i] of v, modulo the elements there are; of two vectors: of a, and after its last of b.
inline F32 permute(F32 v, S32 index) { return (F32)_mm512_permutexvar_ps((__m512i)index, (__m512)v); }
inline F32 permute(F32 a, F32 b, S32 index) {
    return (F32)_mm512_permutex2var_ps((__m512)a, (__m512i)index, (__m512)b);
}
// The groups' quarters in the order of narrow_groups done once, and twice.
inline Bytes in_order_once(Bytes v) {
    return (Bytes)_mm512_permutexvar_epi64(_mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7), (__m512i)v);
}
inline Bytes in_order_twice(Bytes v) {
    const __m512i order = _mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
    return (Bytes)_mm512_permutexvar_epi32(order, (__m512i)v);
}
// The first 12 bytes of every group together at the vector's start.
inline Bytes join_twelves(Bytes v) {
    const __m512i order = _mm512_setr_epi32(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 3, 7, 11, 15);
    return (Bytes)_mm512_permutexvar_epi32(order, (__m512i)v);
}

// ---- Bits ---------------------------------------------------------------------------------------------------------

// A bit for each element that is not zero, the first the lowest, and that differs.
inline uint64_t nonzero_bits(U8 v) { return _mm512_test_epi8_mask((__m512i)v, (__m512i)v); }
inline uint64_t differing_bits(U64 a, U64 b) { return _mm512_cmpneq_epi64_mask((__m512i)a, (__m512i)b); }
// How many are set.
inline int64_t count_bits(uint64_t bits) { return __builtin_popcountll(bits); }
// A bit for each element that is negative.
inline uint64_t negative_bits(S8 v) { return _mm512_movepi8_mask((__m512i)v); }
// Where a compares so with b, which is counted < <= == >= >. Nothing holds for a NaN.
constexpr int kOfIntegers[] = {_MM_CMPINT_LT, _MM_CMPINT_LE, _MM_CMPINT_EQ, _MM_CMPINT_NLT, _MM_CMPINT_NLE};
constexpr int kOfFloats[] = {_CMP_LT_OQ, _CMP_LE_OQ, _CMP_EQ_OQ, _CMP_GE_OQ, _CMP_GT_OQ};
template <int kComparison>
inline uint64_t compare_bits(U8 a, U8 b) {
    return _mm512_cmp_epu8_mask((__m512i)a, (__m512i)b, kOfIntegers[kComparison]);
}
template <int kComparison>
inline uint64_t compare_bits(S16 a, S16 b) {
    return _mm512_cmp_epi16_mask((__m512i)a, (__m512i)b, kOfIntegers[kComparison]);
}
template <int kComparison>
inline uint64_t compare_bits(F32 a, F32 b) {
    return _mm512_cmp_ps_mask((__m512)a, (__m512)b, kOfFloats[kComparison]);
}
// Bytes of ones where the bits are set.
inline Bytes bytes_of_bits(uint64_t bits) { return (Bytes)_mm512_movm_epi8(bits); }
// The lowest bits put at the places whose bits are set, and those of the places put together at the lowest.
inline uint64_t deposit_bits(uint64_t bits, uint64_t places) { return _pdep_u64(bits, places); }
inline uint64_t extract_bits(uint64_t bits, uint64_t places) { return _pext_u64(bits, places); }
// Stores the elements of type T whose bits are set.
template <class T>
inline void store_lanes(void* p, uint64_t bits, Bytes v) {
    if constexpr (sizeof(T) == 1)
        _mm512_mask_storeu_epi8(p, bits, (__m512i)v);
    else if constexpr (sizeof(T) == 2)
        _mm512_mask_storeu_epi16(p, __mmask32(bits), (__m512i)v);
    else
        _mm512_mask_storeu_epi32(p, __mmask16(bits), (__m512i)v);
}

// ---- Types --------------------------------------------------------------------------------------------------------

// The lower and the upper half of the elements widened, and two halves narrowed and joined.
inline F64 widen_lower(F32 v) { return (F64)_mm512_cvtps_pd(_mm512_castps512_ps256((__m512)v)); }
inline F64 widen_upper(F32 v) { return (F64)_mm512_cvtps_pd(_mm512_extractf32x8_ps((__m512)v, 1)); }
inline F32 narrow(F64 lower, F64 upper) {
    return (F32)_mm512_insertf32x8(_mm512_castps256_ps512(_mm512_cvtpd_ps((__m512d)lower)),
                                   _mm512_cvtpd_ps((__m512d)upper), 1);
}
// The same, each group of both to a group.
inline F32 narrow_groups(F64 a, F64 b) {
    return (F32)_mm512_permutexvar_pd(_mm512_setr_epi64(0, 4, 1, 5, 2, 6, 3, 7), (__m512d)narrow(a, b));
}
// As many elements as a vector has, from narrower ones.
inline S16 load_s16(const uint8_t* p) {
    return (S16)_mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)));
}
inline S32 load_s32(const uint8_t* p) {
    return (S32)_mm512_cvtepu8_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}
inline S32 load_s32(const int16_t* p) {
    return (S32)_mm512_cvtepi16_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)));
}
// Four elements as floats.
inline Four load_four(const uint8_t* p) {
    int32_t bytes;
    memcpy(&bytes, p, 4);
    return (Four)_mm_cvtepi32_ps(_mm_cvtepu8_epi32(_mm_cvtsi32_si128(bytes)));
}
inline Four load_four(const int16_t* p) {
    return (Four)_mm_cvtepi32_ps(_mm_cvtepi16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))));
}
// Doubles from the floats at p, half a vector of them: widening into a whole one takes twice the work. And from the
// first n of fewer with zeros behind.
typedef double HalfF64 __attribute__((vector_size(32)));
inline HalfF64 load_f64_n(const void* p, int64_t n) {
    const __m128i first = _mm_cmpgt_epi32(_mm_set1_epi32(int(n)), _mm_setr_epi32(0, 1, 2, 3));
    return (HalfF64)_mm256_cvtps_pd(_mm_maskload_ps(static_cast<const float*>(p), first));
}
inline HalfF64 load_f64(const void* p) { return (HalfF64)_mm256_cvtps_pd(_mm_loadu_ps(static_cast<const float*>(p))); }
// The nearest integers, ties to the even ones. Out of range, and NaN: the smallest.
inline S32 nearest_int(F32 v) { return (S32)_mm512_cvtps_epi32((__m512)v); }
// The same saturated: what is above the range is the largest.
inline S32 nearest_int_saturated(F32 v) {
    const __mmask16 over = _mm512_cmp_ps_mask((__m512)v, _mm512_set1_ps(2147483648.0f), _CMP_GE_OQ);
    return (S32)_mm512_mask_mov_epi32(_mm512_cvtps_epi32((__m512)v), over, _mm512_set1_epi32(INT32_MAX));
}

constexpr bool kHasLookup = true, kHasPermute = true, kHasMulAdd = true, kHasMinMax32 = true, kHasLaneBits = true;

// ---- Sixteen counts -----------------------------------------------------------------------------------------------

// Sixteen elements of 16 bits, whatever a vector has.
struct U16x16 {
    __m256i v;
};
// c + p, and c + in - out, of the sixteen bytes there.
inline U16x16 widening_add(U16x16 c, const uint8_t* p) {
    return {_mm256_add_epi16(c.v, _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))))};
}
inline U16x16 widening_exchange(U16x16 c, const uint8_t* in, const uint8_t* out) {
    const __m256i less = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(out)));
    return {_mm256_sub_epi16(widening_add(c, in).v, less)};
}
// How many are at most the limit.
inline int64_t count_up_to(U16x16 c, uint16_t limit) {
    return count_bits(_mm256_cmple_epu16_mask(c.v, _mm256_set1_epi16(int16_t(limit))));
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
