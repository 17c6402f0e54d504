// Averages of lists of planes. 8 bits: exact sums, divided as a float division rounded to the nearest even would. 16
// bits and floats: the fold's own sum, divided while the strip is in the cache. Integers are divided by reciprocals;
// the tests prove them over every sum.
#include "kernels/arith/arith.h"

#include "kernels/arith/fold.h"
#include "kernels/simd/divide.h"

namespace tarn::k::TARN_LEVEL {
namespace {

constexpr int64_t kStripSums = 4096;  // elements whose sums stay in the cache beside their sources
static_assert(kAverageScratch == 5 * kStripSums);

constexpr int32_t kMostSums16 = 128;  // planes
static_assert(kMostSums16 <= kMostDivisor16);

// Takes kCount planes into the 16-bit sums; the last planes' sums are divided and stored at once.
template <bool kKept, int kCount, bool kFirst, bool kLast>
void average_strip(uint8_t* d, const uint8_t* const* sources, uint8_t* sums, int64_t n, const Divide16<>& by) {
    const uint8_t* p[kCount];
    for (int j = 0; j < kCount; ++j) p[j] = sources[j];
    const Divide16<> divide = by;
    struct Halves {
        U16 low, high;
    };
    const auto sum = [=](auto io, int64_t i) {
        Halves v{};
        if constexpr (!kFirst) v = {load<U16>(sums + 2 * i), load<U16>(sums + 2 * i + kVector)};
        for (int j = 0; j < kCount; j += 2) {
            const Bytes a = io.load(p[j] + i), b = j + 1 < kCount ? io.load(p[j + 1] + i) : Bytes{};
            v.low += widening_add_lower(a, b);
            v.high += widening_add_upper(a, b);
        }
        return v;
    };
    const auto divided = [=](Halves v) { return narrow_groups_u8((S16)divide(v.low), (S16)divide(v.high)); };
    const Bytes mask = colour_mask<uint8_t>();
    if constexpr (kFirst && kLast)
        store_each<kKept, 2>(d, n, mask, [=](auto io, int64_t i) { return divided(sum(io, i)); });
    else
        each_vector(n, [=](auto io, int64_t i) {  // sums lie as vectors do, each at its place
            const Halves v = sum(io, i);
            if constexpr (kLast)
                store_form<kKept>(io, d + i, divided(v), mask);
            else
                store(sums + 2 * i, v.low), store(sums + 2 * i + kVector, v.high);
        });
}

// The first planes of a list, as many as `count`, 1 to 4; only a longer list begins with one.
template <bool kKept, bool kLast>
void average_first(uint8_t* d, const uint8_t* const* sources, int32_t count, uint8_t* sums, int64_t n,
                   const Divide16<>& by) {
    if (count == 4)
        average_strip<kKept, 4, true, kLast>(d, sources, sums, n, by);
    else if (count == 3)
        average_strip<kKept, 3, true, kLast>(d, sources, sums, n, by);
    else if (count == 2)
        average_strip<kKept, 2, true, kLast>(d, sources, sums, n, by);
    else if constexpr (!kLast)
        average_strip<kKept, 1, true, kLast>(d, sources, sums, n, by);
}

// One plane, or more than Divide16 takes: float sums in the order of the list (exact up to 65793 planes) and a float
// division.
template <bool kKept>
void average_of_many(const Planes& sources, int32_t divisor, uint8_t* d, int64_t y, int64_t x, int64_t n,
                     void* scratch) {
    float* sums = static_cast<float*>(scratch);
    uint8_t* averages = reinterpret_cast<uint8_t*>(sums + kStripSums);
    for (int32_t i = 0; i < sources.count; ++i) {
        const uint8_t* s = sources.row(i, y, x);
        if (i == 0)
            for (int64_t j = 0; j < n; ++j) sums[j] = float(s[j]);
        else
            for (int64_t j = 0; j < n; ++j) sums[j] += float(s[j]);
    }
    const float by = float(divisor);
    for (int64_t j = 0; j < n; ++j) {
        const float rounded =
            sums[j] / by + 8388608.0f - 8388608.0f;  // above 2^23 floats are whole: nearest, ties to even
        averages[j] = uint8_t(int32_t(min(rounded, 255.0f)));
    }
    store_each<kKept>(d, n, colour_mask<uint8_t>(), [=](auto io, int64_t i) { return io.load(averages + i); });
}

template <bool kKept>
Status average_u8(const Sources* sources, int32_t divisor, void* dst, int32_t dst_stride, Size size,
                  int64_t pixel_bytes, void* scratch) {
    if (Status s = check_sources(size, sources, dst)) return s;
    if (!scratch) return kNull;
    const int32_t count = sources->count;
    const bool many = count < 2 || count > kMostSums16;
    const Divide16<> by(many ? 2 : count);
    uint8_t* sums = static_cast<uint8_t*>(scratch);
    const Planes planes(*sources);
    each_strip(*sources, dst_stride, size, pixel_bytes, kStripSums, [=, &planes](int64_t y, int64_t x, int64_t n) {
        uint8_t* d = row<uint8_t>(dst, dst_stride, y) + x;
        if (many) return average_of_many<kKept>(planes, divisor, d, y, x, n, scratch);
        // All groups are of four planes but the first.
        for (int32_t i = 0, group = (count - 1) % 4 + 1; i < count; i += group, group = 4) {
            const uint8_t* p[4];
            for (int32_t j = 0; j < group; ++j) p[j] = planes.row(i + j, y, x);
            if (count <= 4)
                average_first<kKept, true>(d, p, group, sums, n, by);
            else if (i == 0)
                average_first<false, false>(d, p, group, sums, n, by);
            else if (i + 4 < count)
                average_strip<false, 4, false, false>(d, p, sums, n, by);
            else
                average_strip<kKept, 4, false, true>(d, p, sums, n, by);
        }
    });
    return kOk;
}

// Signed 16-bit quotients: those of the magnitudes by a reciprocal that is at most one part in 65536 too small,
// corrected by the rest; nearest, ties to even, which is the same for either sign.
template <bool kKept>
void divide_strip_s16(uint8_t* d, int64_t n, int16_t divisor) {
    const int32_t size = divisor < 0 ? -divisor : divisor;
    if (divisor == 1) return;
    const U16 by = splat(uint16_t(size)), half = splat(uint16_t(size / 2)), even = splat(uint16_t(size % 2 == 0));
    const U16 most = splat(uint16_t(32767)), sign = splat(uint16_t(divisor < 0 ? 65535 : 0));
    const U16 reciprocal = splat(uint16_t(size == 1 ? 65535 : 65536 / size));
    store_each<kKept, 2>(d, n, colour_mask<int16_t>(), [=](auto io, int64_t i) {
        const U16 v = io.template load<U16>(d + i);
        const U16 negative = (U16)((S16)v < S16{}), flip = negative ^ sign;
        const U16 t = ((v ^ negative) - negative) + half;  // at most 32768 + 16384
        U16 q = mul_high(t, reciprocal);
        U16 rest = t - q * by;  // below 2 * by
        const U16 more = (U16)(rest >= by);
        q -= more;
        rest -= more & by;
        q -= (U16)(rest == U16{}) & q & even;  // no rest behind the added half: it was halfway
        q = min(q, most - flip);               // 32768 has no positive twin
        return (q ^ flip) - flip;
    });
}

template <bool kKept>
Status average_s16(const Sources* sources, int32_t divisor, void* dst, int32_t dst_stride, Size size,
                   int64_t pixel_bytes) {
    if (Status s = check_sources(size, sources, dst)) return s;
    const int16_t by = int16_t(divisor);
    const Planes planes(*sources);
    each_strip(*sources, dst_stride, size, pixel_bytes, kStripBytes, [=, &planes](int64_t y, int64_t x, int64_t n) {
        uint8_t* d = row<uint8_t>(dst, dst_stride, y) + x;
        fold_sources<Add, int16_t, kKept>(planes, d, y, x, n);
        if (by != 0) divide_strip_s16<kKept>(d, n, by);
    });
    return by == 0 ? kBadArg : kOk;
}

template <bool kKept>
Status average_f32(const Sources* sources, int32_t divisor, void* dst, int32_t dst_stride, Size size,
                   int64_t pixel_bytes) {
    if (Status s = check_sources(size, sources, dst)) return s;
    const F32 by = splat(float(divisor));
    const Bytes mask = colour_mask<float>();
    const Planes planes(*sources);
    each_strip(*sources, dst_stride, size, pixel_bytes, kStripBytes, [=, &planes](int64_t y, int64_t x, int64_t n) {
        uint8_t* d = row<uint8_t>(dst, dst_stride, y) + x;
        fold_sources<Add, float, kKept>(planes, d, y, x, n);
        store_each<kKept>(d, n, mask, [=](auto io, int64_t i) { return io.template load<F32>(d + i) / by; });
    });
    return kOk;
}

template <class T, Form kForm>
Status average(const Sources* sources, int32_t divisor, void* dst, int32_t dst_stride, Size size, void* scratch) {
    constexpr int64_t kPixel = kPixelBytes<T, kForm>;
    if constexpr (sizeof(T) == 1)
        return average_u8<kept(kForm)>(sources, divisor, dst, dst_stride, size, kPixel, scratch);
    else if constexpr (sizeof(T) == 2)
        return average_s16<kept(kForm)>(sources, divisor, dst, dst_stride, size, kPixel);
    else
        return average_f32<kept(kForm)>(sources, divisor, dst, dst_stride, size, kPixel);
}

}  // namespace

TARN_BODIES(avg_n, Average, u8_s16_f32, c1_c3_c3x, average<T, kForm>)

}  // namespace tarn::k::TARN_LEVEL
