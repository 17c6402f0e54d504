// The vector vocabulary of the kernels: vectors as wide as the level's registers, and one word for each thing done to
// them.
//
// A vector is the compilers' own vector type, so + - * / & | ^ ~ << >>, comparisons (all ones where true) and element
// access are plain expressions, and a cast (U16)v looks at the same bytes as other elements. Only what expressions
// can't say, or compilers say badly, has a word here. The words of a register width stand in one file each; a word that
// the processor lacks is made of others, and its line there says what it costs. Groups are the 16-byte parts of a
// vector.
//
// Memory may start at any byte.
#pragma once

#include "kernels/base/body.h"

namespace tarn::k::TARN_LEVEL {
namespace {

#if defined(TARN_X86) && defined(__AVX512BW__)
constexpr int64_t kVector = 64;  // bytes
#elif defined(TARN_X86) && defined(__AVX2__)
constexpr int64_t kVector = 32;
#else
constexpr int64_t kVector = 16;
#endif
constexpr int kGroups = int(kVector / 16);
template <class T>
constexpr int kLanes = int(kVector / sizeof(T));

template <class T>
struct VectorOf {
    typedef T Type __attribute__((vector_size(kVector)));
};
template <class T>
using Vec = typename VectorOf<T>::Type;
using U8 = Vec<uint8_t>;
using S8 = Vec<int8_t>;
using U16 = Vec<uint16_t>;
using S16 = Vec<int16_t>;
using U32 = Vec<uint32_t>;
using S32 = Vec<int32_t>;
using U64 = Vec<uint64_t>;
using F32 = Vec<float>;
using F64 = Vec<double>;
using Bytes = U8;                                     // of elements of any type
typedef float Four __attribute__((vector_size(16)));  // a pixel of several channels, as floats

// ---- Memory -------------------------------------------------------------------------------------------------------

// The vector at p.
template <class V>
inline V load(const void* p) {
    V v;
    memcpy(&v, p, sizeof v);
    return v;
}
template <class V>
inline void store(void* p, V v) {
    memcpy(p, &v, sizeof v);
}

// Moves n bytes, 0 <= n < kVector, in two pieces that may overlap, as may source and destination.
[[maybe_unused, gnu::noinline]] void copy_bytes(void* to, const void* from, int64_t n) {
    uint8_t* d = static_cast<uint8_t*>(to);
    const uint8_t* s = static_cast<const uint8_t*>(from);
#define TARN_PIECES(bytes)                  \
    if (bytes < kVector && n >= bytes) {    \
        uint8_t first[bytes], last[bytes];  \
        memcpy(first, s, bytes);            \
        memcpy(last, s + n - bytes, bytes); \
        memcpy(d, first, bytes);            \
        memcpy(d + n - bytes, last, bytes); \
        return;                             \
    }
    TARN_PIECES(32)
    TARN_PIECES(16)
    TARN_PIECES(8)
    TARN_PIECES(4)
    TARN_PIECES(2)
#undef TARN_PIECES
    if (n) *d = *s;
}

// The first n bytes at p, 0 <= n <= 16, the others zero; of two loads that may overlap. Vectors of a part of a row are
// made of these: one loaded from a buffer would wait until the pieces stored there have reached the cache.
struct Sixteen {
    uint64_t lower, upper;
};
inline Sixteen first_bytes(const void* p, int64_t n) {
    const uint8_t* s = static_cast<const uint8_t*>(p);
    const auto two = [=](auto piece) {
        auto last = piece;
        memcpy(&piece, s, sizeof piece), memcpy(&last, s + n - int64_t(sizeof piece), sizeof piece);
        return Sixteen{piece, last};
    };
    if (n > 8) {
        const Sixteen of = two(uint64_t());
        return {of.lower, of.upper >> 8 * (16 - n)};
    }
    const auto joined = [=](Sixteen of, int64_t bytes) { return Sixteen{of.lower | of.upper << 8 * (n - bytes), 0}; };
    if (n >= 4) return joined(two(uint32_t()), 4);
    if (n >= 2) return joined(two(uint16_t()), 2);
    return {n ? *s : uint64_t(0), 0};
}

// ---- Values -------------------------------------------------------------------------------------------------------

// Every element the value. The difference with zero is the value itself, -0 too (a sum would lose its sign), and
// compiles to one broadcast, which a loop over the elements doesn't.
template <class T>
inline Vec<T> splat(T value) {
    return value - Vec<T>{};
}

// v, or the one NaN where v is any: which operand's NaN a sum hands on depends on the compiler.
inline float settle_nan(float v) { return v == v ? v : __builtin_nanf(""); }

// a where the mask's bits are set, else b.
template <class V>
inline V select(Bytes mask, V a, V b) {
    return (V)(((Bytes)a & mask) | ((Bytes)b & ~mask));
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL

#if !defined(TARN_X86)
#include "kernels/simd/portable.h"
#elif defined(__AVX512BW__)
#include "kernels/simd/x86_64.h"
#elif defined(__AVX2__)
#include "kernels/simd/x86_32.h"
#else
#include "kernels/simd/x86_16.h"
#endif

namespace tarn::k::TARN_LEVEL {
namespace {

#if !defined(TARN_X86) || !defined(__AVX512BW__)
// ---- Vectors whose masks are bytes: the 64-byte ones have words of their own, with masks of bits --------------------

// Stores the bytes whose mask is all ones: the others are read and written back.
template <class V>
inline void store_where(void* p, Bytes mask, V v) {
    store(p, blend(mask, (Bytes)v, load<Bytes>(p)));
}
template <class V>
inline void store_where_n(void* p, Bytes mask, V v, int64_t n) {
    store_n(p, blend(mask, (Bytes)v, load_n(p, n, Bytes{})), n);
}
// counts + 1 where a <= b, and where lower <= v <= upper.
inline U8 count_le(U8 counts, U8 a, U8 b) { return counts - (U8)(min(a, b) == a); }
inline U32 count_within(U32 counts, F32 v, F32 lower, F32 upper) {
    return counts - ((U32)(v >= lower) & (U32)(v <= upper));
}
// v + more, and one more than that where v has a bit of `odd`, which is a single one.
inline U16 add_and_carry(U16 v, uint16_t more, uint16_t odd) {
    return v + splat(more) - (U16)((v & splat(odd)) == splat(odd));
}
// v, or the one NaN where v is any.
inline F32 settle_nan(F32 v) { return v == v ? v : splat(__builtin_nanf("")); }
#endif

// ---- Made of the words of any width -------------------------------------------------------------------------------

// The first n bytes at p, 0 <= n <= kVector, the others zero.
template <class V>
inline V load_n(const void* p, int64_t n) {
    return load_n(p, n, V{});
}

// A vector of 2 bytes each, from addresses of their own, base + at[...].
[[gnu::always_inline]] inline Bytes load_eighths(const uint8_t* base, const int32_t* at) {
    U16 v = {};
    for (int i = 0; i < kLanes<uint16_t>; ++i) v[i] = *reinterpret_cast<const Loose<uint16_t>*>(base + at[i]);
    return (Bytes)v;
}

// Products with fractions of 16 bits, rounded: (a * b + 0x8000) >> 16.
inline S16 mul_fixed16(S16 a, S16 b) { return mul_high(a, b) + (S16)((U16)a * (U16)b >> 15); }

// As many elements as a vector has, from elements of any type.
inline S32 load_s32(const int32_t* p) { return load<S32>(p); }
template <class S>
inline F32 load_f32(const S* p) {
    return __builtin_convertvector(load_s32(p), F32);
}
inline F32 load_f32(const float* p) { return load<F32>(p); }
inline Four load_four(const float* p) { return load<Four>(p); }
#if !defined(TARN_X86) || !defined(__AVX2__)
template <class S>
inline Four load_four(const S* p) {
    return load_f32(p);
}
#endif
template <class S>
inline void load_f32_four(const S* p, F32 (&v)[4]) {
    for (int i = 0; i < 4; ++i) v[i] = load_f32(p + i * kLanes<float>);
}
#if !defined(TARN_X86) || defined(__SSE4_1__)
inline S32 load_difference(const int16_t* a, const int16_t* b) { return load_s32(a) - load_s32(b); }
#endif

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
