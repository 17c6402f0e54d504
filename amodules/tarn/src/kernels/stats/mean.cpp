// Means. Rows are read without regard to channels, three vectors in turn, so that a lane always meets the same channel;
// channels come apart at the end. Integers are summed exactly in lanes of twice their width: of each pair of elements
// the upper one by a shift, and both at once by adding the pair as it is, from which the upper ones are taken off at
// the end. That is two additions and a shift for two elements of any channel. Floats are summed in double in a fixed
// order.
#include "kernels/stats/stats.h"

#include "kernels/base/body.h"
#include "kernels/plane/plane.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Vectors of pairs of elements.
#if defined(__AVX512BW__)
#define TARN_V(op) _mm512_##op
using Pairs = __m512i;
inline Pairs load(const void* p) { return _mm512_loadu_si512(p); }
inline void store(void* p, Pairs v) { _mm512_storeu_si512(p, v); }
#elif defined(__AVX2__)
#define TARN_V(op) _mm256_##op
using Pairs = __m256i;
inline Pairs load(const void* p) { return _mm256_loadu_si256(static_cast<const Pairs*>(p)); }
inline void store(void* p, Pairs v) { _mm256_storeu_si256(static_cast<Pairs*>(p), v); }
#elif defined(__SSE2__)
#define TARN_V(op) _mm_##op
using Pairs = __m128i;
inline Pairs load(const void* p) { return _mm_loadu_si128(static_cast<const Pairs*>(p)); }
inline void store(void* p, Pairs v) { _mm_storeu_si128(static_cast<Pairs*>(p), v); }
#else
typedef uint32_t Pairs __attribute__((vector_size(16)));
typedef uint16_t Words __attribute__((vector_size(16)));
inline Pairs load(const void* p) {
    Pairs v;
    memcpy(&v, p, sizeof v);
    return v;
}
inline void store(void* p, Pairs v) { memcpy(p, &v, sizeof v); }
#endif

// Vectors of doubles, from as many floats, or from n fewer than that with zeros behind. Level 4 stays at 256 bits:
// widening into 512 takes twice the work.
#if defined(__AVX2__)
using Doubles = __m256d;
inline Doubles load_doubles(const float* p) { return _mm256_cvtps_pd(_mm_loadu_ps(p)); }
inline Doubles load_doubles(const float* p, int64_t n) {
    return _mm256_cvtps_pd(_mm_maskload_ps(p, _mm_cmpgt_epi32(_mm_set1_epi32(int(n)), _mm_setr_epi32(0, 1, 2, 3))));
}
#elif defined(__SSE2__)
using Doubles = __m128d;
inline Doubles load_doubles(const float* p) {
    return _mm_cvtps_pd(_mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))));
}
inline Doubles load_doubles(const float* p, int64_t) { return _mm_cvtps_pd(_mm_load_ss(p)); }
#else
using Doubles = double;
inline Doubles load_doubles(const float* p) { return *p; }
inline Doubles load_doubles(const float* p, int64_t) { return *p; }
#endif

// Elements and how their pairs are added. Signed elements are summed as what they are above the smallest (biased).
struct SumU8 {
    using T = uint8_t;
    using Pair = uint16_t;
    static constexpr int kBits = 8;
    static constexpr int64_t kRounds = 256;  // 256 * 255 fits the lane
    static constexpr T kFill = 0;            // what adds nothing
    static constexpr int kLanes = sizeof(Pairs);
    static Pairs take(const T* p) { return load(p); }
#if defined(TARN_V)
    static Pairs add(Pairs a, Pairs b) { return TARN_V(add_epi16)(a, b); }
    static Pairs upper(Pairs a) { return TARN_V(srli_epi16)(a, 8); }
#else
    static Pairs add(Pairs a, Pairs b) { return Pairs(Words(a) + Words(b)); }
    static Pairs upper(Pairs a) { return Pairs(Words(a) >> 8); }
#endif
};
struct SumS16 {
    using T = int16_t;
    using Pair = uint32_t;
    static constexpr int kBits = 16;
    static constexpr int64_t kRounds = 65536;  // 65536 * 65535 fits the lane
    static constexpr T kFill = -32768;
    static constexpr int kLanes = sizeof(Pairs) / 2;
#if defined(TARN_V)
    static Pairs take(const T* p) { return TARN_V(add_epi16)(load(p), TARN_V(set1_epi16)(-32768)); }
    static Pairs add(Pairs a, Pairs b) { return TARN_V(add_epi32)(a, b); }
    static Pairs upper(Pairs a) { return TARN_V(srli_epi32)(a, 16); }
#else
    static Pairs take(const T* p) { return load(p) ^ 0x80008000u; }
    static Pairs add(Pairs a, Pairs b) { return a + b; }
    static Pairs upper(Pairs a) { return a >> 16; }
#endif
};

#if defined(TARN_V)
// Sums of eight bytes each, where channels need not be told apart.
uint64_t sum_bytes(const uint8_t* s, int64_t n) {
    constexpr int kVector = sizeof(Pairs);
    const Pairs zero{};
    Pairs sums[4] = {};
    int64_t i = 0;
    for (; i + 4 * kVector <= n; i += 4 * kVector)
        for (int j = 0; j < 4; ++j)
            sums[j] = TARN_V(add_epi64)(sums[j], TARN_V(sad_epu8)(load(s + i + j * kVector), zero));
    for (; i + kVector <= n; i += kVector) sums[0] = TARN_V(add_epi64)(sums[0], TARN_V(sad_epu8)(load(s + i), zero));
    uint64_t lanes[4 * kVector / 8], sum = 0;
    memcpy(lanes, sums, sizeof sums);
    for (uint64_t lane : lanes) sum += lane;
    for (; i < n; ++i) sum += s[i];
    return sum;
}
#endif

