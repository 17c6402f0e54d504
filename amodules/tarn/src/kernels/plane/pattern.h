// For kernel sources only: constants per channel as whole vectors. Every pixel of 1, 3 or 4 elements of up to 4 bytes fits
// three vectors without a rest, so a row of any form is a stream of whole vectors, three by three, and channels are never
// taken apart.
#pragma once

#include "kernels/plane/store.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// One pixel repeated over three vectors.
struct Pattern {
    Bytes v[3];
};
template <class T, Form kForm>
inline Pattern pattern_of(const T* pixel) {
    constexpr int kChannels = channels(kForm);
    if constexpr (kChannels == 1) {
        const Bytes all = (Bytes)splat<T>(*pixel);
        return {{all, all, all}};
    }
    T buffer[3 * kLanes<T>];
    for (int i = 0; i < 3 * kLanes<T>; i += kChannels)
        for (int c = 0; c < kChannels; ++c) buffer[i + c] = pixel[c];
    Pattern p;
    memcpy(&p, buffer, sizeof p);
    return p;
}

// The constants of a caller, one per channel that is worked on; a kept fourth channel has `fourth`.
template <class T, Form kForm>
inline void read_constants(const void* constants, T (&pixel)[4], T fourth = T()) {
    memcpy(pixel, constants, used(kForm) * sizeof(T));
    if (kept(kForm)) pixel[3] = fourth;
}
template <class T, Form kForm>
inline Pattern pattern_of_constants(const void* constants, T fourth = T()) {
    T pixel[4];
    read_constants<T, kForm>(constants, pixel, fourth);
    return pattern_of<T, kForm>(pixel);
}

// A vector's place in a pattern, known when compiled.
template <int kIndex>
struct Phase {
    static constexpr int index = kIndex;
};

// f(io, offset, phase) for every vector of a row of n bytes, three at a time.
template <class F>
inline void each_phase(int64_t n, F f) {
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

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
