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

// The sum of the rows of an output of T. Without the instruction products and additions of their own do, where an integer
// comes of it: their sum has the same nearest one unless it is almost half-way to the next. They err by less than kErr,
// for each is below the largest element times kOvershoot and rounds by 2^-24 of that at most.
// kExact: nothing is rounded.
template <int kTaps, class T, bool kExact, class Tap, class Weight>
[[gnu::always_inline]] inline F32 sum_of_rows(Tap tap, Weight weight) {
    if constexpr (kExact) {
        return sum_of<kTaps, true>(tap, weight);
    } else if constexpr (kHasMulAdd || sizeof(T) == 4) {
        return sum_of<kTaps, false>(tap, weight);
    } else {
        // Of both passes: the sum of the weights' sizes, squared.
        constexpr float kOvershoot = kTaps == 2 ? 1 : kTaps == 4 ? 1.6f : 2.4f;
        constexpr float kErr = 2 * kTaps * kOvershoot * (sizeof(T) == 1 ? 256 : 32768) * 0x1p-24f;
        const F32 sum = sum_of<kTaps, true>(tap, weight);
        const F32 off = sum - __builtin_convertvector(nearest_int(sum), F32);
        const F32 distance = (F32)((U32)off & splat(0x7fffffffu));
        if (__builtin_expect(nonzero_bits((Bytes)(distance > splat(0.5f - kErr))) == 0, 1)) return sum;
        return sum_of<kTaps, false>(tap, weight);
    }
}

// Sums at a time: emulated ones are long.
constexpr int kUnroll = kHasMulAdd ? 4 : 1;

// An output row of n elements. Rows must be readable up to a multiple of four vectors. Inlined: handed over in memory,
// the rows' addresses would be read before they have got there.
template <int kTaps, bool kKept, bool kExact, class T>
[[gnu::always_inline]] inline void blend_rows(const float* const* rows, const float* weight, int64_t n, T* dst) {
    constexpr int64_t kStep = 4 * kLanes<float>;  // as many as a vector has bytes
    const float* r[kTaps];
    F32 w[kTaps];
    for (int k = 0; k < kTaps; ++k) r[k] = rows[k], w[k] = splat(weight[k]);
    const Bytes mask = colour_mask<T>();
    const auto blend = [&](int64_t i, int64_t count) {
        F32 v[4];
#pragma GCC unroll kUnroll
        for (int part = 0; part < 4; ++part)
            v[part] = sum_of_rows<kTaps, T, kExact>([&](int k) { return load<F32>(r[k] + i + part * kLanes<float>); },
                                                    [&](int k) { return w[k]; });
        store_form_where<kKept>(reinterpret_cast<uint8_t*>(dst + i), rounded<T>(v).v, mask, count * int(sizeof(T)));
    };
    int64_t i = 0;
    for (; n - i >= kStep; i += kStep) blend(i, kStep);
    if (i < n) blend(overlapped(i, n), min(n, kStep));
}

// Without the instruction: of 16-bit pixels nothing is rounded where weights, of both passes together for the second, are
// multiples of 2^-kFewBits, for sums are below 2^17.
constexpr int kFewBits = 7;

template <bool k>
struct Exact {
    static constexpr bool kValue = k;
};

// The least number of bits, one more than those at most, behind the point of so many weights.
inline int fraction_bits(const float* weight, int64_t n, int bits) {
    for (int64_t i = 0; i < n; ++i)
        for (; bits <= kFewBits; ++bits) {
            const float v = weight[i] * float(1 << bits);
            if (v == float(int32_t(v))) break;
        }
    return bits;
}

template <class Filter, class S, class D>
Status resample(const Job& j, int channels, bool kept) {
    constexpr int kTaps = Filter::kTaps;
    constexpr int64_t kMost = kStripElements<kTaps, S>;
    const int64_t width = j.dst_size.width, height = j.bottom - j.top;
    RowTaps<kTaps>* row_taps;
    float* ring_rows;
    StripTables t{};
    t.set_pitch(strip_width(width, kMost / channels, 16) * channels);
    Scratch scratch(j.allocator);
    const auto arrays = [&](auto part) {
        part(row_taps, height + kTapBlock);
        t.carve<kTaps>(part);
        part(ring_rows, kTaps * t.pitch + 4 * kLanes<float>);
    };
    if (!scratch.carve(arrays)) return kNoMemory;
    find_row_taps<Filter>(j.region.height, j.dst_size.height, j.top, height, row_taps);
    Ring<float, kTaps> ring(ring_rows, t.pitch);
    constexpr bool kMaybeExact = !kHasMulAdd && sizeof(S) == 2 && sizeof(D) == 2;
    int row_bits = 0;
    if constexpr (kMaybeExact)
        for (int64_t y = 0; y < height; ++y) row_bits = fraction_bits(row_taps[y].weight, kTaps, row_bits);

    // In steps that leave no vector half used in the inner strips.
    each_tile(width, height, kMost / channels, 16, [&](Tile tile) {
        prepare<Filter, kExactSums<D>, S>(t, j, tile, channels);
        int bits = kFewBits + 1;
        if constexpr (kMaybeExact) {
            bits = 0;
            for (int k = 0; k < kTaps; ++k) bits = fraction_bits(t.weight + k * t.pitch, t.elements, bits);
        }
        ring.forget();
        const Ahead ahead(j, tile.width);
        const int64_t pixel_bytes = channels * int64_t(sizeof(S));
        const int64_t from = max<int64_t>(j.region.x + t.first[0], 0) * pixel_bytes;
        const int64_t to = min<int64_t>(j.region.x + t.first[tile.width - 1] + kTaps, j.src_size.width) * pixel_bytes;
        for (int64_t y = tile.top; y < tile.bottom; ++y) {
            const float* rows[kTaps];
            for (int k = 0; k < kTaps; ++k) {
                const int64_t source = j.row_within(row_taps[y].first + k);
                rows[k] = ring.row(source, [&](float* out) {
                    // Not of floats: a strip of them is longer than a page, and is fetched well enough.
                    if (sizeof(S) < 4 && t.fetch >= Fetch::one_window) ahead.fetch(source, from, to);
                    const int64_t after = k + 1 < kTaps ? 0 : row_taps[min(y + 1, tile.bottom - 1)].first;
                    const S* next = j.src_row<S>(j.row_within(max(row_taps[y].first + k + 1, after)));
                    const S* row = j.src_row<S>(source);
                    if (kMaybeExact && bits <= kFewBits)
                        resample_row<kTaps, kExactSums<D> || kMaybeExact>(t, row, next, j.src_size.width, j.region.x,
                                                                          channels, out);
                    else
                        resample_row<kTaps, kExactSums<D>>(t, row, next, j.src_size.width, j.region.x, channels, out);
                });
            }
            D* dst = j.dst_row<D>(j.top + y) + tile.x * channels;
            const auto blend = [&](auto exact) {
                constexpr bool kExact = decltype(exact)::kValue;
                if (kept)
                    blend_rows<kTaps, true, kExact>(rows, row_taps[y].weight, tile.width * channels, dst);
                else
                    blend_rows<kTaps, false, kExact>(rows, row_taps[y].weight, tile.width * channels, dst);
            };
            if (kMaybeExact && bits + row_bits <= kFewBits)
                blend(Exact<kMaybeExact>{});
            else
                blend(Exact<false>{});
        }
    });
    return kOk;
}

template <class Filter, class S, class D, Form kForm>
Status resampled(const Job& j) {
    return resample<Filter, S, D>(j, channels(kForm), kept(kForm));
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
