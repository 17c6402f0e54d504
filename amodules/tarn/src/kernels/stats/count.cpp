// Pixels in a range. Three vectors of a row in turn, so that a lane always meets the same channel, whose bounds stand
// in that lane; each counts into lanes of its own. The end of a row is filled up with the lower bounds, which count,
// and those are taken off again.
#include "kernels/stats/stats.h"

#include "kernels/base/body.h"
#include "kernels/plane/plane.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// One vector's elements in range, counted into the lanes of a counter. A mask is -1 where it holds. For bytes, v is in
// range when v - lower, modulo 256, is not above upper - lower.
#if defined(__AVX512BW__)
using Bytes = __m512i;
using Ints = __m512i;
using Floats = __m512;
inline Bytes load(const void* p) { return _mm512_loadu_si512(p); }
inline Floats load_floats(const float* p) { return _mm512_loadu_ps(p); }
inline void store(void* p, Bytes v) { _mm512_storeu_si512(p, v); }
inline Bytes count(Bytes counts, Bytes v, Bytes lower, Bytes span) {
    return _mm512_mask_sub_epi8(counts, _mm512_cmple_epu8_mask(_mm512_sub_epi8(v, lower), span), counts,
                                _mm512_set1_epi8(-1));
}
inline Ints count(Ints counts, Floats v, Floats lower, Floats upper) {
    const __mmask16 in = _mm512_mask_cmp_ps_mask(_mm512_cmp_ps_mask(v, lower, _CMP_GE_OQ), v, upper, _CMP_LE_OQ);
    return _mm512_mask_sub_epi32(counts, in, counts, _mm512_set1_epi32(-1));
}
#elif defined(__AVX2__)
using Bytes = __m256i;
using Ints = __m256i;
using Floats = __m256;
inline Bytes load(const void* p) { return _mm256_loadu_si256(static_cast<const Bytes*>(p)); }
inline Floats load_floats(const float* p) { return _mm256_loadu_ps(p); }
inline void store(void* p, Bytes v) { _mm256_storeu_si256(static_cast<Bytes*>(p), v); }
inline Bytes count(Bytes counts, Bytes v, Bytes lower, Bytes span) {
    const Bytes d = _mm256_sub_epi8(v, lower);
    return _mm256_sub_epi8(counts, _mm256_cmpeq_epi8(_mm256_min_epu8(d, span), d));
}
inline Ints count(Ints counts, Floats v, Floats lower, Floats upper) {
    const Floats in = _mm256_and_ps(_mm256_cmp_ps(v, lower, _CMP_GE_OQ), _mm256_cmp_ps(v, upper, _CMP_LE_OQ));
    return _mm256_sub_epi32(counts, _mm256_castps_si256(in));
}
#elif defined(__SSE2__)
using Bytes = __m128i;
using Ints = __m128i;
using Floats = __m128;
inline Bytes load(const void* p) { return _mm_loadu_si128(static_cast<const Bytes*>(p)); }
inline Floats load_floats(const float* p) { return _mm_loadu_ps(p); }
inline void store(void* p, Bytes v) { _mm_storeu_si128(static_cast<Bytes*>(p), v); }
inline Bytes count(Bytes counts, Bytes v, Bytes lower, Bytes span) {
    const Bytes d = _mm_sub_epi8(v, lower);
    return _mm_sub_epi8(counts, _mm_cmpeq_epi8(_mm_min_epu8(d, span), d));
}
inline Ints count(Ints counts, Floats v, Floats lower, Floats upper) {
    return _mm_sub_epi32(counts, _mm_castps_si128(_mm_and_ps(_mm_cmpge_ps(v, lower), _mm_cmple_ps(v, upper))));
}
#else
typedef uint8_t Bytes __attribute__((vector_size(16)));
typedef uint32_t Ints __attribute__((vector_size(16)));
typedef float Floats __attribute__((vector_size(16)));
inline Bytes load(const void* p) {
    Bytes v;
    memcpy(&v, p, sizeof v);
    return v;
}
inline Floats load_floats(const float* p) { return (Floats)load(p); }
template <class V>
inline void store(void* p, V v) {
    memcpy(p, &v, sizeof v);
}
inline Bytes count(Bytes counts, Bytes v, Bytes lower, Bytes span) {
    return counts - (Bytes)(Bytes(v - lower) <= span);
}
inline Ints count(Ints counts, Floats v, Floats lower, Floats upper) {
    return counts - (Ints)((lower <= v) & (v <= upper));
}
#endif

