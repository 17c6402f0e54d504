// For kernel sources only: what bodies of every family use. Everything here has internal linkage inside the level's
// namespace: an inline function with external linkage, emitted by the level-4 object and picked by the linker for all
// levels, would crash an older processor. For the same reason kernel sources use no templates of the standard library.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

// TARN_PORTABLE: the build for processors without vectors of ours, which the tests make on any machine.
#if defined(__x86_64__) && !defined(TARN_PORTABLE)
#define TARN_X86 1
// g++ 12 takes the deliberately undefined registers inside of these for a mistake.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#endif
#include <immintrin.h>
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif
#endif

#include "kernels/base/kernel.h"

#ifndef TARN_LEVEL
#error "body.h is for kernel sources, which are compiled once per level"
#endif

#define TARN_RESTRICT __restrict

namespace tarn::k::TARN_LEVEL {
namespace {

template <class T>
constexpr T min(T a, T b) {
    return b < a ? b : a;
}
template <class T>
constexpr T max(T a, T b) {
    return a < b ? b : a;
}
template <class T>
constexpr T clamp(T v, T lo, T hi) {
    return v < lo ? lo : hi < v ? hi : v;
}

// An element at any byte address, as plain loops read and write it: Loose<float>* p, p[i] = p[j] * 2.
template <class T>
struct [[gnu::packed]] LooseElement {
    T value;
    operator T() const { return value; }
    LooseElement& operator=(T v) {
        value = v;
        return *this;
    }
};
template <class T>
struct LooseOf {
    using Type = LooseElement<T>;
};
template <>
struct LooseOf<uint8_t> {
    using Type = uint8_t;
};
template <class T>
using Loose = typename LooseOf<T>::Type;

// Every kernel's way out. While the upper halves of wide registers are in use, narrow code runs slower; compilers clear
// them at the end of a function only where they see no vector handed on, which a call in tail position is.
inline Status clean(Status status) {
#if defined(TARN_X86) && defined(__AVX__)
    _mm256_zeroupper();
#endif
    return status;
}

// The checks at every kernel's door: no null pointer, a positive size.
template <class... Pointers>
inline Status check(Size size, Pointers... pointers) {
    if ((!pointers || ...)) return kNull;
    if (size.width <= 0 || size.height <= 0) return kBadSize;
    return kOk;
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
