// The words of 32-byte vectors: AVX2, FMA. For simd.h only.
#pragma once

namespace tarn::k::TARN_LEVEL {
namespace {

// ---- Parts --------------------------------------------------------------------------------------------------------

// All ones from byte n on.
inline Bytes behind(int64_t n) {
    return (Bytes)(Vec<int8_t>{0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15,
                               16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31} >= splat(int8_t(n)));
}
// The first n bytes at p, 0 <= n <= kVector, the others zero.
[[maybe_unused, gnu::noinline]] Bytes load_part(const void* p, int64_t n) {
    const auto* from = static_cast<const uint8_t*>(p);
    if (n <= 16) {
        const Sixteen part = first_bytes(from, n);
        return (Bytes)_mm256_zextsi128_si256(_mm_set_epi64x(int64_t(part.upper), int64_t(part.lower)));
    }
    // The last sixteen bytes, moved down by those that are in the lower group already.
    alignas(16) static constexpr int8_t kIndex[32] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15,
                                                      -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1};
    const auto group = [](const void* at) { return _mm_loadu_si128(static_cast<const __m128i*>(at)); };
    const __m128i upper = _mm_shuffle_epi8(group(from + n - 16), group(kIndex + 32 - n));
    return (Bytes)_mm256_set_m128i(upper, group(from));
}
// The first n bytes at p, 0 <= n <= kVector, and behind them those of `others`. Of elements of 4 bytes n must be a
// multiple of 4.
template <class V>
inline V load_n(const void* p, int64_t n, V others) {
    if constexpr (sizeof(others[0]) == 4) {
        const S32 first = splat(int32_t(n)) > S32{0, 4, 8, 12, 16, 20, 24, 28};
        const Bytes loaded = (Bytes)_mm256_maskload_epi32(static_cast<const int*>(p), (__m256i)first);
        return (V)(loaded | ((Bytes)others & (Bytes)~first));
    }
    if (n == kVector) return load<V>(p);
    return (V)(load_part(p, n) | ((Bytes)others & behind(n)));
}
template <class V>
inline void store_n(void* p, V v, int64_t n) {
    if (n == kVector) return store(p, v);
    alignas(32) uint8_t buffer[kVector];
    store(buffer, v);
    copy_bytes(p, buffer, n);
}

// v, in a register: of a vector that several steps take compilers else read it from memory in each.
template <class V>
inline V in_register(V v) {
    asm("" : "+x"(v));
    return v;
}

// The 16 bytes at each of kGroups addresses, a group each, read and written. A broadcast from memory and a blend keep
// off the only unit that inserts.
[[gnu::always_inline]] inline Bytes load_groups(const uint8_t* base, const int64_t* from) {
    const auto group = [&](int i) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(base + from[i])); };
    return (Bytes)_mm256_blend_epi32(_mm256_castsi128_si256(group(0)), _mm256_broadcastsi128_si256(group(1)), 0xf0);
}
[[gnu::always_inline]] inline void store_groups(uint8_t* base, const int64_t* to, Bytes v) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(base + to[0]), _mm256_castsi256_si128((__m256i)v));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(base + to[1]), _mm256_extracti128_si256((__m256i)v, 1));
}

