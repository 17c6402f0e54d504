// Pixels in a range. Three vectors of a row in turn, each with the bounds of its lanes' channels and counting into
// lanes of its own, the narrowest ones, emptied before they overflow. The end of a row is filled up with the lower
// bounds, which count, and those are taken off again.
#include "kernels/stats/stats.h"

#include "kernels/plane/pattern.h"
#include "kernels/stats/turns.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// What elements of a type are compared with besides the lower bound, what they are counted in, and how often that fits.
template <class T>
struct Counter;
template <>
struct Counter<uint8_t> {
    using Lane = uint8_t;
    static constexpr int64_t kRounds = 255;
    static uint8_t second(uint8_t lower, uint8_t upper) { return uint8_t(upper - lower); }
    // In range when v - lower, modulo 256, is not above upper - lower.
    static U8 count(U8 counts, U8 v, U8 lower, U8 span) { return count_le(counts, v - lower, span); }
};
template <>
struct Counter<float> {
    using Lane = uint32_t;
    static constexpr int64_t kRounds = int64_t(1) << 30;
    static float second(float, float upper) { return upper; }
    static U32 count(U32 counts, F32 v, F32 lower, F32 upper) { return count_within(counts, v, lower, upper); }
};

template <class T, Form kForm>
Status count_in_range(const void* src, int32_t stride, Size size, const void* lower, const void* upper,
                      int32_t* counts) {
    constexpr int kChannels = channels(kForm), kTurn = 3 * kLanes<T>;
    using Lane = typename Counter<T>::Lane;
    if (Status s = check(size, src, lower, upper, counts)) return s;
    T lo[4], hi[4], second[4];
    read_constants<T, kForm>(lower, lo);
    read_constants<T, kForm>(upper, hi);
    for (int c = 0; c < kChannels; ++c) second[c] = Counter<T>::second(lo[c], hi[c]);
    const Pattern a = pattern_of<T, kForm>(lo), b = pattern_of<T, kForm>(second);

    Vec<Lane> lanes[3] = {};
    uint64_t in_lane[kTurn] = {};
    const auto take = [&](auto turn) {
        for (int j = 0; j < 3; ++j)
            lanes[j] = Counter<T>::count(lanes[j], turn.vector(j, (Vec<T>)a.v[j]), (Vec<T>)a.v[j], (Vec<T>)b.v[j]);
    };
    const auto empty = [&] {
        Lane counted[kTurn];
        for (int j = 0; j < 3; ++j) {
            store(counted + j * kLanes<T>, lanes[j]);
            lanes[j] = Vec<Lane>{};
        }
        for (int e = 0; e < kTurn; ++e) in_lane[e] += counted[e];
    };
    const Rows rows = rows_of(size, Pitch{stride, kChannels * sizeof(T)});
    const int64_t elements = rows.pixels * kChannels, last = elements % kTurn;
    each_turn<3>(src, stride, rows.count, elements * sizeof(T), Counter<T>::kRounds, take, empty);

    const uint64_t filled = last ? uint64_t((kTurn - last) / kChannels * rows.count) : 0;
    uint64_t in_channel[kChannels] = {};
    for (int e = 0; e < kTurn; ++e) in_channel[e % kChannels] += in_lane[e];
    for (int c = 0; c < used(kForm); ++c)
        counts[c] = lo[c] <= hi[c] ? int32_t(min<uint64_t>(in_channel[c] - filled, INT32_MAX)) : 0;
    return kOk;
}

}  // namespace

TARN_BODIES(count_in_range, CountInRange, u8_f32, c1_c3_c3x, count_in_range<T, kForm>)

}  // namespace tarn::k::TARN_LEVEL
