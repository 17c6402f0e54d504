// Minimum and maximum. Rows are read as vectors without regard to channels: the vectors of a row fall into accumulators
// by turns, so many that an accumulator's lanes always meet the same channel, and channels come apart only at the end.
// Both results of a minimum and maximum cost one pass, which memory bounds, so both are always computed.
#include "kernels/stats/stats.h"

#include "kernels/plane/plane.h"
#include "kernels/simd/simd.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// What every value is below, above.
template <class T>
constexpr T kTop = sizeof(T) == 1 ? T(255) : T(32767);
template <class T>
constexpr T kBottom = sizeof(T) == 1 ? T(0) : T(-32768);
template <>
constexpr float kTop<float> = __builtin_inff();
template <>
constexpr float kBottom<float> = -__builtin_inff();

// Six accumulators: as many as hide the latency of a float minimum, and a multiple of three for three channels.
constexpr int kTurns = 6;

template <class T, Form kForm>
Status minmax(const void* src, int32_t stride, Size size, float* smallest, float* largest) {
    constexpr int kChannels = channels(kForm), kWidth = kLanes<T>;
    if (Status s = check(size, src)) return s;
    Vec<T> lo[kTurns], hi[kTurns];
    for (int j = 0; j < kTurns; ++j) lo[j] = splat(kTop<T>), hi[j] = splat(kBottom<T>);
    T low[kChannels], high[kChannels];
    for (int c = 0; c < kChannels; ++c) low[c] = kTop<T>, high[c] = kBottom<T>;

    // NaN as the first operand is passed over.
    const auto take = [&](const void* p, int j) {
        const Vec<T> v = load<Vec<T>>(p);
        lo[j] = min(v, lo[j]);
        hi[j] = max(v, hi[j]);
    };
    const auto take_pixel = [&](const auto* lows, const auto* highs) {
        for (int c = 0; c < kChannels; ++c) {
            low[c] = lows[c] < low[c] ? T(lows[c]) : low[c];
            high[c] = highs[c] > high[c] ? T(highs[c]) : high[c];
        }
    };
    const Rows rows = rows_of(size, Pitch{stride, kChannels * sizeof(T)});
    const int64_t n = rows.pixels * kChannels;
    for (int64_t y = 0; y < rows.count; ++y) {
        const Loose<T>* s = row<Loose<T>>(src, stride, y);
        int64_t i = 0;
        for (; i + kTurns * kWidth <= n; i += kTurns * kWidth)
            for (int j = 0; j < kTurns; ++j) take(s + i + j * kWidth, j);
        for (int j = 0; j < kTurns; ++j)
            if (i + kWidth <= n) take(s + i, j), i += kWidth;
        if (n < kWidth)
            for (; i < n; i += kChannels) take_pixel(s + i, s + i);
        else if (i < n)
            // The last vector once more, up to the row's end: with three channels it begins with the channel of
            // -kWidth, which modulo 3 is that of 2 * kWidth.
            take(s + n - kWidth, kChannels == 3 ? 2 : 0);
    }

    // Accumulators of the same channels, then lanes of the same channel.
    constexpr int kApart = kChannels == 3 ? 3 : 1;
    for (int j = kApart; j < kTurns; ++j) {
        lo[j % kApart] = min(lo[j], lo[j % kApart]);
        hi[j % kApart] = max(hi[j], hi[j % kApart]);
    }
    T lows[kApart * kWidth], highs[kApart * kWidth];
    for (int j = 0; j < kApart; ++j) {
        store(lows + j * kWidth, lo[j]);
        store(highs + j * kWidth, hi[j]);
    }
    for (int e = 0; e < kApart * kWidth; e += kChannels) take_pixel(lows + e, highs + e);
    for (int c = 0; c < used(kForm); ++c) {
        const bool none = low[c] > high[c];  // nothing but NaN
        // Adding +0 settles the sign of a zero, which depends on the order of comparisons.
        if (smallest) smallest[c] = none ? __builtin_nanf("") : float(low[c]) + 0.0f;
        if (largest) largest[c] = none ? __builtin_nanf("") : float(high[c]) + 0.0f;
    }
    return kOk;
}

}  // namespace

TARN_BODIES(minmax, MinMax, u8_s16_f32, c1_c3_c4_c3x, minmax<T, kForm>)

}  // namespace tarn::k::TARN_LEVEL
