// For kernel sources only: what bodies of every family use. Everything here has internal linkage inside the level's
// namespace: an inline function with external linkage, emitted by the level-4 object and picked by the linker for all
// levels, would crash an older processor. For the same reason kernel sources use no templates of the standard library.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#if defined(__x86_64__)
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

#include "kernels/kernel.h"

#ifndef TARN_LEVEL
#error "body.h is for kernel sources, which are compiled once per level"
#endif

#define TARN_RESTRICT __restrict

namespace tarn::k::TARN_LEVEL {
namespace {

template <class T>
[[maybe_unused]] constexpr T min(T a, T b) {
    return b < a ? b : a;
}
template <class T>
[[maybe_unused]] constexpr T max(T a, T b) {
    return a < b ? b : a;
}
template <class T>
[[maybe_unused]] constexpr T clamp(T v, T lo, T hi) {
    return v < lo ? lo : hi < v ? hi : v;
}

// Row y of a plane. Offsets in 64 bits: an image may be larger than 2 GiB, and rows may go upwards.
template <class T>
[[maybe_unused]] inline T* row(void* data, int32_t stride, int64_t y) {
    return reinterpret_cast<T*>(static_cast<uint8_t*>(data) + y * stride);
}
template <class T>
[[maybe_unused]] inline const T* row(const void* data, int32_t stride, int64_t y) {
    return reinterpret_cast<const T*>(static_cast<const uint8_t*>(data) + y * stride);
}

// The checks at every kernel's door: a positive size, no null pointer.
template <class... Pointers>
[[maybe_unused]] inline Status check(Size size, Pointers... pointers) {
    if ((!pointers || ...)) return kNull;
    if (size.width <= 0 || size.height <= 0) return kBadSize;
    return kOk;
}

// A plane as the loops see it: rows of `length` bytes or elements. Planes without padding are one long row.
struct Rows {
    int64_t count;
    int64_t length;
};
// row_bytes: bytes of a row's pixels in each plane, followed by its stride, plane after plane.
template <class... Strides>
[[maybe_unused]] inline Rows rows_of(Size size, int64_t elements, int64_t element_bytes, Strides... strides) {
    const bool packed = (... && (strides == elements * element_bytes));
    return packed ? Rows{1, elements * size.height} : Rows{size.height, elements};
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
