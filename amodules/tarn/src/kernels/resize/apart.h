// For the resize sources only: the taps of outputs that lie apart in a row of one channel. Each output loads its own,
// side by side as they stand, in words of 32 bits; the registers then hold a word of every output each.
#pragma once

#include "kernels/plane/transpose.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Words that hold kTaps elements, as many as are loaded together.
template <int kTaps, class T>
constexpr int kTapWords = kTaps * sizeof(T) <= 8 ? (kTaps* int(sizeof(T)) + 3) / 4
                                                 : (kTaps* int(sizeof(T)) + 7) / 8 * 2;

// w[i]: the i-th words from base + at[...], kLanes<float> of them.
template <int kWords>
inline void load_words(const uint8_t* base, const int32_t* at, Bytes (&w)[kWords]) {
    const auto two_words = [=](int64_t skipped, Bytes& even, Bytes& odd) {
        const Bytes v0 = load_halves(base + skipped, at, 4), v1 = load_halves(base + skipped, at + 2, 4);
        even = even32(v0, v1), odd = odd32(v0, v1);
    };
    if constexpr (kWords == 1) {
        w[0] = load_quarters(base, at);
    } else if constexpr (kWords == 2) {
        two_words(0, w[0], w[1]);
    } else {
        Bytes four[4];
        for (int i = 0; i < 4; ++i) four[i] = load_groups(base, at + i, 4);
        transpose_groups<uint32_t>(four);
        for (int i = 0; i < 4; ++i) w[i] = four[i];
        if constexpr (kWords == 6) two_words(16, w[4], w[5]);
    }
}

// Tap k of every output.
template <class T, int kWords>
inline F32 tap_of(const Bytes (&w)[kWords], int k) {
    constexpr int kBits = 8 * sizeof(T), kPerWord = 32 / kBits;
    const int above = 32 - (k % kPerWord + 1) * kBits;
    if constexpr (sizeof(T) == 4)
        return (F32)w[k];
    else if constexpr (sizeof(T) == 2)
        return __builtin_convertvector((S32)w[k / kPerWord] << above >> (32 - kBits), F32);
    else
        return __builtin_convertvector((S32)((U32)w[k / kPerWord] << above >> (32 - kBits)), F32);
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
