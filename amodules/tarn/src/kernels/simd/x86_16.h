// The words of 16-byte vectors: SSE2, and what SSSE3 and SSE4.1 add. For simd.h only.
#pragma once

namespace tarn::k::TARN_LEVEL {
namespace {

// ---- Parts --------------------------------------------------------------------------------------------------------

// All ones from byte n on.
inline Bytes behind(int64_t n) {
    return (Bytes)(Vec<int8_t>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15} >= splat(int8_t(n)));
}
// The first n bytes at p, 0 <= n <= kVector, and behind them those of `others`.
template <class V>
inline V load_n(const void* p, int64_t n, V others) {
    if (n == kVector) return load<V>(p);
    const Sixteen part = first_bytes(p, n);
    return (V)((Bytes)_mm_set_epi64x(int64_t(part.upper), int64_t(part.lower)) | ((Bytes)others & behind(n)));
}
template <class V>
inline void store_n(void* p, V v, int64_t n) {
    if (n == kVector) return store(p, v);
    alignas(16) uint8_t buffer[kVector];
    store(buffer, v);
    copy_bytes(p, buffer, n);
}

// v, in a register: of a vector that several steps take compilers else read it from memory in each.
template <class V>
inline V in_register(V v) {
    asm("" : "+x"(v));
    return v;
}

// The 16 bytes at each of kGroups addresses, a group each, read and written.
inline Bytes load_groups(const uint8_t* base, const int64_t* from) { return load<Bytes>(base + from[0]); }
inline void store_groups(uint8_t* base, const int64_t* to, Bytes v) { store(base + to[0], v); }

// Elements from addresses of their own, base + at[...], without gathers, which are slow on many processors. Of each
// group: the 16 bytes at at[step g], and 8 bytes each at at[step g] and the next.
[[gnu::always_inline]] inline Bytes load_groups(const uint8_t* base, const int32_t* at, int step) {
    (void)step;  // there is one group
    return load<Bytes>(base + at[0]);
}
[[gnu::always_inline]] inline Bytes load_halves(const uint8_t* base, const int32_t* at, int step) {
    (void)step;
    const auto half = [&](int i) { return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(base + at[i])); };
    return (Bytes)_mm_unpacklo_epi64(half(0), half(1));
}
// A vector of 4 bytes each.
[[gnu::always_inline]] inline Bytes load_quarters(const uint8_t* base, const int32_t* at) {
    const auto quarter = [&](int i) { return *reinterpret_cast<const Loose<int32_t>*>(base + at[i]); };
    return (Bytes)S32{quarter(0), quarter(1), quarter(2), quarter(3)};
}
// A vector of 2 bytes each, widened.
[[gnu::always_inline]] inline S16 load_pairs(const uint8_t* base, const int32_t* at) {
    const auto pair = [&](int i) { return *reinterpret_cast<const Loose<int16_t>*>(base + at[i]); };
    const __m128i v = (__m128i)S16{pair(0), pair(1), pair(2), pair(3), 0, 0, 0, 0};
    return (S16)_mm_unpacklo_epi8(v, _mm_setzero_si128());
}

// Stores around the cache; p is aligned to the vector.
inline void stream(void* p, Bytes v) { _mm_stream_si128(static_cast<__m128i*>(p), (__m128i)v); }
// A group to each of kGroups addresses, aligned to 16 bytes.
inline void stream_groups(uint8_t* base, const int64_t* to, Bytes v) { stream(base + to[0], v); }
// Orders streamed stores before those that follow.
inline void stream_fence() { _mm_sfence(); }

// ---- Arithmetic ---------------------------------------------------------------------------------------------------

