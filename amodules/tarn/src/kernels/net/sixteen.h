// For the network's sources only: sixteen floats, as the level's vectors. Sums along a row have sixteen lanes at every
// level, element i in lane i mod 16, which makes their order and so their bits the same everywhere.
#pragma once

#include "kernels/simd/simd.h"

namespace tarn::k::TARN_LEVEL {
namespace {

constexpr int kVectors = 16 / kLanes<float>;
struct F32x16 {
    F32 v[kVectors];
};

// f(i) for each vector. Written out: GCC unrolls a loop of them too late to keep the vectors in registers.
template <class F>
inline F32x16 each_of_16(F f) {
    if constexpr (kVectors == 1)
        return {{f(0)}};
    else if constexpr (kVectors == 2)
        return {{f(0), f(1)}};
    else
        return {{f(0), f(1), f(2), f(3)}};
}

inline F32x16 splat16(float value) {
    return each_of_16([value](int) { return splat(value); });
}
inline F32x16 load16(const float* p) {
    return each_of_16([p](int i) { return load<F32>(p + i * kLanes<float>); });
}
inline void store16(float* p, F32x16 s) {
    for (int i = 0; i < kVectors; ++i) store(p + i * kLanes<float>, s.v[i]);
}
// The first n of them, 0 < n < 16, and behind them those of `others`.
inline F32x16 load16_n(const float* p, int64_t n, F32x16 others = {}) {
    if constexpr (kVectors > 2)
        memcpy(&others, p, size_t(n) * sizeof(float));
    else
        for (int i = 0; i < kVectors; ++i) {
            const int64_t bytes = clamp<int64_t>(4 * n - i * kVector, 0, kVector);
            others.v[i] = load_n(p + i * kLanes<float>, bytes, others.v[i]);
        }
    return others;
}
inline void store16_n(float* p, F32x16 s, int64_t n) {
    if constexpr (kVectors == 1)
        store_n(p, s.v[0], 4 * n);
    else
        memcpy(p, &s, size_t(n) * sizeof(float));
}
// The same of floats `step` floats apart, 0 < n <= 16. Narrow vectors take neighbours one by one too: that is faster
// than a copy of a length unknown.
inline F32x16 gather16(const float* p, int64_t step, int64_t n, F32x16 others = {}) {
    if (kVectors <= 2 && step == 1) return n == 16 ? load16(p) : load16_n(p, n, others);
    float buffer[16];
    store16(buffer, others);
    for (int64_t i = 0; i < n; ++i) memcpy(buffer + i, p + i * step, sizeof(float));
    return load16(buffer);
}
inline void scatter16(float* p, int64_t step, F32x16 s, int64_t n) {
    if (kVectors <= 2 && step == 1) return n == 16 ? store16(p, s) : store16_n(p, s, n);
    float buffer[16];
    store16(buffer, s);
    for (int64_t i = 0; i < n; ++i) memcpy(p + i * step, buffer + i, sizeof(float));
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