// Elements from addresses of their own, base + at[...], without gathers, which are slow on many processors. Of each
// group: the 16 bytes at at[step g], and 8 bytes each at at[step g] and the next.
[[gnu::always_inline]] inline Bytes load_groups(const uint8_t* base, const int32_t* at, int step) {
    const auto group = [&](int i) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(base + at[i])); };
    return (Bytes)_mm256_inserti128_si256(_mm256_castsi128_si256(group(0)), group(step), 1);
}
[[gnu::always_inline]] inline Bytes load_halves(const uint8_t* base, const int32_t* at, int step) {
    const auto half = [&](int i) { return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(base + at[i])); };
    const auto both = [&](int i) {
        return _mm_castps_si128(
            _mm_loadh_pi(_mm_castsi128_ps(half(i)), reinterpret_cast<const __m64*>(base + at[i + 1])));
    };
    return (Bytes)_mm256_inserti128_si256(_mm256_castsi128_si256(both(0)), both(step), 1);
}
// A vector of 4 bytes each.
[[gnu::always_inline]] inline Bytes load_quarters(const uint8_t* base, const int32_t* at) {
    const auto quarter = [&](int i) { return *reinterpret_cast<const Loose<int32_t>*>(base + at[i]); };
    const auto four = [&](int i) { return _mm_setr_epi32(quarter(i), quarter(i + 1), quarter(i + 2), quarter(i + 3)); };
    return (Bytes)_mm256_inserti128_si256(_mm256_castsi128_si256(four(0)), four(4), 1);
}
// A vector of 2 bytes each, widened.
[[gnu::always_inline]] inline S16 load_pairs(const uint8_t* base, const int32_t* at) {
    const auto pair = [&](int i) { return *reinterpret_cast<const Loose<int16_t>*>(base + at[i]); };
    return (S16)_mm256_cvtepu8_epi16(
        _mm_setr_epi16(pair(0), pair(1), pair(2), pair(3), pair(4), pair(5), pair(6), pair(7)));
}

// Stores around the cache; p is aligned to the vector.
inline void stream(void* p, Bytes v) { _mm256_stream_si256(static_cast<__m256i*>(p), (__m256i)v); }
// A group to each of kGroups addresses, aligned to 16 bytes.
inline void stream_groups(uint8_t* base, const int64_t* to, Bytes v) {
    _mm_stream_si128(reinterpret_cast<__m128i*>(base + to[0]), _mm256_castsi256_si128((__m256i)v));
    _mm_stream_si128(reinterpret_cast<__m128i*>(base + to[1]), _mm256_extracti128_si256((__m256i)v, 1));
}
// Orders streamed stores before those that follow.
inline void stream_fence() { _mm_sfence(); }

// ---- Arithmetic ---------------------------------------------------------------------------------------------------

