// Averages of lists of planes. 8 bits: exact sums, divided as a float division rounded to the nearest even would. 16
// bits and floats: the fold's own sum, divided while the strip is in the cache. Integers are divided by reciprocals;
// the tests prove them over every sum.
#include "kernels/arith/arith.h"

#include "kernels/arith/fold.h"

namespace tarn::k::TARN_LEVEL {
namespace {

constexpr int64_t kStripSums = 4096;  // elements whose sums stay in the cache beside their sources
static_assert(kAverageScratch == 5 * kStripSums);

// s / n for 16-bit sums s <= 255 n: nearest, ties to even.
constexpr int32_t kMostSums16 = 128;  // planes; the reciprocal is exact up to 185
struct Divide16 {
    // n from 2 to kMostSums16.
    explicit Divide16(int32_t n)
        : n(broadcast(uint16_t(n))), half(broadcast(uint16_t(n / 2))), even(broadcast(uint16_t(n % 2 == 0))) {
        while (2 << shift < n) ++shift;
        reciprocal = broadcast(uint16_t(((65536 << shift) + n - 1) / n));
    }
    Bytes operator()(Bytes s) const {
        using V = Vec<uint16_t>;
        const V t = (V)s + (V)half;
        const V q = (V)mulhi_u16((Bytes)t, reciprocal) >> shift;
        // No rest behind the added half: s was halfway, and q is its upper neighbour. True is all ones, which is -1.
        return (Bytes)(q - ((V)(q * (V)n == t) & q & (V)even));
    }
    Bytes n, half, even, reciprocal = {};
    int shift = 0;
};

// The sum of two planes' bytes, added to 16-bit sums.
inline void add_pair(Vec<uint16_t>& low, Vec<uint16_t>& high, Bytes a, Bytes b) {
    using V = Vec<uint16_t>;
#if defined(__SSSE3__)
    const Bytes ones = broadcast<uint8_t>(1);
    low += (V)dot_u8_s8(unpack_lo8(a, b), ones);
    high += (V)dot_u8_s8(unpack_hi8(a, b), ones);
#else
    low += (V)unpack_lo8(a, Bytes{}) + (V)unpack_lo8(b, Bytes{});
    high += (V)unpack_hi8(a, Bytes{}) + (V)unpack_hi8(b, Bytes{});
#endif
}

// Takes kCount planes into the 16-bit sums; the last planes' sums are divided and stored at once.
template <bool kKept, int kCount, bool kFirst, bool kLast>
void average_strip(uint8_t* d, const uint8_t* const* sources, uint8_t* sums, int64_t n, const Divide16& by) {
    const uint8_t* p[kCount];
    for (int j = 0; j < kCount; ++j) p[j] = sources[j];
    const Divide16 divide = by;
    const Bytes mask = colour_mask<uint8_t>();
    each_single_vector(n, [=](auto io, int64_t i) {
        using V = Vec<uint16_t>;
        V low = {}, high = {};
        if constexpr (!kFirst) {
            low = (V)Whole{}.load(sums + 2 * i);
            high = (V)Whole{}.load(sums + 2 * i + kVector);
        }
        for (int j = 0; j < kCount; j += 2)
            add_pair(low, high, io.load(p[j] + i), j + 1 < kCount ? io.load(p[j + 1] + i) : Bytes{});
        if constexpr (kLast) {
            Bytes r = pack_s16_u8(divide((Bytes)low), divide((Bytes)high));
            if constexpr (kKept) r = select(mask, r, io.load(d + i));
            io.store(d + i, r);
        } else {
            Whole{}.store(sums + 2 * i, (Bytes)low);
            Whole{}.store(sums + 2 * i + kVector, (Bytes)high);
        }
    });
}

template <bool kKept, bool kFirst>
void average_last(uint8_t* d, const uint8_t* const* sources, int32_t count, uint8_t* sums, int64_t n,
                  const Divide16& by) {
    if (count == 4)
        average_strip<kKept, 4, kFirst, true>(d, sources, sums, n, by);
    else if (count == 3)
        average_strip<kKept, 3, kFirst, true>(d, sources, sums, n, by);
    else if (count == 2)
        average_strip<kKept, 2, kFirst, true>(d, sources, sums, n, by);
    else
        average_strip<kKept, 1, kFirst, true>(d, sources, sums, n, by);
}

// One plane, or more than Divide16 takes: float sums in the order of the list (exact up to 65793 planes) and a float
// division.
template <bool kKept>
void average_of_many(const Sources& sources, int32_t divisor, uint8_t* d, int64_t y, int64_t x, int64_t n,
                     void* scratch) {
    float* sums = static_cast<float*>(scratch);
    uint8_t* averages = reinterpret_cast<uint8_t*>(sums + kStripSums);
    for (int32_t i = 0; i < sources.count; ++i) {
        const uint8_t* s = place(sources, i, y, x);
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
    const Bytes mask = colour_mask<uint8_t>();
    each_vector(n, [=](auto io, int64_t i, auto) {
        const Bytes r = io.load(averages + i);
        io.store(d + i, kKept ? select(mask, r, io.load(d + i)) : r);
    });
}

template <int kChannels, bool kKept>
Status average_u8(const Sources* sources, int32_t divisor, void* dst, int32_t dst_stride, Size size, void* scratch) {
    if (Status s = check_sources(size, sources, dst)) return s;
    if (!scratch) return kNull;
    const int32_t count = sources->count;
    const bool many = count < 2 || count > kMostSums16;
    const Divide16 by(many ? 2 : count);
    uint8_t* sums = static_cast<uint8_t*>(scratch);
    each_strip(*sources, dst_stride, size, kChannels, kStripSums, [=](int64_t y, int64_t x, int64_t n) {
        uint8_t* d = row<uint8_t>(dst, dst_stride, y) + x;
        if (many) return average_of_many<kKept>(*sources, divisor, d, y, x, n, scratch);
        for (int32_t i = 0; i < count; i += 4) {
            const uint8_t* p[4];
            const int32_t group = min(4, count - i);
            for (int32_t j = 0; j < group; ++j) p[j] = place(*sources, i + j, y, x);
            if (count <= 4)
                average_last<kKept, true>(d, p, group, sums, n, by);
            else if (i == 0)
                average_strip<kKept, 4, true, false>(d, p, sums, n, by);
            else if (i + 4 < count)
                average_strip<kKept, 4, false, false>(d, p, sums, n, by);
            else
                average_last<kKept, false>(d, p, group, sums, n, by);
        }
    });
    return kOk;
}

// Signed 16-bit quotients: those of the magnitudes by a reciprocal that is at most one part in 65536 too small,
// corrected by the rest; nearest, ties to even, which is the same for either sign.
template <bool kKept>
void divide_strip_s16(uint8_t* d, int64_t n, int16_t divisor) {
    using V = Vec<uint16_t>;
    const int32_t size = divisor < 0 ? -divisor : divisor;
    if (divisor == 1) return;
    const V by = (V)broadcast(uint16_t(size)), half = (V)broadcast(uint16_t(size / 2));
    const V even = (V)broadcast(uint16_t(size % 2 == 0)), most = (V)broadcast(uint16_t(32767));
    const V sign = (V)broadcast(uint16_t(divisor < 0 ? 65535 : 0));
    const Bytes reciprocal = broadcast(uint16_t(size == 1 ? 65535 : 65536 / size));
    const Bytes mask = colour_mask<int16_t>();
    each_single_vector(n, [=](auto io, int64_t i) {
        const Bytes v = io.load(d + i);
        const V negative = (V)((Vec<int16_t>)v < Vec<int16_t>{}), flip = negative ^ sign;
        const V t = (((V)v ^ negative) - negative) + half;  // at most 32768 + 16384
        V q = (V)mulhi_u16((Bytes)t, reciprocal);
        V rest = t - q * by;  // below 2 * by
        const V more = (V)(rest >= by);
        q -= more;
        rest -= more & by;
        q -= (V)(rest == V{}) & q & even;       // no rest behind the added half: it was halfway
        q = q < most - flip ? q : most - flip;  // 32768 has no positive twin
        const Bytes r = (Bytes)((q ^ flip) - flip);
        io.store(d + i, kKept ? select(mask, r, v) : r);
    });
}

template <int kChannels, bool kKept>
Status average_s16(const Sources* sources, int32_t divisor, void* dst, int32_t dst_stride, Size size, void*) {
    if (Status s = check_sources(size, sources, dst)) return s;
    const int16_t by = int16_t(divisor);
    each_strip(*sources, dst_stride, size, kChannels * 2, kStrip, [=](int64_t y, int64_t x, int64_t n) {
        uint8_t* d = row<uint8_t>(dst, dst_stride, y) + x;
        fold_sources<AddS16, kKept>(*sources, d, y, x, n);
        if (by != 0) divide_strip_s16<kKept>(d, n, by);
    });
    return by == 0 ? kBadArg : kOk;
}

template <int kChannels, bool kKept>
Status average_f32(const Sources* sources, int32_t divisor, void* dst, int32_t dst_stride, Size size, void*) {
    if (Status s = check_sources(size, sources, dst)) return s;
    const Vec<float> by = Vec<float>{} + float(divisor);
    const Bytes mask = colour_mask<float>();
    each_strip(*sources, dst_stride, size, kChannels * 4, kStrip, [=](int64_t y, int64_t x, int64_t n) {
        uint8_t* d = row<uint8_t>(dst, dst_stride, y) + x;
        fold_sources<AddF32, kKept>(*sources, d, y, x, n);
        each_single_vector(n, [=](auto io, int64_t i) {
            const Bytes v = io.load(d + i), r = (Bytes)((Vec<float>)v / by);
            io.store(d + i, kKept ? select(mask, r, v) : r);
        });
    });
    return kOk;
}

}  // namespace

#define AVERAGE(name, average, channels, kept)                                                                      \
    Status name(const Sources* sources, int32_t divisor, void* dst, int32_t dst_stride, Size size, void* scratch) { \
        return average<channels, kept>(sources, divisor, dst, dst_stride, size, scratch);                           \
    }
AVERAGE(avg_n_u8_c1, average_u8, 1, false)
AVERAGE(avg_n_u8_c3, average_u8, 3, false)
AVERAGE(avg_n_u8_c3x, average_u8, 4, true)
AVERAGE(avg_n_s16_c1, average_s16, 1, false)
AVERAGE(avg_n_s16_c3, average_s16, 3, false)
AVERAGE(avg_n_s16_c3x, average_s16, 4, true)
AVERAGE(avg_n_f32_c1, average_f32, 1, false)
AVERAGE(avg_n_f32_c3, average_f32, 3, false)
AVERAGE(avg_n_f32_c3x, average_f32, 4, true)
#undef AVERAGE

}  // namespace tarn::k::TARN_LEVEL