inline U8 saturated_add(U8 a, U8 b) { return (U8)_mm_adds_epu8((__m128i)a, (__m128i)b); }
inline S16 saturated_add(S16 a, S16 b) { return (S16)_mm_adds_epi16((__m128i)a, (__m128i)b); }
inline U8 saturated_sub(U8 a, U8 b) { return (U8)_mm_subs_epu8((__m128i)a, (__m128i)b); }
inline S16 saturated_sub(S16 a, S16 b) { return (S16)_mm_subs_epi16((__m128i)a, (__m128i)b); }
inline U8 min(U8 a, U8 b) { return (U8)_mm_min_epu8((__m128i)a, (__m128i)b); }
inline U8 max(U8 a, U8 b) { return (U8)_mm_max_epu8((__m128i)a, (__m128i)b); }
inline S16 min(S16 a, S16 b) { return (S16)_mm_min_epi16((__m128i)a, (__m128i)b); }
inline S16 max(S16 a, S16 b) { return (S16)_mm_max_epi16((__m128i)a, (__m128i)b); }
// Below SSE4.1 a saturated difference taken off.
inline U16 min(U16 a, U16 b) {
#if defined(__SSE4_1__)
    return (U16)_mm_min_epu16((__m128i)a, (__m128i)b);
#else
    return a - (U16)_mm_subs_epu16((__m128i)a, (__m128i)b);
#endif
}
// Below SSE4.1 a comparison and a choice.
inline S32 min(S32 a, S32 b) {
#if defined(__SSE4_1__)
    return (S32)_mm_min_epi32((__m128i)a, (__m128i)b);
#else
    return select((Bytes)(a < b), a, b);
#endif
}
inline S32 max(S32 a, S32 b) {
#if defined(__SSE4_1__)
    return (S32)_mm_max_epi32((__m128i)a, (__m128i)b);
#else
    return select((Bytes)(a < b), b, a);
#endif
}
inline U32 max(U32 a, U32 b) {
#if defined(__SSE4_1__)
    return (U32)_mm_max_epu32((__m128i)a, (__m128i)b);
#else
    return select((Bytes)(a < b), b, a);
#endif
}
// b where either is NaN, and of two zeros.
inline F32 min(F32 a, F32 b) { return (F32)_mm_min_ps((__m128)a, (__m128)b); }
inline F32 max(F32 a, F32 b) { return (F32)_mm_max_ps((__m128)a, (__m128)b); }
inline F64 min(F64 a, F64 b) { return (F64)_mm_min_pd((__m128d)a, (__m128d)b); }
inline F64 max(F64 a, F64 b) { return (F64)_mm_max_pd((__m128d)a, (__m128d)b); }
// a + b and a * b where of two NaN the first wins: the processor's own answer. Compilers swap the operands of their own
// + and *.
inline F32 add_ordered(F32 a, F32 b) {
    asm("addps %1, %0" : "+x"(a) : "x"(b));
    return a;
}
inline F32 mul_ordered(F32 a, F32 b) {
    asm("mulps %1, %0" : "+x"(a) : "x"(b));
    return a;
}
// (a + b + 1) / 2.
inline U8 average(U8 a, U8 b) { return (U8)_mm_avg_epu8((__m128i)a, (__m128i)b); }
// The upper halves of the products.
inline S16 mul_high(S16 a, S16 b) { return (S16)_mm_mulhi_epi16((__m128i)a, (__m128i)b); }
inline U16 mul_high(U16 a, U16 b) { return (U16)_mm_mulhi_epu16((__m128i)a, (__m128i)b); }
// Products of fractions of 15 bits, rounded: (a * b + 0x4000) >> 15. Below SSSE3 of both halves of the products: 6
// steps.
inline S16 mul_fixed15(S16 a, S16 b) {
#if defined(__SSSE3__)
    return (S16)_mm_mulhrs_epi16((__m128i)a, (__m128i)b);
#else
    return (S16)(((U16)mul_high(a, b) << 1) + ((((U16)a * (U16)b >> 14) + 1) >> 1));
#endif
}
// Products of neighbours, added in pairs, saturated: a[2i] b[2i] + a[2i + 1] b[2i + 1]. Below SSSE3 the even and the
// odd products: 7 steps.
inline S16 mul_add_pairs(U8 a, S8 b) {
#if defined(__SSSE3__)
    return (S16)_mm_maddubs_epi16((__m128i)a, (__m128i)b);
#else
    const S16 even = (S16)((U16)a & 0xff) * ((S16)((U16)b << 8) >> 8);
    return saturated_add(even, (S16)((U16)a >> 8) * ((S16)b >> 8));
#endif
}
inline S32 mul_add_pairs(S16 a, S16 b) { return (S32)_mm_madd_epi16((__m128i)a, (__m128i)b); }
// Element i: the sum of v[i]'s elements, those 2 apart added first.
inline F32 sums_of_each(const F32 (&v)[4]) {
    __m128 by2[2];
    for (int i = 0; i < 2; ++i)
        by2[i] = _mm_add_ps(_mm_movelh_ps((__m128)v[2 * i], (__m128)v[2 * i + 1]),
                            _mm_movehl_ps((__m128)v[2 * i + 1], (__m128)v[2 * i]));
    return (F32)_mm_add_ps(_mm_shuffle_ps(by2[0], by2[1], 0x88), _mm_shuffle_ps(by2[0], by2[1], 0xdd));
}
// a + b in 16 bits, of the groups' lower and upper halves. Below SSSE3 two interleaves where one will do.
#if defined(__SSSE3__)
inline U16 widening_add_lower(U8 a, U8 b) {
    return (U16)_mm_maddubs_epi16(_mm_unpacklo_epi8((__m128i)a, (__m128i)b), _mm_set1_epi8(1));
}
inline U16 widening_add_upper(U8 a, U8 b) {
    return (U16)_mm_maddubs_epi16(_mm_unpackhi_epi8((__m128i)a, (__m128i)b), _mm_set1_epi8(1));
}
#else
inline U16 widening_add_lower(U8 a, U8 b) {
    const __m128i zero = _mm_setzero_si128();
    return (U16)_mm_unpacklo_epi8((__m128i)a, zero) + (U16)_mm_unpacklo_epi8((__m128i)b, zero);
}
inline U16 widening_add_upper(U8 a, U8 b) {
    const __m128i zero = _mm_setzero_si128();
    return (U16)_mm_unpackhi_epi8((__m128i)a, zero) + (U16)_mm_unpackhi_epi8((__m128i)b, zero);
}
#endif
// Sums of eight bytes each.
inline U64 sums_of_8(U8 v) { return (U64)_mm_sad_epu8((__m128i)v, (__m128i)U8{}); }
inline bool all_zero(Bytes v) { return _mm_movemask_epi8((__m128i)(v == Bytes{})) == 0xffff; }