inline U8 saturated_add(U8 a, U8 b) { return (U8)_mm256_adds_epu8((__m256i)a, (__m256i)b); }
inline S16 saturated_add(S16 a, S16 b) { return (S16)_mm256_adds_epi16((__m256i)a, (__m256i)b); }
inline U8 saturated_sub(U8 a, U8 b) { return (U8)_mm256_subs_epu8((__m256i)a, (__m256i)b); }
inline S16 saturated_sub(S16 a, S16 b) { return (S16)_mm256_subs_epi16((__m256i)a, (__m256i)b); }
inline U8 min(U8 a, U8 b) { return (U8)_mm256_min_epu8((__m256i)a, (__m256i)b); }
inline U8 max(U8 a, U8 b) { return (U8)_mm256_max_epu8((__m256i)a, (__m256i)b); }
inline S16 min(S16 a, S16 b) { return (S16)_mm256_min_epi16((__m256i)a, (__m256i)b); }
inline S16 max(S16 a, S16 b) { return (S16)_mm256_max_epi16((__m256i)a, (__m256i)b); }
inline U16 min(U16 a, U16 b) { return (U16)_mm256_min_epu16((__m256i)a, (__m256i)b); }
inline S32 min(S32 a, S32 b) { return (S32)_mm256_min_epi32((__m256i)a, (__m256i)b); }
inline S32 max(S32 a, S32 b) { return (S32)_mm256_max_epi32((__m256i)a, (__m256i)b); }
inline U32 max(U32 a, U32 b) { return (U32)_mm256_max_epu32((__m256i)a, (__m256i)b); }
// b where either is NaN, and of two zeros.
inline F32 min(F32 a, F32 b) { return (F32)_mm256_min_ps((__m256)a, (__m256)b); }
inline F32 max(F32 a, F32 b) { return (F32)_mm256_max_ps((__m256)a, (__m256)b); }
inline F64 min(F64 a, F64 b) { return (F64)_mm256_min_pd((__m256d)a, (__m256d)b); }
inline F64 max(F64 a, F64 b) { return (F64)_mm256_max_pd((__m256d)a, (__m256d)b); }
// a + b and a * b where of two NaN the first wins: the processor's own answer. Compilers swap the operands of their own
// + and *.
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
// (a + b + 1) / 2.
inline U8 average(U8 a, U8 b) { return (U8)_mm256_avg_epu8((__m256i)a, (__m256i)b); }
// The upper halves of the products.
inline S16 mul_high(S16 a, S16 b) { return (S16)_mm256_mulhi_epi16((__m256i)a, (__m256i)b); }
inline U16 mul_high(U16 a, U16 b) { return (U16)_mm256_mulhi_epu16((__m256i)a, (__m256i)b); }
// Products of fractions of 15 bits, rounded: (a * b + 0x4000) >> 15.
inline S16 mul_fixed15(S16 a, S16 b) { return (S16)_mm256_mulhrs_epi16((__m256i)a, (__m256i)b); }
// Products of neighbours, added in pairs, saturated: a[2i] b[2i] + a[2i + 1] b[2i + 1].
inline S16 mul_add_pairs(U8 a, S8 b) { return (S16)_mm256_maddubs_epi16((__m256i)a, (__m256i)b); }
inline S32 mul_add_pairs(S16 a, S16 b) { return (S32)_mm256_madd_epi16((__m256i)a, (__m256i)b); }
// a + b in 16 bits, of the groups' lower and upper halves.
inline U16 widening_add_lower(U8 a, U8 b) {
    return (U16)_mm256_maddubs_epi16(_mm256_unpacklo_epi8((__m256i)a, (__m256i)b), _mm256_set1_epi8(1));
}
inline U16 widening_add_upper(U8 a, U8 b) {
    return (U16)_mm256_maddubs_epi16(_mm256_unpackhi_epi8((__m256i)a, (__m256i)b), _mm256_set1_epi8(1));
}
// Sums of eight bytes each.
inline U64 sums_of_8(U8 v) { return (U64)_mm256_sad_epu8((__m256i)v, (__m256i)U8{}); }
// a * b + c, rounded once.
inline F32 mul_add(F32 a, F32 b, F32 c) { return (F32)_mm256_fmadd_ps((__m256)a, (__m256)b, (__m256)c); }
// Element i: the sum of v[i]'s elements, those 4 apart added first, then those 2 and 1 apart.
inline F32 sums_of_each(const F32 (&v)[8]) {
    __m256 by4[4], by2[2];
    for (int i = 0; i < 4; ++i)
        by4[i] = _mm256_add_ps(_mm256_blend_ps((__m256)v[i], (__m256)v[i + 4], 0xf0),
                               _mm256_permute2f128_ps((__m256)v[i], (__m256)v[i + 4], 0x21));
    for (int i = 0; i < 2; ++i)
        by2[i] = _mm256_add_ps(_mm256_blend_ps(by4[2 * i], by4[2 * i + 1], 0xcc),
                               _mm256_shuffle_ps(by4[2 * i], by4[2 * i + 1], 0x4e));
    return (F32)_mm256_add_ps(_mm256_shuffle_ps(by2[0], by2[1], 0x88), _mm256_shuffle_ps(by2[0], by2[1], 0xdd));
}

inline bool all_zero(Bytes v) { return _mm256_testz_si256((__m256i)v, (__m256i)v); }

// ---- Moves within groups ------------------------------------------------------------------------------------------

