// For the warp sources only: warps that scale and shift, and do not turn. All rows have their taps in the same columns,
// and all of a row in the same source rows: these are weighed along once for all the rows of a band that use them. The
// steps are those of other warps, in their order, so the bits are the same.
#pragma once

#include "kernels/warp/blend.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// What a strip's columns make of the last source rows: for each vector of pixels kPer vectors of sums.
template <int kTaps, int kPer>
struct WeighedRows {
    alignas(64) float sums[kTaps][kPer * (kMostColumns + kLanes<float>)];
    int64_t number[kTaps];     // of the source row, -1 for none
    int64_t from = 0, to = 0;  // the columns' places in the strip
    Points points;             // of the columns; bytes from a row's first pixel

    void forget() {
        from = to = 0;
        for (int64_t& n : number) n = -1;
    }
};

// Fills a run of the places that rows has. base: tap 0 of row `number`, of source columns as points count them. A
// sampler is a blender with
//   kPer                   1, of one channel, or 4
//   weigh(p, at, x, v)     kPer vectors of pixels, weighed along the row at p
//   Down::of(y), down(weights, tap)   the weights of a line's rows, and the sum of the vectors tap(0), tap(1), ...
template <class Sampler, class T, Form kForm, int kTaps, int kPer>
void scaled_run(const Sampler& sampler, WeighedRows<kTaps, kPer>& rows, const uint8_t* base, int64_t stride,
                int64_t number, uint32_t fraction, uint8_t* d) {
    constexpr int kLane = kLanes<float>;
    const int64_t begin = rows.from & -kLane, to = rows.to;
    const float* taps[kTaps];
    for (int k = 0; k < kTaps; ++k) {
        const int slot = int((number + k) % kTaps);
        float* sums = rows.sums[slot];
        taps[k] = sums;
        if (rows.number[slot] == number + k) continue;
        rows.number[slot] = number + k;
        const uint8_t* p = base + k * stride;
        for (int64_t i = begin; i < to; i += kLane) {
            F32 v[kPer];
            sampler.weigh(p, rows.points.at() + i, load<U32>(rows.points.x() + i), v);
            for (int j = 0; j < kPer; ++j) store(sums + kPer * (i - begin) + j * kLane, v[j]);
        }
    }
    const auto weights = Sampler::Down::of(fraction);
    const auto sum = [&](int64_t at) { return sampler.down(weights, [&](int k) { return load<F32>(taps[k] + at); }); };
    if constexpr (kPer == 1)
        put_run<T, kForm>(rows.from, to, d, [&](int64_t i) { return sum(i - begin); });
    else
        put_run<T, kForm>(rows.from, to, d, [&](int64_t i, F32(&v)[4]) {
            for (int j = 0; j < 4; ++j) v[j] = sum(4 * (i - begin) + j * kLane);
        });
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