// ---- Moves within groups ------------------------------------------------------------------------------------------

inline Bytes interleave_lower8(Bytes a, Bytes b) { return (Bytes)_mm_unpacklo_epi8((__m128i)a, (__m128i)b); }
inline Bytes interleave_upper8(Bytes a, Bytes b) { return (Bytes)_mm_unpackhi_epi8((__m128i)a, (__m128i)b); }
inline Bytes interleave_lower16(Bytes a, Bytes b) { return (Bytes)_mm_unpacklo_epi16((__m128i)a, (__m128i)b); }
inline Bytes interleave_upper16(Bytes a, Bytes b) { return (Bytes)_mm_unpackhi_epi16((__m128i)a, (__m128i)b); }
inline Bytes interleave_lower32(Bytes a, Bytes b) { return (Bytes)_mm_unpacklo_epi32((__m128i)a, (__m128i)b); }
inline Bytes interleave_upper32(Bytes a, Bytes b) { return (Bytes)_mm_unpackhi_epi32((__m128i)a, (__m128i)b); }
inline Bytes interleave_lower64(Bytes a, Bytes b) { return (Bytes)_mm_unpacklo_epi64((__m128i)a, (__m128i)b); }
inline Bytes interleave_upper64(Bytes a, Bytes b) { return (Bytes)_mm_unpackhi_epi64((__m128i)a, (__m128i)b); }
// Each group: elements 0 and 2, or 1 and 3, of four bytes of a's group, then of b's.
inline Bytes even32(Bytes a, Bytes b) { return (Bytes)_mm_shuffle_ps((__m128)a, (__m128)b, 0x88); }
inline Bytes odd32(Bytes a, Bytes b) { return (Bytes)_mm_shuffle_ps((__m128)a, (__m128)b, 0xdd); }
// One element of four bytes of each group, four times.
template <int kElement>
inline Bytes repeat32(Bytes v) {
    return (Bytes)_mm_shuffle_epi32((__m128i)v, kElement * 0x55);
}
// Narrowed with saturation: each group holds a's of the group, then b's. Undoes both interleaves.
inline U8 narrow_groups_u8(S16 a, S16 b) { return (U8)_mm_packus_epi16((__m128i)a, (__m128i)b); }
inline S8 narrow_groups(S16 a, S16 b) { return (S8)_mm_packs_epi16((__m128i)a, (__m128i)b); }
inline S16 narrow_groups(S32 a, S32 b) { return (S16)_mm_packs_epi32((__m128i)a, (__m128i)b); }
// a where the mask's bytes are all ones, b where they are zero.
inline Bytes blend(Bytes mask, Bytes a, Bytes b) {
#if defined(__SSE4_1__)
    return (Bytes)_mm_blendv_epi8((__m128i)b, (__m128i)a, (__m128i)mask);
#else
    return select(mask, a, b);
#endif
}
// Byte i of each group is byte index[i] of v's group; 0 where the index has its top bit. Below SSSE3 one by one.
inline Bytes lookup(Bytes v, Bytes index) {
#if defined(__SSSE3__)
    return (Bytes)_mm_shuffle_epi8((__m128i)v, (__m128i)index);
#else
    Bytes r = {};
    for (int i = 0; i < 16; ++i) r[i] = index[i] & 0x80 ? 0 : v[index[i] & 15];
    return r;
#endif
}
// The same 16 bytes in every group.
inline Bytes every_group(const void* p) { return load<Bytes>(p); }

