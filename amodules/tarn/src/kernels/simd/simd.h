// The vector vocabulary of the kernels: vectors as wide as the level's registers, and one word for each thing done to them.
//
// A vector is the compilers' own vector type, so + - * / & | ^ ~ << >>, comparisons (all ones where true) and element access
// are plain expressions, and a cast (U16)v looks at the same bytes as other elements. Only what expressions can't say, or
// compilers say badly, has a word here. The words of a register width stand in one file each; a word that the processor
// lacks is made of others, and its line there says what it costs. Groups are the 16-byte parts of a vector.
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
using Bytes = U8;  // of elements of any type

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

// Moves n bytes, 0 <= n < kVector, in at most one step per power of two.
[[maybe_unused, gnu::noinline]] void copy_bytes(void* to, const void* from, int64_t n) {
    uint8_t* d = static_cast<uint8_t*>(to);
    const uint8_t* s = static_cast<const uint8_t*>(from);
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

// ---- Values -------------------------------------------------------------------------------------------------------

// Every element the value. A difference with zero: a sum would lose the sign of -0, and of an assignment to each element
// compilers do not always make one instruction.
template <class T>
inline Vec<T> splat(T value) {
    return value - Vec<T>{};
}

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
