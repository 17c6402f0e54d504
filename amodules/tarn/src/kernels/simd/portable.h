// The words of 16-byte vectors by plain loops, for processors that have no words file of their own: correct, not fast.
// For simd.h only.
#pragma once

namespace tarn::k::TARN_LEVEL {
namespace {

template <class V, class F>
inline V lanewise(V a, V b, F f) {
    for (int i = 0; i < int(kVector / sizeof a[0]); ++i) a[i] = f(a[i], b[i]);
    return a;
}

// ---- Parts --------------------------------------------------------------------------------------------------------

// The first n bytes at p, 0 <= n <= kVector, and behind them those of `others`.
template <class V>
inline V load_n(const void* p, int64_t n, V others) {
    memcpy(&others, p, size_t(n));
    return others;
}
template <class V>
inline void store_n(void* p, V v, int64_t n) {
    memcpy(p, &v, size_t(n));
}

// A hint for compilers.
template <class V>
inline V in_register(V v) {
    return v;
}

inline Bytes load_groups(const uint8_t* base, const int64_t* from) { return load<Bytes>(base + from[0]); }
inline void store_groups(uint8_t* base, const int64_t* to, Bytes v) { store(base + to[0], v); }

// Elements from addresses of their own, base + at[...]: the 16 bytes at at[0], 8 bytes each at at[0] and at[1], 4 bytes
// each, and 2 bytes each, widened.
inline Bytes load_groups(const uint8_t* base, const int32_t* at, int step) {
    (void)step;  // there is one group
    return load<Bytes>(base + at[0]);
}
template <class T>
inline Bytes load_each(const uint8_t* base, const int32_t* at, int count) {
    T elements[kVector / sizeof(T)] = {};
    for (int i = 0; i < count; ++i) memcpy(elements + i, base + at[i], sizeof(T));
    return load<Bytes>(elements);
}
inline Bytes load_halves(const uint8_t* base, const int32_t* at, int step) {
    (void)step;
    return load_each<uint64_t>(base, at, 2);
}
inline Bytes load_quarters(const uint8_t* base, const int32_t* at) { return load_each<uint32_t>(base, at, 4); }
inline S16 load_pairs(const uint8_t* base, const int32_t* at) {
    const Bytes v = load_each<uint16_t>(base, at, 4);
    return S16{v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7]};
}

// A plain store.
inline void stream(void* p, Bytes v) { store(p, v); }
inline void stream_groups(uint8_t* base, const int64_t* to, Bytes v) { store(base + to[0], v); }
inline void stream_fence() {}

// ---- Arithmetic ---------------------------------------------------------------------------------------------------

#define TARN_LANEWISE(name, V, T, expression)                                      \
    inline V name(V a, V b) {                                                      \
        return lanewise(a, b, [](int32_t x, int32_t y) { return T(expression); }); \
    }
TARN_LANEWISE(saturated_add, U8, uint8_t, clamp(x + y, 0, 255))
TARN_LANEWISE(saturated_add, S16, int16_t, clamp(x + y, -32768, 32767))
TARN_LANEWISE(saturated_sub, U8, uint8_t, clamp(x - y, 0, 255))
TARN_LANEWISE(saturated_sub, S16, int16_t, clamp(x - y, -32768, 32767))
TARN_LANEWISE(average, U8, uint8_t, (x + y + 1) >> 1)
TARN_LANEWISE(mul_high, S16, int16_t, x* y >> 16)
TARN_LANEWISE(mul_fixed15, S16, int16_t, (x * y + 0x4000) >> 15)  // of fractions, rounded
TARN_LANEWISE(mul_high, U16, uint16_t, uint32_t(x) * uint32_t(y) >> 16)
#undef TARN_LANEWISE
#define TARN_MIN_MAX(V)                                   \
    inline V min(V a, V b) { return (V)(a < b ? a : b); } \
    inline V max(V a, V b) { return (V)(a > b ? a : b); }
TARN_MIN_MAX(U8)
TARN_MIN_MAX(S16)
TARN_MIN_MAX(U16)
TARN_MIN_MAX(S32)
TARN_MIN_MAX(U32)
TARN_MIN_MAX(F32)
TARN_MIN_MAX(F64)  // b where either is NaN, and of two zeros
#undef TARN_MIN_MAX

// Element i: the sum of v[i]'s elements, those 2 apart added first.
inline F32 sums_of_each(const F32 (&v)[4]) {
    F32 sums = {};
    for (int i = 0; i < 4; ++i) sums[i] = (v[i][0] + v[i][2]) + (v[i][1] + v[i][3]);
    return sums;
}
// Products of neighbours, added in pairs, saturated: a[2i] b[2i] + a[2i + 1] b[2i + 1].
inline S16 mul_add_pairs(U8 a, S8 b) {
    const S16 even = (S16)((U16)a & 0xff) * ((S16)((U16)b << 8) >> 8);
    return saturated_add(even, (S16)((U16)a >> 8) * ((S16)b >> 8));
}
inline S32 mul_add_pairs(S16 a, S16 b) {
    S32 sums{};
    for (int i = 0; i < kLanes<int32_t>; ++i)
        sums[i] = int32_t(uint32_t(a[2 * i] * b[2 * i]) + uint32_t(a[2 * i + 1] * b[2 * i + 1]));
    return sums;
}
// a + b and a * b where of two NaN the first wins.
inline F32 add_ordered(F32 a, F32 b) { return a != a ? a + a : a + b; }
inline F32 mul_ordered(F32 a, F32 b) { return a != a ? a + a : a * b; }
// a + b in 16 bits, of the lower and the upper half.
inline U16 widening_add(U8 a, U8 b, int from) {
    U16 sums{};
    for (int i = 0; i < kLanes<uint16_t>; ++i) sums[i] = uint16_t(a[from + i] + b[from + i]);
    return sums;
}
inline U16 widening_add_lower(U8 a, U8 b) { return widening_add(a, b, 0); }
inline U16 widening_add_upper(U8 a, U8 b) { return widening_add(a, b, 8); }
// Sums of eight bytes each.
inline U64 sums_of_8(U8 v) {
    U64 sums{};
    for (int i = 0; i < kLanes<uint8_t>; ++i) sums[i / 8] += v[i];
    return sums;
}

inline bool all_zero(Bytes v) { return (((U64)v)[0] | ((U64)v)[1]) == 0; }

// ---- Moves --------------------------------------------------------------------------------------------------------

template <class T>
inline Bytes interleave(Bytes a, Bytes b, int from) {
    Vec<T> r = {};
    for (int i = 0; i < kLanes<T> / 2; ++i) {
        r[2 * i] = ((Vec<T>)a)[from + i];
        r[2 * i + 1] = ((Vec<T>)b)[from + i];
    }
    return (Bytes)r;
}
inline Bytes interleave_lower8(Bytes a, Bytes b) { return interleave<uint8_t>(a, b, 0); }
inline Bytes interleave_upper8(Bytes a, Bytes b) { return interleave<uint8_t>(a, b, 8); }
inline Bytes interleave_lower16(Bytes a, Bytes b) { return interleave<uint16_t>(a, b, 0); }
inline Bytes interleave_upper16(Bytes a, Bytes b) { return interleave<uint16_t>(a, b, 4); }
inline Bytes interleave_lower32(Bytes a, Bytes b) { return interleave<uint32_t>(a, b, 0); }
inline Bytes interleave_upper32(Bytes a, Bytes b) { return interleave<uint32_t>(a, b, 2); }
inline Bytes interleave_lower64(Bytes a, Bytes b) { return interleave<uint64_t>(a, b, 0); }
inline Bytes interleave_upper64(Bytes a, Bytes b) { return interleave<uint64_t>(a, b, 1); }

// Elements 0 and 2, or 1 and 3, of four bytes of a, then of b.
inline Bytes even32(Bytes a, Bytes b) {
    const U32 x = (U32)a, y = (U32)b;
    return (Bytes)U32{x[0], x[2], y[0], y[2]};
}
inline Bytes odd32(Bytes a, Bytes b) {
    const U32 x = (U32)a, y = (U32)b;
    return (Bytes)U32{x[1], x[3], y[1], y[3]};
}
// One element of four bytes, four times.
template <int kElement>
inline Bytes repeat32(Bytes v) {
    return (Bytes)splat(((U32)v)[kElement]);
}

template <class To, class From>
inline Vec<To> narrow_halves(Vec<From> a, Vec<From> b, From least, From most) {
    Vec<To> r = {};
    for (int i = 0; i < kLanes<From>; ++i) {
        r[i] = To(clamp<From>(a[i], least, most));
        r[kLanes<From> + i] = To(clamp<From>(b[i], least, most));
    }
    return r;
}
inline U8 narrow_groups_u8(S16 a, S16 b) { return narrow_halves<uint8_t, int16_t>(a, b, 0, 255); }
inline S8 narrow_groups(S16 a, S16 b) { return narrow_halves<int8_t, int16_t>(a, b, -128, 127); }
inline S16 narrow_groups(S32 a, S32 b) { return narrow_halves<int16_t, int32_t>(a, b, -32768, 32767); }
// a where the mask's bytes are all ones, b where they are zero.
inline Bytes blend(Bytes mask, Bytes a, Bytes b) { return select(mask, a, b); }
// Byte i is byte index[i] of v; 0 where the index has its top bit.
inline Bytes lookup(Bytes v, Bytes index) {
    Bytes r = {};
    for (int i = 0; i < 16; ++i) r[i] = index[i] & 0x80 ? 0 : v[index[i] & 15];
    return r;
}
// Element i is element index[i] of v, modulo the elements there are; of two vectors: of a, and after its last of b.
inline F32 permute(F32 v, S32 index) {
    F32 r = {};
    for (int i = 0; i < 4; ++i) r[i] = v[index[i] & 3];
    return r;
}
inline F32 permute(F32 a, F32 b, S32 index) {
    return select((Bytes)((index & 4) != 0), permute(b, index), permute(a, index));
}
inline Bytes every_group(const void* p) { return load<Bytes>(p); }
inline Bytes in_order_once(Bytes v) { return v; }
inline Bytes in_order_twice(Bytes v) { return v; }
inline Bytes join_twelves(Bytes v) { return v; }
template <class V>
inline void deal_groups3(V&, V&, V&) {}

// ---- Bits ---------------------------------------------------------------------------------------------------------

// A bit for each element that is not zero, the first the lowest.
inline uint64_t nonzero_bits(U8 v) {
    uint64_t bits = 0;
    for (int i = 0; i < kLanes<uint8_t>; ++i) bits |= uint64_t(v[i] != 0) << i;
    return bits;
}
// How many are set: sums of pairs, of fours, of bytes, of all bytes. Not by the instruction, which may be missing.
inline int64_t count_bits(uint64_t bits) {
    bits -= bits >> 1 & 0x5555555555555555;
    bits = (bits & 0x3333333333333333) + (bits >> 2 & 0x3333333333333333);
    return int64_t(((bits + (bits >> 4)) & 0x0f0f0f0f0f0f0f0f) * 0x0101010101010101 >> 56);
}
// A bit for each element that is negative.
inline uint64_t negative_bits(S8 v) {
    uint64_t bits = 0;
    for (int i = 0; i < kLanes<int8_t>; ++i) bits |= uint64_t(v[i] < 0) << i;
    return bits;
}
// A bit for each element that differs.
inline uint64_t differing_bits(U64 a, U64 b) { return uint64_t(a[0] != b[0]) | uint64_t(a[1] != b[1]) << 1; }

// ---- Types --------------------------------------------------------------------------------------------------------

// The lower and the upper half of the elements widened, and two halves narrowed and joined.
inline F64 widen_lower(F32 v) { return F64{v[0], v[1]}; }
inline F64 widen_upper(F32 v) { return F64{v[2], v[3]}; }
inline F32 narrow(F64 lower, F64 upper) {
    return F32{float(lower[0]), float(lower[1]), float(upper[0]), float(upper[1])};
}
// The same, each group of both to a group.
inline F32 narrow_groups(F64 a, F64 b) { return narrow(a, b); }
// As many elements as a vector has, from narrower ones.
template <class V, class S>
inline V widened(const S* p) {
    V v = {};
    for (int i = 0; i < int(kVector / sizeof v[0]); ++i) v[i] = p[i];
    return v;
}
inline S16 load_s16(const uint8_t* p) { return widened<S16>(p); }
inline S32 load_s32(const uint8_t* p) { return widened<S32>(p); }
inline S32 load_s32(const int16_t* p) { return widened<S32>(reinterpret_cast<const Loose<int16_t>*>(p)); }
// Doubles from the floats at p, a vector of them, and from the first n of fewer with zeros behind.
inline F64 load_f64_n(const void* p, int64_t n) {
    float f[2] = {};
    memcpy(f, p, size_t(n) * sizeof(float));
    return F64{f[0], f[1]};
}
inline F64 load_f64(const void* p) { return load_f64_n(p, 2); }
// The nearest integers, ties to the even ones. Out of range, and NaN: the smallest. Below 2^23 a sum with 2^23 of the
// same sign rounds; from there on every float is an integer.
inline S32 nearest_int(F32 v) {
    S32 r = {};
    for (int i = 0; i < 4; ++i) {
        const float shift = v[i] < 0 ? -8388608.0f : 8388608.0f;
        const float whole = v[i] > -8388608.0f && v[i] < 8388608.0f ? (v[i] + shift) - shift : v[i];
        r[i] = v[i] >= -2147483648.0f && v[i] < 2147483648.0f ? int32_t(whole) : INT32_MIN;
    }
    return r;
}
// The same saturated: what is above the range is the largest, the smallest's complement.
inline S32 nearest_int_saturated(F32 v) { return nearest_int(v) ^ (v >= splat(2147483648.0f)); }

constexpr bool kHasLookup = false, kHasPermute = false, kHasMulAdd = false, kHasMinMax32 = false, kHasLaneBits = false;

// ---- Sixteen counts -----------------------------------------------------------------------------------------------

// Sixteen elements of 16 bits, whatever a vector has.
struct U16x16 {
    uint16_t v[16];
};
// c + p, and c + in - out, of the sixteen bytes there.
inline U16x16 widening_add(U16x16 c, const uint8_t* p) {
    for (int i = 0; i < 16; ++i) c.v[i] = uint16_t(c.v[i] + p[i]);
    return c;
}
inline U16x16 widening_exchange(U16x16 c, const uint8_t* in, const uint8_t* out) {
    for (int i = 0; i < 16; ++i) c.v[i] = uint16_t(c.v[i] + in[i] - out[i]);
    return c;
}
// How many are at most the limit.
inline int64_t count_up_to(U16x16 c, uint16_t limit) {
    int64_t n = 0;
    for (int i = 0; i < 16; ++i) n += c.v[i] <= limit;
    return n;
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