inline Bytes interleave_lower8(Bytes a, Bytes b) { return (Bytes)_mm256_unpacklo_epi8((__m256i)a, (__m256i)b); }
inline Bytes interleave_upper8(Bytes a, Bytes b) { return (Bytes)_mm256_unpackhi_epi8((__m256i)a, (__m256i)b); }
inline Bytes interleave_lower16(Bytes a, Bytes b) { return (Bytes)_mm256_unpacklo_epi16((__m256i)a, (__m256i)b); }
inline Bytes interleave_upper16(Bytes a, Bytes b) { return (Bytes)_mm256_unpackhi_epi16((__m256i)a, (__m256i)b); }
inline Bytes interleave_lower32(Bytes a, Bytes b) { return (Bytes)_mm256_unpacklo_epi32((__m256i)a, (__m256i)b); }
inline Bytes interleave_upper32(Bytes a, Bytes b) { return (Bytes)_mm256_unpackhi_epi32((__m256i)a, (__m256i)b); }
inline Bytes interleave_lower64(Bytes a, Bytes b) { return (Bytes)_mm256_unpacklo_epi64((__m256i)a, (__m256i)b); }
inline Bytes interleave_upper64(Bytes a, Bytes b) { return (Bytes)_mm256_unpackhi_epi64((__m256i)a, (__m256i)b); }
// Each group: elements 0 and 2, or 1 and 3, of four bytes of a's group, then of b's.
inline Bytes even32(Bytes a, Bytes b) { return (Bytes)_mm256_shuffle_ps((__m256)a, (__m256)b, 0x88); }
inline Bytes odd32(Bytes a, Bytes b) { return (Bytes)_mm256_shuffle_ps((__m256)a, (__m256)b, 0xdd); }
// One element of four bytes of each group, four times.
template <int kElement>
inline Bytes repeat32(Bytes v) {
    return (Bytes)_mm256_shuffle_epi32((__m256i)v, kElement * 0x55);
}
// Narrowed with saturation: each group holds a's of the group, then b's. Undoes both interleaves.
inline U8 narrow_groups_u8(S16 a, S16 b) { return (U8)_mm256_packus_epi16((__m256i)a, (__m256i)b); }
inline S8 narrow_groups(S16 a, S16 b) { return (S8)_mm256_packs_epi16((__m256i)a, (__m256i)b); }
inline S16 narrow_groups(S32 a, S32 b) { return (S16)_mm256_packs_epi32((__m256i)a, (__m256i)b); }
// a where the mask's bytes are all ones, b where they are zero.
inline Bytes blend(Bytes mask, Bytes a, Bytes b) {
    return (Bytes)_mm256_blendv_epi8((__m256i)b, (__m256i)a, (__m256i)mask);
}
// Byte i of each group is byte index[i] of v's group; 0 where the index has its top bit.
inline Bytes lookup(Bytes v, Bytes index) { return (Bytes)_mm256_shuffle_epi8((__m256i)v, (__m256i)index); }
// The same with the byte of `rest` where the index has its top bit. Elsewhere rest is zero.
inline Bytes lookup_or(Bytes v, Bytes index, Bytes rest) { return lookup(v, index) | rest; }
// The same 16 bytes in every group.
inline Bytes every_group(const void* p) {
    return (Bytes)_mm256_broadcastsi128_si256(_mm_loadu_si128(static_cast<const __m128i*>(p)));
}

// ---- Moves across groups ------------------------------------------------------------------------------------------

