// For the resize sources only: the separable resampling with a fixed number of taps that linear, cubic and Lanczos
// share.
//
// A strip of columns at a time, in bands of rows. Per strip a ring holds the last kTaps source rows, resampled
// horizontally, as floats; an output row is their weighted sum, rounded once. Source rows that no output needs are
// never read.
#pragma once

#include "kernels/plane/ring.h"
#include "kernels/plane/strips.h"
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

template <class Filter, class S, class D>
Status resample(const Job& j, int channels, bool kept) {
    constexpr int kTaps = Filter::kTaps;
    constexpr int64_t kMost = kStripElements<kTaps, S>;
    const int64_t width = j.dst_size.width, height = j.bottom - j.top;
    const int64_t blocks = (height + kTapBlock - 1) / kTapBlock;
    TapBlock<kTaps>* row_taps;
    float* ring_rows;
    D* blended;
    StripTables t;
    t.set_pitch(strip_width(width, kMost / channels, 16) * channels);
    // Rows go around the cache by way of one that stays in it: of floats alone, others take longer to make than to store.
    const bool streamed = sizeof(D) == 4 && !kept && streams(2 * height * width * channels * int64_t(sizeof(D)));
    Scratch scratch(j.allocator);
    const auto arrays = [&](auto part) {
        part(row_taps, blocks);
        t.carve<kTaps>(part);
        part(ring_rows, kTaps * t.pitch + 4 * kLanes<float>);
        part(blended, streamed ? t.pitch : 0);
    };
    if (!scratch.carve(arrays)) return kNoMemory;
    Walk walk(j.region.height, j.dst_size.height, j.dst_size.height, j.top);
    for (int64_t b = 0; b < blocks; ++b) find_taps<Filter, false>(walk, row_taps[b]);
    Ring<float, kTaps> ring(ring_rows, t.pitch);

    // In steps that leave no vector half used in the inner strips.
    each_tile(width, height, kMost / channels, 16, [&](Tile tile) {
        prepare<Filter, kExactSums<D>, S>(t, j, tile, channels);
        ring.forget();
        for (int64_t y = tile.top; y < tile.bottom; ++y) {
            const RowTaps<kTaps> taps(row_taps, y);
            const int64_t after = RowTaps<kTaps>(row_taps, min(y + 1, tile.bottom - 1)).first();
            const float* rows[kTaps];
            for (int k = 0; k < kTaps; ++k) {
                const int64_t source = j.row_within(taps.first() + k);
                rows[k] = ring.row(source, [&](float* out) {
                    const int64_t following = taps.first() + k + 1;
                    const S* next = j.src_row<S>(j.row_within(k + 1 < kTaps ? following : max(following, after)));
                    const S* row = j.src_row<S>(source);
                    resample_row<kTaps, kExactSums<D>>(t, row, next, j.src_size.width, j.region.x, channels, out);
                });
            }
            D* dst = j.dst_row<D>(j.top + y) + tile.x * channels;
            const int64_t n = tile.width * channels;
            if (kept)
                blend_rows<kTaps, true>(rows, taps, n, dst);
            else
                blend_rows<kTaps, false>(rows, taps, n, streamed ? blended : dst);
            if (streamed) stream_row(dst, blended, n * int64_t(sizeof(D)));
        }
    });
    if (streamed) stream_fence();
    return kOk;
}

template <class Filter, class S, class D, Form kForm>
Status resampled(const Job& j) {
    return resample<Filter, S, D>(j, channels(kForm), kept(kForm));
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
