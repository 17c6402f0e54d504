// For kernel sources only: element-wise work on rows of whole vectors. A row is a run of bytes; its last piece, shorter
// than a vector, goes through the same operator, so that an operator is written once. A vector is read before anything
// is written at its place, hence a destination may be one of the sources (same pointer, same stride); planes that
// overlap in any other way give unspecified pixels.
//
// The vector types are the compilers' own (as wide as the level's registers), so operators are plain expressions; only
// what expressions can't say has a function here.
#pragma once

#include "kernels/base/body.h"
#include "kernels/plane/plane.h"

namespace tarn::k::TARN_LEVEL {
namespace {

#if defined(__AVX512BW__)
constexpr int64_t kVector = 64;
#define TARN_INTEGER(name, a, b) (Bytes) _mm512_##name((__m512i)(a), (__m512i)(b))
#elif defined(__AVX2__)
constexpr int64_t kVector = 32;
#define TARN_INTEGER(name, a, b) (Bytes) _mm256_##name((__m256i)(a), (__m256i)(b))
#else
constexpr int64_t kVector = 16;
#define TARN_INTEGER(name, a, b) (Bytes) _mm_##name((__m128i)(a), (__m128i)(b))
#endif

template <class T>
struct VectorOf {
    typedef T type __attribute__((vector_size(kVector)));
};
template <class T>
using Vec = typename VectorOf<T>::type;
using Bytes = Vec<uint8_t>;

// Moves n bytes, fewer than a vector: what is left of a row.
[[maybe_unused, gnu::noinline]] void copy_part(uint8_t* d, const uint8_t* s, int64_t n) {
#define TARN_PIECE(bytes)          \
    if constexpr (bytes < kVector) \
        if (n & bytes) memcpy(d, s, bytes), d += bytes, s += bytes;
    TARN_PIECE(32)
    TARN_PIECE(16)
    TARN_PIECE(8)
    TARN_PIECE(4)
    TARN_PIECE(2)
    TARN_PIECE(1)
#undef TARN_PIECE
}

// How a vector meets memory: whole, or its first n bytes only (the others are zero).
struct Whole {
    Bytes load(const uint8_t* p) const {
        Bytes v;
        memcpy(&v, p, sizeof v);
        return v;
    }
    void store(uint8_t* p, Bytes v) const { memcpy(p, &v, sizeof v); }
};
struct Part {
    int64_t n;
#if defined(__AVX512BW__)
    __mmask64 mask() const { return ~uint64_t(0) >> (64 - n); }
    Bytes load(const uint8_t* p) const { return (Bytes)_mm512_maskz_loadu_epi8(mask(), p); }
    void store(uint8_t* p, Bytes v) const { _mm512_mask_storeu_epi8(p, mask(), (__m512i)v); }
#else
    Bytes load(const uint8_t* p) const {
        uint8_t buffer[kVector] = {};
        copy_part(buffer, p, n);
        return Whole{}.load(buffer);
    }
    void store(uint8_t* p, Bytes v) const {
        uint8_t buffer[kVector];
        Whole{}.store(buffer, v);
        copy_part(p, buffer, n);
    }
#endif
};

template <class T>
[[maybe_unused]] inline Bytes broadcast(T value) {
    return (Bytes)(Vec<T>{} + value);
}

// mask's bits of a, the others of b.
[[maybe_unused]] inline Bytes select(Bytes mask, Bytes a, Bytes b) { return (a & mask) | (b & ~mask); }

// Ones in the first three elements of every four.
template <class T>
[[maybe_unused]] inline Bytes colour_mask() {
    constexpr uint64_t even = sizeof(T) == 1 ? 0x00ffffff00ffffff : sizeof(T) == 2 ? 0x0000ffffffffffff : ~uint64_t(0);
    constexpr uint64_t odd = sizeof(T) == 4 ? 0x00000000ffffffff : even;
    Vec<uint64_t> v = {};
    for (int i = 0; i < kVector / 8; ++i) v[i] = i % 2 ? odd : even;
    return (Bytes)v;
}

// One pixel repeated over three vectors. Every pixel of 1, 3 or 4 elements of up to 4 bytes fits them without a rest,
// so three channels need no taking apart.
struct Pattern {
    Bytes v[3];
};
template <class T, int kChannels>
[[maybe_unused]] inline Pattern pattern_of(const T* pixel) {
    if constexpr (kChannels == 1) {
        const Bytes all = broadcast<T>(*pixel);
        return {{all, all, all}};
    }
    T buffer[3 * kVector / sizeof(T)];
    for (int64_t i = 0; i < int64_t(3 * kVector / sizeof(T)); i += kChannels)
        for (int c = 0; c < kChannels; ++c) buffer[i + c] = pixel[c];
    Pattern p;
    memcpy(&p, buffer, sizeof p);
    return p;
}

// A vector's place in a pattern, known when compiled.
template <int kIndex>
struct Phase {
    static constexpr int index = kIndex;
};

// f(access, offset, phase) for every vector of a row of n bytes, three at a time.
template <class F>
[[maybe_unused]] inline void each_vector(int64_t n, F f) {
    int64_t i = 0;
    for (; i + 3 * kVector <= n; i += 3 * kVector) {
        f(Whole{}, i, Phase<0>{});
        f(Whole{}, i + kVector, Phase<1>{});
        f(Whole{}, i + 2 * kVector, Phase<2>{});
    }
    const int64_t left = n - i;
    if (left >= 2 * kVector) {
        f(Whole{}, i, Phase<0>{});
        f(Whole{}, i + kVector, Phase<1>{});
        if (left > 2 * kVector) f(Part{left - 2 * kVector}, i + 2 * kVector, Phase<2>{});
    } else if (left >= kVector) {
        f(Whole{}, i, Phase<0>{});
        if (left > kVector) f(Part{left - kVector}, i + kVector, Phase<1>{});
    } else if (left > 0) {
        f(Part{left}, i, Phase<0>{});
    }
}

// The same, one at a time and without phases, for operators that are long themselves.
template <class F>
[[maybe_unused]] inline void each_single_vector(int64_t n, F f) {
    int64_t i = 0;
    for (; i + kVector <= n; i += kVector) f(Whole{}, i);
    if (i < n) f(Part{n - i}, i);
}

// ---- What expressions can't say -----------------------------------------------------------------------------------

// unpack_lo, unpack_hi and the packs work within 16-byte groups, whatever the vector's width: a pack undoes both
// unpacks.

#if defined(__SSE2__)
[[maybe_unused]] inline Bytes adds_u8(Bytes a, Bytes b) { return TARN_INTEGER(adds_epu8, a, b); }
[[maybe_unused]] inline Bytes subs_u8(Bytes a, Bytes b) { return TARN_INTEGER(subs_epu8, a, b); }
[[maybe_unused]] inline Bytes adds_s16(Bytes a, Bytes b) { return TARN_INTEGER(adds_epi16, a, b); }
[[maybe_unused]] inline Bytes subs_s16(Bytes a, Bytes b) { return TARN_INTEGER(subs_epi16, a, b); }
[[maybe_unused]] inline Bytes subs_u16(Bytes a, Bytes b) { return TARN_INTEGER(subs_epu16, a, b); }
[[maybe_unused]] inline Bytes mulhi_s16(Bytes a, Bytes b) { return TARN_INTEGER(mulhi_epi16, a, b); }
[[maybe_unused]] inline Bytes mulhi_u16(Bytes a, Bytes b) { return TARN_INTEGER(mulhi_epu16, a, b); }
[[maybe_unused]] inline Bytes unpack_lo8(Bytes a, Bytes b) { return TARN_INTEGER(unpacklo_epi8, a, b); }
[[maybe_unused]] inline Bytes unpack_hi8(Bytes a, Bytes b) { return TARN_INTEGER(unpackhi_epi8, a, b); }
[[maybe_unused]] inline Bytes unpack_lo16(Bytes a, Bytes b) { return TARN_INTEGER(unpacklo_epi16, a, b); }
[[maybe_unused]] inline Bytes unpack_hi16(Bytes a, Bytes b) { return TARN_INTEGER(unpackhi_epi16, a, b); }
[[maybe_unused]] inline Bytes pack_s16_u8(Bytes a, Bytes b) { return TARN_INTEGER(packus_epi16, a, b); }
[[maybe_unused]] inline Bytes pack_s16_s8(Bytes a, Bytes b) { return TARN_INTEGER(packs_epi16, a, b); }
[[maybe_unused]] inline Bytes pack_s32_s16(Bytes a, Bytes b) { return TARN_INTEGER(packs_epi32, a, b); }
[[maybe_unused]] inline Bytes min_u16(Bytes a, Bytes b) {
#if defined(__SSE4_1__)
    return TARN_INTEGER(min_epu16, a, b);
#else
    return (Bytes)((Vec<uint16_t>)a - (Vec<uint16_t>)subs_u16(a, b));
#endif
}
#if defined(__SSSE3__)
// Products of unsigned and signed bytes, added in pairs.
[[maybe_unused]] inline Bytes dot_u8_s8(Bytes a, Bytes b) { return TARN_INTEGER(maddubs_epi16, a, b); }
#endif

// a + b and a * b where the first operand's NaN wins. The compiler may swap the operands of its own + and *, and the
// processor answers two NaN with the first; results would then differ between levels.
#if defined(__AVX__)
#define TARN_ORDERED(name) asm("v" name " %2, %1, %0" : "=v"(r) : "v"(a), "v"(b))
#else
#define TARN_ORDERED(name) asm(name " %2, %0" : "=x"(r) : "0"(a), "x"(b))
#endif
[[maybe_unused]] inline Vec<float> add_ordered(Vec<float> a, Vec<float> b) {
    Vec<float> r;
    TARN_ORDERED("addps");
    return r;
}
[[maybe_unused]] inline Vec<float> mul_ordered(Vec<float> a, Vec<float> b) {
    Vec<float> r;
    TARN_ORDERED("mulps");
    return r;
}
#undef TARN_ORDERED
#else
template <class T, class Wide, class F>
[[maybe_unused]] inline Bytes lanewise(Bytes a, Bytes b, F f) {
    Vec<T> va = (Vec<T>)a, vb = (Vec<T>)b;
    for (int i = 0; i < int(kVector / sizeof(T)); ++i) va[i] = T(f(Wide(va[i]), Wide(vb[i])));
    return (Bytes)va;
}
template <class From, class To>
[[maybe_unused]] inline Bytes pack(Bytes a, Bytes b, From lo, From hi) {
    constexpr int n = int(kVector / sizeof(From));
    Vec<To> r = {};
    for (int i = 0; i < n; ++i) {
        r[i] = To(clamp<From>(((Vec<From>)a)[i], lo, hi));
        r[n + i] = To(clamp<From>(((Vec<From>)b)[i], lo, hi));
    }
    return (Bytes)r;
}
template <class T>
[[maybe_unused]] inline Bytes unpack(Bytes a, Bytes b, int from) {
    Vec<T> r = {};
    for (int i = 0; i < int(kVector / sizeof(T) / 2); ++i) {
        r[2 * i] = ((Vec<T>)a)[from + i];
        r[2 * i + 1] = ((Vec<T>)b)[from + i];
    }
    return (Bytes)r;
}
#define TARN_LANEWISE(name, T, expression)                                                  \
    [[maybe_unused]] inline Bytes name(Bytes a, Bytes b) {                                  \
        return lanewise<T, int32_t>(a, b, [](int32_t x, int32_t y) { return expression; }); \
    }
TARN_LANEWISE(adds_u8, uint8_t, min(x + y, 255))
TARN_LANEWISE(subs_u8, uint8_t, max(x - y, 0))
TARN_LANEWISE(adds_s16, int16_t, clamp(x + y, -32768, 32767))
TARN_LANEWISE(subs_s16, int16_t, clamp(x - y, -32768, 32767))
TARN_LANEWISE(subs_u16, uint16_t, max(x - y, 0))
TARN_LANEWISE(min_u16, uint16_t, min(x, y))
TARN_LANEWISE(mulhi_s16, int16_t, x* y >> 16)
TARN_LANEWISE(mulhi_u16, uint16_t, uint32_t(x) * uint32_t(y) >> 16)
#undef TARN_LANEWISE
[[maybe_unused]] inline Bytes unpack_lo8(Bytes a, Bytes b) { return unpack<uint8_t>(a, b, 0); }
[[maybe_unused]] inline Bytes unpack_hi8(Bytes a, Bytes b) { return unpack<uint8_t>(a, b, 8); }
[[maybe_unused]] inline Bytes unpack_lo16(Bytes a, Bytes b) { return unpack<uint16_t>(a, b, 0); }
[[maybe_unused]] inline Bytes unpack_hi16(Bytes a, Bytes b) { return unpack<uint16_t>(a, b, 4); }
[[maybe_unused]] inline Bytes pack_s16_u8(Bytes a, Bytes b) { return pack<int16_t, uint8_t>(a, b, 0, 255); }
[[maybe_unused]] inline Bytes pack_s16_s8(Bytes a, Bytes b) { return pack<int16_t, int8_t>(a, b, -128, 127); }
[[maybe_unused]] inline Bytes pack_s32_s16(Bytes a, Bytes b) { return pack<int32_t, int16_t>(a, b, -32768, 32767); }
[[maybe_unused]] inline Vec<float> add_ordered(Vec<float> a, Vec<float> b) { return a != a ? a + a : a + b; }
[[maybe_unused]] inline Vec<float> mul_ordered(Vec<float> a, Vec<float> b) { return a != a ? a + a : a * b; }
#endif
#undef TARN_INTEGER

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