// How elements of a type are counted: in the narrowest lanes, emptied before they overflow.
struct CountU8 {
    using T = uint8_t;
    using V = Bytes;
    using Counter = Bytes;
    using CounterLane = uint8_t;
    static constexpr int64_t kRounds = 255;
    static V load(const T* p) { return TARN_LEVEL::load(p); }
    static T second(T lower, T upper) { return T(upper - lower); }
};
struct CountF32 {
    using T = float;
    using V = Floats;
    using Counter = Ints;
    using CounterLane = uint32_t;
    static constexpr int64_t kRounds = int64_t(1) << 30;
    static V load(const T* p) { return load_floats(p); }
    static T second(T, T upper) { return upper; }
};

template <class E, int kChannels, int kResults>
Status count_in_range(const void* src, int32_t stride, Size size, const void* lower, const void* upper,
                      int32_t* counts) {
    using T = typename E::T;
    constexpr int kLanes = sizeof(typename E::V) / sizeof(T), kTurn = 3 * kLanes;
    if (Status s = check(size, src, lower, upper, counts)) return s;
    const T *lo = static_cast<const T*>(lower), *hi = static_cast<const T*>(upper);
    const Rows rows = rows_of(size, int64_t(size.width) * kChannels, sizeof(T), stride);

    T first[kTurn], second[kTurn];
    for (int e = 0; e < kTurn; ++e) {
        const int c = e % kChannels < kResults ? e % kChannels : 0;
        first[e] = lo[c];
        second[e] = E::second(lo[c], hi[c]);
    }
    const typename E::V a0 = E::load(first), a1 = E::load(first + kLanes), a2 = E::load(first + 2 * kLanes);
    const typename E::V b0 = E::load(second), b1 = E::load(second + kLanes), b2 = E::load(second + 2 * kLanes);
    typename E::Counter c0{}, c1{}, c2{};
    int64_t room = E::kRounds;
    uint64_t in_lane[kTurn] = {}, filled = 0;
    const auto take = [&](const T* s) {
        c0 = count(c0, E::load(s), a0, b0);
        c1 = count(c1, E::load(s + kLanes), a1, b1);
        c2 = count(c2, E::load(s + 2 * kLanes), a2, b2);
    };
    const auto empty = [&] {
        typename E::CounterLane lanes[kTurn];
        store(lanes, c0);
        store(lanes + kLanes, c1);
        store(lanes + 2 * kLanes, c2);
        for (int e = 0; e < kTurn; ++e) in_lane[e] += lanes[e];
        c0 = c1 = c2 = typename E::Counter{};
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
            memcpy(rest, first, sizeof rest);
            memcpy(rest, s, size_t(left) * sizeof(T));
            take(rest);
            filled += uint64_t(kTurn - left) / kChannels;
            if (--room == 0) empty();
        }
    }
    empty();
    uint64_t in_channel[kChannels] = {};
    for (int e = 0; e < kTurn; ++e) in_channel[e % kChannels] += in_lane[e];
    for (int c = 0; c < kResults; ++c)
        counts[c] = lo[c] <= hi[c] ? int32_t(min<uint64_t>(in_channel[c] - filled, INT32_MAX)) : 0;
    return kOk;
}

}  // namespace

#define COUNT(name, E, channels, results)                                                                            \
    Status name(const void* src, int32_t stride, Size size, const void* lower, const void* upper, int32_t* counts) { \
        return count_in_range<E, channels, results>(src, stride, size, lower, upper, counts);                        \
    }
COUNT(count_in_range_u8_c1, CountU8, 1, 1)
COUNT(count_in_range_u8_c3, CountU8, 3, 3)
COUNT(count_in_range_u8_c3x, CountU8, 4, 3)
COUNT(count_in_range_f32_c1, CountF32, 1, 1)
COUNT(count_in_range_f32_c3, CountF32, 3, 3)
COUNT(count_in_range_f32_c3x, CountF32, 4, 3)
#undef COUNT

}  // namespace tarn::k::TARN_LEVEL