// ---- Moves across groups ------------------------------------------------------------------------------------------

// Element i is element index[i] of v, modulo the elements there are; of two vectors: of a, and after its last of b. One
// by one.
inline F32 permute(F32 v, S32 index) {
    F32 r = {};
    for (int i = 0; i < 4; ++i) r[i] = v[index[i] & 3];
    return r;
}
inline F32 permute(F32 a, F32 b, S32 index) {
    return select((Bytes)((index & 4) != 0), permute(b, index), permute(a, index));
}
// With a single group there is nothing to put in order.
inline Bytes in_order_once(Bytes v) { return v; }
inline Bytes in_order_twice(Bytes v) { return v; }
inline Bytes join_twelves(Bytes v) { return v; }
// Three vectors' groups dealt out one by one, as deinterleave3 wants them.
template <class V>
inline void deal_groups3(V&, V&, V&) {}

// ---- Bits ---------------------------------------------------------------------------------------------------------

// A bit for each element that is not zero, the first the lowest.
inline uint64_t nonzero_bits(U8 v) { return uint16_t(~_mm_movemask_epi8((__m128i)(v == U8{}))); }
// How many are set: sums of pairs, of fours, of bytes, of all bytes. Not by the instruction, which may be missing.
inline int64_t count_bits(uint64_t bits) {
    bits -= bits >> 1 & 0x5555555555555555;
    bits = (bits & 0x3333333333333333) + (bits >> 2 & 0x3333333333333333);
    return int64_t(((bits + (bits >> 4)) & 0x0f0f0f0f0f0f0f0f) * 0x0101010101010101 >> 56);
}
// A bit for each element that is negative.
inline uint64_t negative_bits(S8 v) { return uint16_t(_mm_movemask_epi8((__m128i)v)); }
// A bit for each element that differs.
inline uint64_t differing_bits(U64 a, U64 b) { return uint64_t(_mm_movemask_pd((__m128d)(a == b)) ^ 3); }

// ---- Types --------------------------------------------------------------------------------------------------------

