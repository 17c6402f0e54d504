// Minimum and maximum. Rows are read as vectors without regard to channels: the vectors of a row fall
// into accumulators by turns, so many that an accumulator's lanes always meet the same channel, and channels come apart
// only at the end. Both results of a minimum and maximum cost one pass, which memory bounds, so both are always
// computed.
#include "kernels/stats/stats.h"

#include "kernels/base/body.h"
#include "kernels/plane/plane.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// What the loops below do to a whole vector.

#if defined(__AVX512BW__)
#define TARN_V(op) _mm512_##op
using Bits = __m512i;
using Floats = __m512;
inline Bits load(const void* p) { return _mm512_loadu_si512(p); }
inline void store(void* p, Bits v) { _mm512_storeu_si512(p, v); }
#elif defined(__AVX2__)
#define TARN_V(op) _mm256_##op
using Bits = __m256i;
using Floats = __m256;
inline Bits load(const void* p) { return _mm256_loadu_si256(static_cast<const Bits*>(p)); }
inline void store(void* p, Bits v) { _mm256_storeu_si256(static_cast<Bits*>(p), v); }
#elif defined(__SSE2__)
#define TARN_V(op) _mm_##op
using Bits = __m128i;
using Floats = __m128;
inline Bits load(const void* p) { return _mm_loadu_si128(static_cast<const Bits*>(p)); }
inline void store(void* p, Bits v) { _mm_storeu_si128(static_cast<Bits*>(p), v); }
#endif

#if defined(TARN_V)
struct U8 {
    using T = uint8_t;
    using V = Bits;
    static V all(T v) { return TARN_V(set1_epi8)(char(v)); }
    static V load(const T* p) { return TARN_LEVEL::load(p); }
    static void store(T* p, V v) { TARN_LEVEL::store(p, v); }
    static V smaller(V a, V b) { return TARN_V(min_epu8)(a, b); }
    static V larger(V a, V b) { return TARN_V(max_epu8)(a, b); }
};
struct S16 {
    using T = int16_t;
    using V = Bits;
    static V all(T v) { return TARN_V(set1_epi16)(v); }
    static V load(const T* p) { return TARN_LEVEL::load(p); }
    static void store(T* p, V v) { TARN_LEVEL::store(p, v); }
    static V smaller(V a, V b) { return TARN_V(min_epi16)(a, b); }
    static V larger(V a, V b) { return TARN_V(max_epi16)(a, b); }
};
struct F32 {
    using T = float;
    using V = Floats;
    static V all(T v) { return TARN_V(set1_ps)(v); }
    static V load(const T* p) { return TARN_V(loadu_ps)(p); }
    static void store(T* p, V v) { TARN_V(storeu_ps)(p, v); }
    // The second operand where either is NaN.
    static V smaller(V a, V b) { return TARN_V(min_ps)(a, b); }
    static V larger(V a, V b) { return TARN_V(max_ps)(a, b); }
};
#else
template <class E>
struct Portable {
    using T = E;
    typedef E V __attribute__((vector_size(16)));
    static V all(T v) { return V{} + v; }
    static V load(const T* p) {
        V v;
        memcpy(&v, p, sizeof v);
        return v;
    }
    static void store(T* p, V v) { memcpy(p, &v, sizeof v); }
    static V smaller(V a, V b) { return a < b ? a : b; }
    static V larger(V a, V b) { return a > b ? a : b; }
};
struct U8 : Portable<uint8_t> {};
struct S16 : Portable<int16_t> {};
struct F32 : Portable<float> {};
#endif
#undef TARN_V

// What every value is below, above.
constexpr uint8_t top(uint8_t) { return 255; }
constexpr uint8_t bottom(uint8_t) { return 0; }
constexpr int16_t top(int16_t) { return 32767; }
constexpr int16_t bottom(int16_t) { return -32768; }
constexpr float top(float) { return __builtin_inff(); }
constexpr float bottom(float) { return -__builtin_inff(); }

// Six accumulators: as many as hide the latency of a float minimum, and a multiple of three for three channels.
constexpr int kTurns = 6;

