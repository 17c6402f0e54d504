// For kernel sources only: which source pixels an output is made of, and with which weights.
#pragma once

#include "kernels/plane/filters.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Positions of consecutive outputs d on an axis that maps `from` source pixels to `to` outputs, relative to the
// region's first pixel: ((2d + 1) from - offset) / (2 to), as a whole number and a rest below `denominator`. offset 0
// gives (d + 0.5) / factor, offset `to` that less 0.5. All in integers, so no step loses anything: the product stays
// below 2^63.
struct Walk {
    int64_t whole, rest, step_whole, step_rest, denominator;

    Walk(int64_t from, int64_t to, int64_t offset, int64_t first)
        : step_whole(from / to), step_rest(2 * (from % to)), denominator(2 * to) {
        const int64_t at = (2 * first + 1) * from - offset;
        whole = at >= 0 ? at / denominator : -1;  // offset <= to: never below -1/2
        rest = at - whole * denominator;
    }
    void next() {
        whole += step_whole;
        rest += step_rest;
        if (rest >= denominator) {
            rest -= denominator;
            ++whole;
        }
    }
};

// The taps of kTapBlock outputs: first[i] is the source pixel of tap 0, weight[k][i] the weight of tap k.
template <int kTaps>
struct TapBlock {
    int64_t first[kTapBlock];
    float weight[kTaps][kTapBlock];
};

// The source rows that an output row is made of: kTaps from first() on, counted from the region's top.
template <int kTaps>
class RowTaps {
public:
    RowTaps(const TapBlock<kTaps>* blocks, int64_t y) : block_(blocks + y / kTapBlock), at_(y % kTapBlock) {}
    int64_t first() const { return block_->first[at_]; }
    float weight(int k) const { return block_->weight[k][at_]; }

private:
    const TapBlock<kTaps>* block_;
    int64_t at_;
};

// The next ones of a walk. kExact: weights are multiples of 2^-15 whose sum is exactly 1.
template <class Filter, bool kExact>
void find_taps(Walk& walk, TapBlock<Filter::kTaps>& taps) {
    constexpr int kTaps = Filter::kTaps;
    double f[kTapBlock], w[kTaps][kTapBlock];
    for (int i = 0; i < kTapBlock; ++i, walk.next()) {
        taps.first[i] = walk.whole - (kTaps / 2 - 1);
        f[i] = double(walk.rest);
    }
    const double denominator = double(walk.denominator);
    for (int i = 0; i < kTapBlock; ++i) f[i] = f[i] / denominator;
    Filter::weights(f, w);
    if (kExact) {
        for (int i = 0; i < kTapBlock; ++i) {
            double sum = 0;
            for (int k = 0; k < kTaps; ++k) {
                constexpr double kNearest = 1.5 * 4503599627370496.0;  // rounds to an integer
                w[k][i] = (w[k][i] * 32768.0 + kNearest) - kNearest;
                sum += w[k][i];
            }
            const double rest = 32768.0 - sum;
            w[kTaps / 2 - 1][i] += f[i] < 0.5 ? rest : 0.0;
            w[kTaps / 2][i] += f[i] < 0.5 ? 0.0 : rest;
        }
    }
    for (int k = 0; k < kTaps; ++k)
        for (int i = 0; i < kTapBlock; ++i) taps.weight[k][i] = float(kExact ? w[k][i] / 32768.0 : w[k][i]);
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