// Element i is element index[i] of v, modulo the elements there are; of two vectors: of a, and after its last of b,
// which takes two permutes and a blend.
inline F32 permute(F32 v, S32 index) { return (F32)_mm256_permutevar8x32_ps((__m256)v, (__m256i)index); }
inline F32 permute(F32 a, F32 b, S32 index) {
    const __m256 second = (__m256)(index << 28);  // bit 3 becomes the sign
    return (F32)_mm256_blendv_ps((__m256)permute(a, index), (__m256)permute(b, index), second);
}
// The groups' quarters in the order of narrow_groups done once, and twice.
inline Bytes in_order_once(Bytes v) { return (Bytes)_mm256_permute4x64_epi64((__m256i)v, 0xd8); }
inline Bytes in_order_twice(Bytes v) {
    return (Bytes)_mm256_permutevar8x32_epi32((__m256i)v, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}
// The first 12 bytes of every group together at the vector's start.
inline Bytes join_twelves(Bytes v) {
    return (Bytes)_mm256_permutevar8x32_epi32((__m256i)v, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
}
// a's even groups, then b's; and the odd ones.
inline Bytes even_groups(Bytes a, Bytes b) { return (Bytes)_mm256_permute2x128_si256((__m256i)a, (__m256i)b, 0x20); }
inline Bytes odd_groups(Bytes a, Bytes b) { return (Bytes)_mm256_permute2x128_si256((__m256i)a, (__m256i)b, 0x31); }

// Three vectors' groups dealt out one by one, as deinterleave3 wants them: 0 3, 1 4, 2 5.
template <class V>
inline void deal_groups3(V& a, V& b, V& c) {
    const __m256i v0 = (__m256i)a, v1 = (__m256i)b, v2 = (__m256i)c;
    a = (V)_mm256_permute2x128_si256(v0, v1, 0x30);
    b = (V)_mm256_permute2x128_si256(v0, v2, 0x21);
    c = (V)_mm256_permute2x128_si256(v1, v2, 0x30);
}

// ---- Bits ---------------------------------------------------------------------------------------------------------

// A bit for each element that is not zero, the first the lowest.
inline uint64_t nonzero_bits(U8 v) { return uint32_t(~_mm256_movemask_epi8((__m256i)(v == U8{}))); }
// How many are set.
inline int64_t count_bits(uint64_t bits) { return __builtin_popcountll(bits); }
// A bit for each element that is negative.
inline uint64_t negative_bits(S8 v) { return uint32_t(_mm256_movemask_epi8((__m256i)v)); }
// A bit for each element that differs.
inline uint64_t differing_bits(U64 a, U64 b) { return uint64_t(_mm256_movemask_pd((__m256d)(a == b)) ^ 15); }

// ---- Types --------------------------------------------------------------------------------------------------------

// The lower and the upper half of the elements widened, and two halves narrowed and joined.
inline F64 widen_lower(F32 v) { return (F64)_mm256_cvtps_pd(_mm256_castps256_ps128((__m256)v)); }
inline F64 widen_upper(F32 v) { return (F64)_mm256_cvtps_pd(_mm256_extractf128_ps((__m256)v, 1)); }
inline F32 narrow(F64 lower, F64 upper) {
    return (F32)_mm256_set_m128(_mm256_cvtpd_ps((__m256d)upper), _mm256_cvtpd_ps((__m256d)lower));
}
// The same, each group of both to a group.
inline F32 narrow_groups(F64 a, F64 b) { return (F32)_mm256_permute4x64_pd((__m256d)narrow(a, b), 0xd8); }
// As many elements as a vector has, from narrower ones.
inline S16 load_s16(const uint8_t* p) {
    return (S16)_mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}
inline S32 load_s32(const uint8_t* p) {
    return (S32)_mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)));
}
inline S32 load_s32(const int16_t* p) {
    return (S32)_mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
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
// Doubles from the floats at p, a vector of them, and from the first n of fewer with zeros behind.
inline F64 load_f64_n(const void* p, int64_t n) {
    const __m128i first = _mm_cmpgt_epi32(_mm_set1_epi32(int(n)), _mm_setr_epi32(0, 1, 2, 3));
    return (F64)_mm256_cvtps_pd(_mm_maskload_ps(static_cast<const float*>(p), first));
}
inline F64 load_f64(const void* p) { return (F64)_mm256_cvtps_pd(_mm_loadu_ps(static_cast<const float*>(p))); }
// The nearest integers, ties to the even ones. Out of range, and NaN: the smallest.
inline S32 nearest_int(F32 v) { return (S32)_mm256_cvtps_epi32((__m256)v); }
// The same saturated: what is above the range is the largest, the smallest's complement.
inline S32 nearest_int_saturated(F32 v) { return nearest_int(v) ^ (v >= splat(2147483648.0f)); }

constexpr bool kHasLookup = true, kHasPermute = false, kHasMulAdd = true, kHasMinMax32 = true, kHasLaneBits = false;

// ---- Sixteen counts -----------------------------------------------------------------------------------------------

// Sixteen elements of 16 bits, whatever a vector has.
struct U16x16 {
    U16 v;
};
// c + p, and c + in - out, of the sixteen bytes there.
inline U16x16 widening_add(U16x16 c, const uint8_t* p) { return {c.v + (U16)load_s16(p)}; }
inline U16x16 widening_exchange(U16x16 c, const uint8_t* in, const uint8_t* out) {
    return {c.v + (U16)(load_s16(in) - load_s16(out))};
}
// How many are at most the limit.
inline int64_t count_up_to(U16x16 c, uint16_t limit) {
    return count_bits(uint32_t(_mm256_movemask_epi8((__m256i)(min(c.v, splat(limit)) == c.v)))) / 2;
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
