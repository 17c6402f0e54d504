// For kernel sources only: rows that go on beyond the image's edges.
#pragma once

#include "kernels/simd/simd.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// n elements, as they are or as floats.
template <class T, class To>
inline void convert_elements(const T* s, int64_t n, To* to) {
    constexpr int kStep = kLanes<float>;
    if constexpr (__is_same(T, To)) {
        memcpy(to, s, size_t(n) * sizeof(T));
    } else if (n < kStep) {
        for (int64_t i = 0; i < n; ++i) to[i] = To(reinterpret_cast<const Loose<T>*>(s)[i]);
    } else {
        for (int64_t i = 0; i < n - kStep; i += kStep) store(to + i, load_f32(s + i));
        store(to + n - kStep, load_f32(s + n - kStep));  // overlaps the one before
    }
}

// Pixels [from, from + count) of a row of `width` pixels, which may begin before it and end behind: outside the edge
// pixel repeats. To: the row's element type, or float.
template <class T, class To>
void replicate_row(const T* s, int64_t width, int channels, int64_t from, int64_t count, To* to) {
    const int64_t left = clamp<int64_t>(-from, 0, count), right = clamp<int64_t>(from + count - width, 0, count);
    const auto repeat = [=](const T* pixel, int64_t x, int64_t end) {
        for (; x < end; ++x)
            for (int c = 0; c < channels; ++c) to[x * channels + c] = To(reinterpret_cast<const Loose<T>*>(pixel)[c]);
    };
    repeat(s, 0, left);
    convert_elements(s + (from + left) * channels, (count - left - right) * channels, to + left * channels);
    repeat(s + (width - 1) * channels, count - right, count);
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