// The lower and the upper half of the elements widened, and two halves narrowed and joined.
inline F64 widen_lower(F32 v) { return (F64)_mm_cvtps_pd((__m128)v); }
inline F64 widen_upper(F32 v) { return (F64)_mm_cvtps_pd(_mm_movehl_ps((__m128)v, (__m128)v)); }
inline F32 narrow(F64 lower, F64 upper) {
    return (F32)_mm_movelh_ps(_mm_cvtpd_ps((__m128d)lower), _mm_cvtpd_ps((__m128d)upper));
}
// The same, each group of both to a group.
inline F32 narrow_groups(F64 a, F64 b) { return narrow(a, b); }
// As many elements as a vector has, from narrower ones.
inline S16 load_s16(const uint8_t* p) {
    return (S16)_mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)), _mm_setzero_si128());
}
inline S32 load_s32(const uint8_t* p) {
    int32_t bytes;
    memcpy(&bytes, p, 4);
    const __m128i v = _mm_cvtsi32_si128(bytes);
#if defined(__SSE4_1__)
    return (S32)_mm_cvtepu8_epi32(v);
#else
    const __m128i zero = _mm_setzero_si128();
    return (S32)_mm_unpacklo_epi16(_mm_unpacklo_epi8(v, zero), zero);
#endif
}
inline S32 load_s32(const int16_t* p) {
    const __m128i v = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
#if defined(__SSE4_1__)
    return (S32)_mm_cvtepi16_epi32(v);
#else
    return (S32)_mm_srai_epi32(_mm_unpacklo_epi16(v, v), 16);
#endif
}
#if !defined(__SSE4_1__)
// Four vectors of floats from as many elements one behind the other. Under the bits of 2^23 an element is a float as
// much larger: a difference takes the place of widening further and converting.
inline void load_f32_four(const uint8_t* p, F32 (&v)[4]) {
    const Bytes bytes = load<Bytes>(p), exponents = (Bytes)splat(uint16_t(0x4b00));
    const Bytes lower = interleave_lower8(bytes, Bytes{}), upper = interleave_upper8(bytes, Bytes{});
    v[0] = (F32)interleave_lower16(lower, exponents), v[1] = (F32)interleave_upper16(lower, exponents);
    v[2] = (F32)interleave_lower16(upper, exponents), v[3] = (F32)interleave_upper16(upper, exponents);
    for (F32& each : v) each -= splat(8388608.0f);
}
inline void load_f32_four(const int16_t* p, F32 (&v)[4]) {
    const Bytes exponents = (Bytes)splat(uint16_t(0x4b00));
    for (int i = 0; i < 2; ++i) {
        const Bytes biased = (Bytes)(load<U16>(p + i * kLanes<int16_t>) ^ splat(uint16_t(0x8000)));
        v[2 * i] = (F32)interleave_lower16(biased, exponents) - splat(8388608.0f + 32768.0f);
        v[2 * i + 1] = (F32)interleave_upper16(biased, exponents) - splat(8388608.0f + 32768.0f);
    }
}
// The differences of as many: a product of both, where each alone would be widened in two steps.
inline S32 load_difference(const int16_t* a, const int16_t* b) {
    const auto half = [](const int16_t* p) { return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)); };
    return mul_add_pairs((S16)_mm_unpacklo_epi16(half(a), half(b)), (S16)splat(uint32_t(0xffff0001)));
}
#endif
// Doubles from the floats at p, a vector of them, and from the first n of fewer with zeros behind.
inline F64 load_f64_n(const void* p, int64_t n) {
    (void)n;  // always 1
    float first;
    memcpy(&first, p, sizeof first);
    return (F64)_mm_cvtps_pd(_mm_set_ss(first));
}
inline F64 load_f64(const void* p) {
    return (F64)_mm_cvtps_pd((__m128)_mm_loadl_epi64(static_cast<const __m128i*>(p)));
}
// The nearest integers, ties to the even ones. Out of range, and NaN: the smallest.
inline S32 nearest_int(F32 v) { return (S32)_mm_cvtps_epi32((__m128)v); }
// The same saturated: what is above the range is the largest, the smallest's complement.
inline S32 nearest_int_saturated(F32 v) { return nearest_int(v) ^ (v >= splat(2147483648.0f)); }

#if defined(__SSSE3__)
constexpr bool kHasLookup = true;
#else
constexpr bool kHasLookup = false;
#endif
#if defined(__SSE4_1__)
constexpr bool kHasMinMax32 = true;
#else
constexpr bool kHasMinMax32 = false;
#endif
constexpr bool kHasPermute = false, kHasMulAdd = false, kHasLaneBits = false;

// ---- Sixteen counts -----------------------------------------------------------------------------------------------

// Sixteen elements of 16 bits, whatever a vector has.
struct U16x16 {
    U16 lower, upper;
};
// c + p, and c + in - out, of the sixteen bytes there.
inline U16x16 widening_add(U16x16 c, const uint8_t* p) {
    const U8 v = load<U8>(p);
    return {c.lower + (U16)interleave_lower8(v, U8{}), c.upper + (U16)interleave_upper8(v, U8{})};
}
inline U16x16 widening_exchange(U16x16 c, const uint8_t* in, const uint8_t* out) {
    const U8 v = load<U8>(out);
    c = widening_add(c, in);
    return {c.lower - (U16)interleave_lower8(v, U8{}), c.upper - (U16)interleave_upper8(v, U8{})};
}
// How many are at most the limit, by a sum of ones.
inline int64_t count_up_to(U16x16 c, uint16_t limit) {
    const U16 most = splat(limit);
    const S16 lower = (S16)(min(c.lower, most) == c.lower), upper = (S16)(min(c.upper, most) == c.upper);
    const U64 sums = sums_of_8(U8{} - (U8)narrow_groups(lower, upper));
    return int64_t(sums[0] + sums[1]);
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