// E: elements and their vector; kChannels elements a pixel, the first kResults of which have results.
template <class E, int kChannels, int kResults>
Status minmax(const void* src, int32_t stride, Size size, float* smallest, float* largest) {
    using T = typename E::T;
    constexpr int kLanes = sizeof(typename E::V) / sizeof(T);
    if (Status s = check(size, src)) return s;
    const Rows rows = rows_of(size, int64_t(size.width) * kChannels, sizeof(T), stride);
    typename E::V lo[kTurns], hi[kTurns];
    for (int j = 0; j < kTurns; ++j) lo[j] = E::all(top(T())), hi[j] = E::all(bottom(T()));
    T low[kChannels], high[kChannels];
    for (int c = 0; c < kChannels; ++c) low[c] = top(T()), high[c] = bottom(T());

    const auto take = [&](const T* p, int j) {
        const auto v = E::load(p);
        lo[j] = E::smaller(v, lo[j]);
        hi[j] = E::larger(v, hi[j]);
    };
    for (int64_t y = 0; y < rows.count; ++y) {
        const T* s = row<T>(src, stride, y);
        const int64_t n = rows.length;
        int64_t i = 0;
        for (; i + kTurns * kLanes <= n; i += kTurns * kLanes)
            for (int j = 0; j < kTurns; ++j) take(s + i + j * kLanes, j);
        for (int j = 0; j < kTurns; ++j)
            if (i + kLanes <= n) take(s + i, j), i += kLanes;
        if (i < n && n >= kLanes) {
            // The last vector once more, up to the row's end: into the accumulator that its channels fit.
            for (int j = 0; j < 3; ++j)
                if (kChannels != 3 ? j == 0 : (n - kLanes) % 3 == j * kLanes % 3) take(s + n - kLanes, j);
        } else {
            for (; i < n; i += kChannels)
                for (int c = 0; c < kChannels; ++c) {
                    low[c] = s[i + c] < low[c] ? s[i + c] : low[c];
                    high[c] = s[i + c] > high[c] ? s[i + c] : high[c];
                }
        }
    }

    // Accumulators of the same channels, then lanes of the same channel.
    constexpr int kApart = kChannels == 3 ? 3 : 1;
    for (int j = kApart; j < kTurns; ++j) {
        lo[j % kApart] = E::smaller(lo[j], lo[j % kApart]);
        hi[j % kApart] = E::larger(hi[j], hi[j % kApart]);
    }
    T l[kApart * kLanes], h[kApart * kLanes];
    for (int j = 0; j < kApart; ++j) {
        E::store(l + j * kLanes, lo[j]);
        E::store(h + j * kLanes, hi[j]);
    }
    for (int e = 0; e < kApart * kLanes; e += kChannels)
        for (int c = 0; c < kChannels; ++c) {
            low[c] = l[e + c] < low[c] ? l[e + c] : low[c];
            high[c] = h[e + c] > high[c] ? h[e + c] : high[c];
        }
    for (int c = 0; c < kResults; ++c) {
        const bool none = low[c] > high[c];  // nothing but NaN
        // Adding +0 settles the sign of a zero, which depends on the order of comparisons.
        if (smallest) smallest[c] = none ? __builtin_nanf("") : float(low[c]) + 0.0f;
        if (largest) largest[c] = none ? __builtin_nanf("") : float(high[c]) + 0.0f;
    }
    return kOk;
}

}  // namespace

#define MINMAX(name, E, channels, results)                                                     \
    Status name(const void* src, int32_t stride, Size size, float* smallest, float* largest) { \
        return minmax<E, channels, results>(src, stride, size, smallest, largest);             \
    }
MINMAX(minmax_u8_c1, U8, 1, 1)
MINMAX(minmax_u8_c3, U8, 3, 3)
MINMAX(minmax_u8_c4, U8, 4, 4)
MINMAX(minmax_u8_c3x, U8, 4, 3)
MINMAX(minmax_s16_c1, S16, 1, 1)
MINMAX(minmax_s16_c3, S16, 3, 3)
MINMAX(minmax_s16_c4, S16, 4, 4)
MINMAX(minmax_s16_c3x, S16, 4, 3)
MINMAX(minmax_f32_c1, F32, 1, 1)
MINMAX(minmax_f32_c3, F32, 3, 3)
MINMAX(minmax_f32_c4, F32, 4, 4)
MINMAX(minmax_f32_c3x, F32, 4, 3)
#undef MINMAX

}  // namespace tarn::k::TARN_LEVEL
