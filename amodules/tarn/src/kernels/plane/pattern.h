// For kernel sources only: constants per channel as whole vectors. Every pixel of 1, 3 or 4 elements of up to 4 bytes
// fits three vectors without a rest, so a row of any form is a stream of whole vectors, three by three, and channels
// are never taken apart.
#pragma once

#include <type_traits>

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
    } else if constexpr (kChannels == 4) {  // a vector's bytes hold whole pixels
        Bytes all;
        if constexpr (sizeof(T) == 4) {
            all = (Bytes)every_group(pixel);
        } else {
            using Pixel = std::conditional_t<sizeof(T) == 1, int32_t, int64_t>;
            Pixel bits;
            memcpy(&bits, pixel, sizeof bits);
            all = (Bytes)splat<Pixel>(bits);
        }
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

// A row of whole pixels ends with a pattern's last vector, as three of them are whole pixels too.
using LastPhase = Phase<2>;

// Stores f(io, offset, phase), a vector, for every vector of a row of n bytes, three made before the first is stored.
// The last one overlaps the one before it and is made first: see store_each.
template <bool kKept, class F>
inline void store_each_phase(uint8_t* d, int64_t n, Bytes mask, F f) {
    const Whole whole;
    if (n < kVector) return store_form<kKept>(Part{n}, d, (Bytes)f(Part{n}, 0, Phase<0>{}), mask);
    const Bytes last = formed<kKept>(whole, d + n - kVector, f(whole, n - kVector, LastPhase{}), mask);
    const int64_t to = before_last(n);
    int64_t i = 0;
    for (; i + 3 * kVector <= to; i += 3 * kVector) {
        const Bytes v[] = {(Bytes)f(whole, i, Phase<0>{}), (Bytes)f(whole, i + kVector, Phase<1>{}),
                           (Bytes)f(whole, i + 2 * kVector, Phase<2>{})};
        for (int k = 0; k < 3; ++k) store_form<kKept>(whole, d + i + k * kVector, v[k], mask);
    }
    if (i < to) store_form<kKept>(whole, d + i, (Bytes)f(whole, i, Phase<0>{}), mask);
    if (i + kVector < to) store_form<kKept>(whole, d + i + kVector, (Bytes)f(whole, i + kVector, Phase<1>{}), mask);
    store(d + n - kVector, last);
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
