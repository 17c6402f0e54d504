// For kernel sources only: rows that go on beyond the image's edges.
#pragma once

#include "kernels/simd/simd.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// n elements as floats.
template <class T>
inline void convert_elements(const T* s, int64_t n, float* to) {
    constexpr int kStep = kLanes<float>;
    if (n < kStep) {
        for (int64_t i = 0; i < n; ++i) to[i] = float(reinterpret_cast<const Loose<T>*>(s)[i]);
    } else {
        for (int64_t i = 0; i < n - kStep; i += kStep) store(to + i, load_f32(s + i));
        store(to + n - kStep, load_f32(s + n - kStep));  // overlaps the one before
    }
}

// Pixels [from, from + count) of a row of `width` pixels as floats. The row may begin before it and end behind: outside
// the edge pixel repeats. Behind them room for three floats more.
template <class T>
void replicate_row(const T* s, int64_t width, int channels, int64_t from, int64_t count, float* to) {
    const int64_t left = clamp<int64_t>(-from, 0, count), right = clamp<int64_t>(from + count - width, 0, count);
    const auto repeat = [=](const T* pixel, int64_t x, int64_t end) {
        const auto* e = reinterpret_cast<const Loose<T>*>(pixel);
        const float v = float(*e);
        Four four{v, v, v, v};
        for (int c = 1; c < channels; ++c) four[c] = float(e[c]);
        for (; x < end; ++x) store(to + x * channels, four);
    };
    if (left > 0) repeat(s, 0, left);
    convert_elements(s + (from + left) * channels, (count - left - right) * channels, to + left * channels);
    if (right > 0) repeat(s + (width - 1) * channels, count - right, count);
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
