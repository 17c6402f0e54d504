// For the resize sources only: the separable resampling with a fixed number of taps that linear, cubic and Lanczos
// share.
//
// A strip of columns at a time, in bands of rows. Source rows are resampled horizontally, as floats, one by one or by
// the batch, and kept until no output needs them; an output row is the weighted sum of kTaps of them, rounded once.
// Source rows that no output needs are never read.
#pragma once

#include "kernels/plane/ring.h"
#include "kernels/plane/strips.h"
#include "kernels/resize/batch.h"
#include "kernels/resize/strip.h"
#include "kernels/simd/round.h"
#include "kernels/simd/stream.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Elements of four vectors of sums, which lie far within 32 bits for integers.
template <class T>
inline Block<T> rounded(const F32 (&v)[4]) {
    if constexpr (sizeof(T) == 4)
        return round_to<T>(settle_nan(v[0]), settle_nan(v[1]), settle_nan(v[2]), settle_nan(v[3]));
    else
        return round_to_within32<T>(v[0], v[1], v[2], v[3]);
}

// An output row of n elements. Rows must be readable up to a multiple of four vectors. Inlined: handed over in memory,
// the rows' addresses would be read before they have got there.
template <int kTaps, bool kKept, class T>
[[gnu::always_inline]] inline void blend_rows(const float* const* rows, const RowTaps<kTaps>& taps, int64_t n, T* dst) {
    constexpr int64_t kStep = 4 * kLanes<float>;  // as many as a vector has bytes
    const float* r[kTaps];
    F32 w[kTaps];
    for (int k = 0; k < kTaps; ++k) r[k] = rows[k], w[k] = splat(taps.weight(k));
    const Bytes mask = colour_mask<T>();
    const auto blend = [&](int64_t i, int64_t count) {
        F32 v[4];
#pragma GCC unroll 4
        for (int part = 0; part < 4; ++part) {
            // Short rows of floats take fewer vectors; of others all are packed together.
            const bool any = sizeof(T) < 4 || part * kLanes<float> < count;
            v[part] = any ? sum_of<kTaps, false>([&](int k) { return load<F32>(r[k] + i + part * kLanes<float>); },
                                                 [&](int k) { return w[k]; })
                          : F32{};
        }
        store_form_where<kKept>(reinterpret_cast<uint8_t*>(dst + i), rounded<T>(v).v, mask, count * int(sizeof(T)));
    };
    int64_t i = 0;
    for (; n - i >= kStep; i += kStep) blend(i, kStep);
    if (i < n) blend(overlapped(i, n), min(n, kStep));
}

// The resampled rows of a tile, made one by one, and kept until no output needs them.
template <class Filter, bool kExact, class S>
class Singly {
public:
    static constexpr int kTaps = Filter::kTaps;
    static constexpr int64_t kMost = kStripElements<kTaps, S>;

    // For strips of so many pixels.
    Singly(const Job& j, int channels, int64_t strip) : job_(j), channels_(channels), ring_(nullptr, 0) {
        tables_.set_pitch(strip * channels);
    }
    template <class Part>
    void carve(Part part) {
        tables_.carve<kTaps>(part);
        part(rows_, kTaps * tables_.pitch + 4 * kLanes<float>);
    }

    // Before another tile.
    void begin(const Tile& tile, const TapBlock<kTaps>* row_taps) {
        row_taps_ = row_taps, bottom_ = tile.bottom;
        prepare<Filter, kExact, S>(tables_, job_, tile, channels_);
        ring_ = Ring<float, kTaps>(rows_, tables_.pitch);
    }

    // The kTaps rows of output row y.
    void find(int64_t y, const float* (&rows)[kTaps]) {
        const int64_t first = RowTaps<kTaps>(row_taps_, y).first();
        const int64_t after = RowTaps<kTaps>(row_taps_, min(y + 1, bottom_ - 1)).first();
        for (int k = 0; k < kTaps; ++k) {
            const int64_t source = job_.row_within(first + k);
            rows[k] = ring_.row(source, [&](float* out) {
                const int64_t next = job_.row_within(k + 1 < kTaps ? first + k + 1 : max(first + k + 1, after));
                resample_row<kTaps, kExact>(tables_, job_.src_row<S>(source), job_.src_row<S>(next),
                                            job_.src_size.width, job_.region.x, channels_, out);
            });
        }
    }

private:
    const Job& job_;
    int channels_;
    const TapBlock<kTaps>* row_taps_;
    int64_t bottom_;
    StripTables tables_;
    float* rows_;
    Ring<float, kTaps> ring_;
};

template <class Rows, class Filter, class D>
Status resample(const Job& j, int channels, bool kept) {
    constexpr int kTaps = Filter::kTaps;
    constexpr int64_t kMost = Rows::kMost;
    const int64_t width = j.dst_size.width, height = j.bottom - j.top;
    const int64_t blocks = (height + kTapBlock - 1) / kTapBlock;
    const int64_t strip = strip_width(width, kMost / channels, 16);
    // Rows go around the cache by way of one that stays in it: of floats alone, others take longer to make than to
    // store.
    const bool streamed = sizeof(D) == 4 && !kept && streams(2 * height * width * channels * int64_t(sizeof(D)));
    TapBlock<kTaps>* row_taps;
    D* blended;
    Rows rows(j, channels, strip);
    Scratch scratch(j.allocator);
    const auto arrays = [&](auto part) {
        part(row_taps, blocks);
        rows.carve(part);
        part(blended, streamed ? strip * channels + 4 * kLanes<float> : 0);
    };
    if (!scratch.carve(arrays)) return kNoMemory;
    Walk walk(j.region.height, j.dst_size.height, j.dst_size.height, j.top);
    for (int64_t b = 0; b < blocks; ++b) find_taps<Filter, false>(walk, row_taps[b]);

    // In steps that leave no vector half used in the inner strips.
    each_tile(width, height, kMost / channels, 16, [&](Tile tile) {
        rows.begin(tile, row_taps);
        for (int64_t y = tile.top; y < tile.bottom; ++y) {
            const float* of_y[kTaps];
            rows.find(y, of_y);
            const RowTaps<kTaps> taps(row_taps, y);
            D* dst = j.dst_row<D>(j.top + y) + tile.x * channels;
            const int64_t n = tile.width * channels;
            if (kept)
                blend_rows<kTaps, true>(of_y, taps, n, dst);
            else
                blend_rows<kTaps, false>(of_y, taps, n, streamed ? blended : dst);
            if (streamed) stream_row(dst, blended, n * int64_t(sizeof(D)));
        }
    });
    if (streamed) stream_fence();
    return kOk;
}

template <class Filter, class S, class D, Form kForm>
Status resampled(const Job& j) {
    constexpr bool kExact = kExactSums<D>;
    if constexpr (!kHasPermute || 2 * kPermuted < kMostHalves<Filter::kTaps>)
        if (batches_pay<Filter::kTaps, S>(channels(kForm), j.region.width, j.dst_size.width))
            return resample<Batches<Filter, kExact, S>, Filter, D>(j, channels(kForm), kept(kForm));
    return resample<Singly<Filter, kExact, S>, Filter, D>(j, channels(kForm), kept(kForm));
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