template <class E, int kChannels, int kResults>
Status mean_integers(const void* src, int32_t stride, Size size, double* means) {
    using T = typename E::T;
    using Pair = typename E::Pair;
    constexpr int kTurn = 3 * E::kLanes, kPairs = kTurn / 2;
    if (Status s = check(size, src, means)) return s;
    const Rows rows = rows_of(size, int64_t(size.width) * kChannels, sizeof(T), stride);
    Pairs both[3] = {}, upper[3] = {};
    uint64_t lower_sums[kPairs] = {}, upper_sums[kPairs] = {};
    int64_t room = E::kRounds;
    const auto take = [&](const T* s) {
        for (int j = 0; j < 3; ++j) {
            const Pairs v = E::take(s + j * E::kLanes);
            both[j] = E::add(both[j], v);
            upper[j] = E::add(upper[j], E::upper(v));
        }
    };
    const auto empty = [&] {
        Pair b[kPairs], u[kPairs];
        for (int j = 0; j < 3; ++j) {
            store(b + j * kPairs / 3, both[j]);
            store(u + j * kPairs / 3, upper[j]);
            both[j] = upper[j] = Pairs{};
        }
        for (int e = 0; e < kPairs; ++e) {
            lower_sums[e] += Pair(b[e] - Pair(u[e] << E::kBits));  // exact modulo the lane, and the lane holds it
            upper_sums[e] += u[e];
        }
        room = E::kRounds;
    };
    for (int64_t y = 0; y < rows.count; ++y) {
        const T* s = row<T>(src, stride, y);
        int64_t left = rows.length;
        while (left >= kTurn) {
            const int64_t turns = min(left / kTurn, room);
            for (const T* end = s + turns * kTurn; s != end; s += kTurn) take(s);
            left -= turns * kTurn;
            if ((room -= turns) == 0) empty();
        }
        if (left) {
            T rest[kTurn];
            for (T& e : rest) e = E::kFill;
            memcpy(rest, s, size_t(left) * sizeof(T));
            take(rest);
            if (--room == 0) empty();
        }
    }
    empty();
    uint64_t sums[kChannels] = {};
    for (int e = 0; e < kPairs; ++e) {
        sums[2 * e % kChannels] += lower_sums[e];
        sums[(2 * e + 1) % kChannels] += upper_sums[e];
    }
    const int64_t pixels = int64_t(size.width) * size.height;
    for (int c = 0; c < kResults; ++c) means[c] = double(int64_t(sums[c]) + E::kFill * pixels) / double(pixels);
    return kOk;
}

// 48 lanes: a multiple of each channel count, and enough additions at once to hide their latency.
template <int kChannels, int kResults>
Status mean_floats(const void* src, int32_t stride, Size size, double* means) {
    constexpr int kLanes = 48, kWide = sizeof(Doubles) / sizeof(double);
    if (Status s = check(size, src, means)) return s;
    Doubles sums[kLanes / kWide] = {};
    for (int64_t y = 0; y < size.height; ++y) {
        const float* s = row<float>(src, stride, y);
        int64_t left = int64_t(size.width) * kChannels;
        for (; left >= kLanes; left -= kLanes, s += kLanes)
            for (int j = 0; j < kLanes / kWide; ++j) sums[j] += load_doubles(s + j * kWide);
        for (int j = 0; j < kLanes / kWide; ++j, left -= kWide) {
            if (left >= kWide)
                sums[j] += load_doubles(s + j * kWide);
            else if (left > 0)
                sums[j] += load_doubles(s + j * kWide, left);  // adding +0 changes no sum that began with +0
        }
    }
    double lanes[kLanes];
    memcpy(lanes, sums, sizeof lanes);
    double totals[kChannels] = {};
    for (int e = 0; e < kLanes; ++e) totals[e % kChannels] += lanes[e];
    for (int c = 0; c < kResults; ++c) {
        const double mean = totals[c] / (double(size.width) * size.height);
        means[c] = mean == mean ? mean : __builtin_nan("");  // which NaN came out depends on operand order
    }
    return kOk;
}

}  // namespace

#define MEAN(name, E, channels, results)                                      \
    Status name(const void* src, int32_t stride, Size size, double* means) {  \
        return mean_integers<E, channels, results>(src, stride, size, means); \
    }
#define MEAN_F32(name, channels, results)                                    \
    Status name(const void* src, int32_t stride, Size size, double* means) { \
        return mean_floats<channels, results>(src, stride, size, means);     \
    }
#if defined(TARN_V)
Status plane_mean_u8_c1(const void* src, int32_t stride, Size size, double* means) {
    if (Status s = check(size, src, means)) return s;
    const Rows rows = rows_of(size, size.width, 1, stride);
    uint64_t sum = 0;
    for (int64_t y = 0; y < rows.count; ++y) sum += sum_bytes(row<uint8_t>(src, stride, y), rows.length);
    *means = double(sum) / (double(size.width) * size.height);
    return kOk;
}
#else
MEAN(plane_mean_u8_c1, SumU8, 1, 1)
#endif
MEAN(plane_mean_u8_c3, SumU8, 3, 3)
MEAN(plane_mean_u8_c3x, SumU8, 4, 3)
MEAN(plane_mean_s16_c1, SumS16, 1, 1)
MEAN(plane_mean_s16_c3, SumS16, 3, 3)
MEAN(plane_mean_s16_c3x, SumS16, 4, 3)
MEAN_F32(plane_mean_f32_c1, 1, 1)
MEAN_F32(plane_mean_f32_c3, 3, 3)
MEAN_F32(plane_mean_f32_c3x, 4, 3)
#undef MEAN
#undef MEAN_F32
#undef TARN_V

}  // namespace tarn::k::TARN_LEVEL
