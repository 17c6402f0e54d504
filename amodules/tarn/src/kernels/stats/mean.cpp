// Means. Rows are read without regard to channels, three vectors in turn; channels come apart at the end. Integers are
// summed exactly in lanes of twice their width: of each pair of elements the upper one by a shift, and both at once by
// adding the pair as it is, from which the upper ones are taken off at the end. That is two additions and a shift for
// two elements of any channel. Floats are summed in double in a fixed order.
#include "kernels/stats/stats.h"

#include "kernels/plane/pattern.h"
#include "kernels/stats/turns.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Sums of eight bytes each, where channels need not be told apart.
Status mean_bytes(const void* src, int32_t stride, Size size, double* means) {
    if (Status s = check(size, src, means)) return s;
    U64 sums[3] = {};
    const Rows rows = rows_of(size, Pitch{stride, 1});
    for (int64_t y = 0; y < rows.count; ++y) {
        const uint8_t* s = row<uint8_t>(src, stride, y);
        each_phase(rows.pixels, [&, s](auto io, int64_t i, auto phase) {
            sums[phase.index] += sums_of_8(io.template load<U8>(s + i));
        });
    }
    uint64_t lanes[3 * kLanes<uint64_t>], sum = 0;
    memcpy(lanes, sums, sizeof lanes);
    for (const uint64_t lane : lanes) sum += lane;
    *means = double(sum) / (double(size.width) * size.height);
    return kOk;
}

// What holds a pair of elements.
template <class T>
struct PairOf;
template <>
struct PairOf<uint8_t> {
    using Type = uint16_t;
};
template <>
struct PairOf<int16_t> {
    using Type = uint32_t;
};

// Signed elements are summed as what they are above the smallest.
template <class T, Form kForm>
Status mean_integers(const void* src, int32_t stride, Size size, double* means) {
    using Pair = typename PairOf<T>::Type;
    constexpr int kChannels = channels(kForm), kBits = 8 * sizeof(T), kPairs = 3 * kLanes<Pair>;
    constexpr bool kSigned = T(-1) < T(0);
    constexpr T kSmallest = kSigned ? T(1u << (kBits - 1)) : T(0);
    constexpr int64_t kRounds = int64_t(1) << kBits;  // of at most 2^kBits - 1: fit the lane
    if (Status s = check(size, src, means)) return s;
    const Bytes smallest = (Bytes)splat(kSmallest);

    Vec<Pair> both[3] = {}, upper[3] = {};
    uint64_t sums[kChannels] = {};
    const auto take = [&](auto turn) {
        for (int j = 0; j < 3; ++j) {
            const Vec<Pair> v = (Vec<Pair>)(turn.vector(j, smallest) ^ smallest);
            both[j] += v;
            upper[j] += v >> kBits;
        }
    };
    const auto empty = [&] {
        Pair b[kPairs], u[kPairs];
        for (int j = 0; j < 3; ++j) {
            store(b + j * kLanes<Pair>, both[j]);
            store(u + j * kLanes<Pair>, upper[j]);
            both[j] = upper[j] = Vec<Pair>{};
        }
        for (int e = 0; e < kPairs; ++e) b[e] -= u[e] << kBits;  // exact modulo the lane, and the lane holds it
        for (int e = 0; e < kPairs; e += kChannels)
            for (int p = 0; p < kChannels; ++p) {
                sums[2 * p % kChannels] += b[e + p];
                sums[(2 * p + 1) % kChannels] += u[e + p];
            }
    };
    const Rows rows = rows_of(size, Pitch{stride, kChannels * sizeof(T)});
    each_turn<3>(src, stride, rows.count, rows.pixels * kChannels * sizeof(T), kRounds, take, empty);

    const int64_t pixels = int64_t(size.width) * size.height;
    for (int c = 0; c < used(kForm); ++c) means[c] = double(int64_t(sums[c]) + kSmallest * pixels) / double(pixels);
    return kOk;
}

// 48 lanes: a multiple of each channel count, and enough additions at once to hide their latency. Rows are not joined:
// each begins with the first lane.
using Doubles = decltype(load_f64(nullptr));
constexpr int kSums = 48, kWide = sizeof(Doubles) / sizeof(double), kLaneVectors = kSums / kWide;

// Adds rows of n floats to the lanes, as many vectors of lanes at a time as registers hold beside the floats.
[[gnu::always_inline]] inline void add_floats(const Loose<float>* s, int32_t stride, int64_t rows, int64_t n,
                                              Doubles* sums) {
    constexpr int kTogether = min(kLaneVectors, 12);
    for (int first = 0; first < kLaneVectors; first += kTogether) {
        Doubles v[kTogether];
        memcpy(v, sums + first, sizeof v);
        for (int64_t y = 0; y < rows; ++y) {
            const Loose<float>* p = row<Loose<float>>(s, stride, y) + first * kWide;
            int64_t left = n;
            for (; left >= kSums; left -= kSums, p += kSums)
                for (int j = 0; j < kTogether; ++j) v[j] += load_f64(p + j * kWide);
            left -= first * kWide;
            // All of them, so that the lanes stay in registers.
#pragma GCC unroll 12
            for (int j = 0; j < kTogether; ++j, left -= kWide) {
                if (left >= kWide)
                    v[j] += load_f64(p + j * kWide);
                else if (left > 0)
                    v[j] += load_f64_n(p + j * kWide, left);  // adding +0 changes no sum that began with +0
            }
        }
        memcpy(sums + first, v, sizeof v);
    }
}

template <Form kForm>
Status mean_floats(const void* src, int32_t stride, Size size, double* means) {
    constexpr int kChannels = channels(kForm);
    constexpr int64_t kPiece = 64 * kSums;  // floats that stay in the first-level cache for all lanes
    if (Status s = check(size, src, means)) return s;
    Doubles sums[kLaneVectors] = {};
    const int64_t n = int64_t(size.width) * kChannels, rows = max<int64_t>(kPiece / n, 1);
    for (int64_t y = 0; y < size.height; y += rows)
        for (int64_t x = 0; x < n; x += kPiece)
            add_floats(row<Loose<float>>(src, stride, y) + x, stride, min(rows, size.height - y), min(kPiece, n - x),
                       sums);
    double lanes[kSums], totals[kChannels] = {};
    memcpy(lanes, sums, sizeof lanes);
    for (int e = 0; e < kSums; ++e) totals[e % kChannels] += lanes[e];
    for (int c = 0; c < used(kForm); ++c) {
        const double mean = totals[c] / (double(size.width) * size.height);
        means[c] = mean == mean ? mean : __builtin_nan("");  // which NaN came out depends on operand order
    }
    return kOk;
}

template <class T, Form kForm>
Status mean(const void* src, int32_t stride, Size size, double* means) {
    if constexpr (sizeof(T) == sizeof(float))
        return mean_floats<kForm>(src, stride, size, means);
    else if constexpr (sizeof(T) == 1 && kForm == Form::c1)
        return mean_bytes(src, stride, size, means);
    else
        return mean_integers<T, kForm>(src, stride, size, means);
}

}  // namespace

TARN_BODIES(plane_mean, PlaneMean, u8_s16_f32, c1_c3_c3x, mean<T, kForm>)

}  // namespace tarn::k::TARN_LEVEL
