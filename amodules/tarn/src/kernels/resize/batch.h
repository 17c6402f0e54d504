// For the resize sources only: as many source rows as a vector of floats has lanes, resampled horizontally at once.
// They are turned into columns, an element of every row in a vector; an output's taps then lie one behind another
// wherever they come from, and its weights are the same for all rows. The outputs are turned back into rows.
#pragma once

#include "kernels/plane/strips.h"
#include "kernels/plane/taps.h"
#include "kernels/plane/transpose.h"
#include "kernels/resize/job.h"
#include "kernels/resize/sums.h"

namespace tarn::k::TARN_LEVEL {
namespace {

constexpr int kBatch = kLanes<float>;
// Elements of a row that are columns at a time, at most: they stay in the first-level cache.
constexpr int64_t kColumns = kVector == 64 ? 320 : 512;
constexpr int kGroupRows = kGroupLanes<float>;
// Outputs made together, so many that they fill vectors: whole blocks of weights.
constexpr int kOutputs = kBatch > kTapBlock ? kBatch : kTapBlock;

// Halves of a source pixel for an output, at most.
template <int kTaps>
constexpr int kMostHalves = kTaps + 2;

// Whether rows are made faster so than one by one. All of the source becomes columns, however little of it an output
// takes, and four channels fill a small register without that. Permutes, as far as they reach, pick taps fast enough.
template <int kTaps, class S>
constexpr bool batches_pay(int channels, int64_t from, int64_t to) {
    constexpr bool kFloats = sizeof(S) == 4;
    int halves = kMostHalves<kTaps>;
    if (kHasPermute) return from > kPermuted * to && 2 * from <= halves * to;
    if (channels == 4) halves = kVector > 16 ? max(kTaps - kFloats, 2) : kTaps > 2 && !kFloats ? kTaps : 0;
    if (channels < 4 && kVector == 16 && kTaps == 2) halves = channels == 1 ? 3 : 0;
    return 2 * from <= halves * to;
}

// Where the rows of a batch lie, in bytes: row i of every group.
using RowOffsets = int64_t[kGroupRows][kGroups];

// The elements in 16 bytes at s of every row become columns.
template <class T>
[[gnu::always_inline]] inline void turn_groups(const uint8_t* s, const RowOffsets& at, F32* columns) {
    Bytes v[kGroupRows];
    for (int r = 0; r < kGroupRows; ++r) v[r] = load_groups(s, at[r]);
    // Elements of the rows of a group side by side: v[i] holds those of the i-th fourth of the columns.
    for (int step = 0; step < 2; ++step) {
        Bytes next[kGroupRows];
        for (int i = 0; i < 2; ++i) {
            next[2 * i] = interleave_lower<T>(v[i], v[i + 2]);
            next[2 * i + 1] = interleave_upper<T>(v[i], v[i + 2]);
        }
        for (int i = 0; i < kGroupRows; ++i) v[i] = next[i];
    }
    for (const Bytes& four : v) {
        if constexpr (sizeof(T) == 4) {
            *columns++ = (F32)four;
        } else if constexpr (sizeof(T) == 2) {
            *columns++ = __builtin_convertvector((S32)interleave_lower16(four, four) >> 16, F32);
            *columns++ = __builtin_convertvector((S32)interleave_upper16(four, four) >> 16, F32);
        } else {
            for (int half = 0; half < 2; ++half) {
                const Bytes two = half ? interleave_upper8(four, Bytes{}) : interleave_lower8(four, Bytes{});
                *columns++ = __builtin_convertvector((S32)interleave_lower16(two, Bytes{}), F32);
                *columns++ = __builtin_convertvector((S32)interleave_upper16(two, Bytes{}), F32);
            }
        }
    }
}

// Elements [from, from + n) of every row become columns.
template <class T>
[[gnu::noinline]] void turn_to_columns(const uint8_t* const* rows, int64_t from, int64_t n, F32* columns) {
    constexpr int64_t kStep = kGroupLanes<T>;
    const uint8_t* s = rows[0] + from * int64_t(sizeof(T));
    RowOffsets at;
    for (int i = 0; i < kBatch; ++i) at[i % kGroupRows][i / kGroupRows] = rows[i] - rows[0];
    if (n < kStep) {
        uint8_t whole[kBatch][16];
        RowOffsets side_by_side;
        for (int i = 0; i < kBatch; ++i) {
            copy_bytes(whole[i], rows[i] + from * int64_t(sizeof(T)), n * int64_t(sizeof(T)));
            side_by_side[i % kGroupRows][i / kGroupRows] = 16 * i;
        }
        return turn_groups<T>(whole[0], side_by_side, columns);
    }
    for (int64_t i = 0; i < n; i += kStep) {
        const int64_t e = min(i, n - kStep);
        turn_groups<T>(s + e * int64_t(sizeof(T)), at, columns + e);
    }
}

// Output pixels, kOutputs at a time, from columns that begin with source pixel `from`, to the rows at `out`.
template <int kTaps, bool kExact, int kChannels>
[[gnu::noinline]] void weigh_columns(const TapBlock<kTaps>* taps, int64_t blocks, int64_t from, const F32* columns,
                                     float* out, const int64_t (&to)[kBatch]) {
    constexpr int kElements = kOutputs * kChannels;
    for (const TapBlock<kTaps>* end = taps + blocks; taps < end; taps += kOutputs / kTapBlock) {
        F32 made[kElements];
#pragma GCC unroll 16
        for (int i = 0; i < kOutputs; ++i) {
            const TapBlock<kTaps>& t = taps[i / kTapBlock];
            const F32* first = columns + (t.first[i % kTapBlock] - from) * kChannels;
#pragma GCC unroll 4
            for (int c = 0; c < kChannels; ++c)
                made[i * kChannels + c] =
                    sum_of<kTaps, kExact>([&](int k) { return first[k * kChannels + c]; },
                                          [&](int k) { return splat(t.weight[k][i % kTapBlock]); });
        }
#pragma GCC unroll 8
        for (int e = 0; e < kElements; e += kBatch, out += kBatch) {
            Bytes v[kBatch];
            for (int i = 0; i < kBatch; ++i) v[i] = (Bytes)made[e + i];
            transpose<float>(v);
            for (int i = 0; i < kBatch; ++i) store(out + to[i], v[i]);
        }
    }
}

// The resampled rows of a tile, made by the batch.
template <class Filter, bool kExact, class S>
class Batches {
public:
    static constexpr int kTaps = Filter::kTaps;
    // Elements of a strip at most: what is read and written for it stays in the second-level cache.
    static constexpr int64_t kMost = sizeof(S) < 4 ? 7680 : 3840;
    static_assert((kOutputs * kMostHalves<kTaps> / 2 + kTaps + 1) * 4 <= kColumns);

    // For strips of so many pixels.
    Batches(const Job& j, int channels, int64_t strip) : job_(j), channels_(channels) {
        blocks_ = blocks_of(strip);
        pitch_ = blocks_ * kTapBlock * channels + 4 * kLanes<float>;
        pitch_ += pitch_ % 256 ? 0 : 16;
        // The source pixels of n outputs are n * from / to + kTaps, and one more for what is rounded.
        const int64_t pixels = kColumns / channels - kTaps - 1, from = j.region.width, to = j.dst_size.width;
        piece_ = blocks_of(clamp<int64_t>(pixels * to / from / kOutputs * kOutputs, 1, strip));
    }
    template <class Part>
    void carve(Part part) {
        part(taps_, blocks_), part(columns_, kColumns), part(rows_, kSlots * pitch_);
    }

    // Before another tile.
    void begin(const Tile& tile, const TapBlock<kTaps>* row_taps) {
        row_taps_ = row_taps, bottom_ = tile.bottom;
        blocks_ = blocks_of(tile.width);
        const int64_t width = job_.dst_size.width;
        Walk walk(job_.region.width, width, width, tile.x);
        for (int64_t b = 0; b < blocks_; ++b) find_taps<Filter, kExact>(walk, taps_[b]);
        made_ = oldest_ = 0;
    }

    // The kTaps rows of output row y; of later calls y is greater.
    void find(int64_t y, const float* (&rows)[kTaps]) {
        const int64_t top = RowTaps<kTaps>(row_taps_, y).first();
        const int64_t first = job_.row_within(top), last = job_.row_within(top + kTaps - 1);
        while (oldest_ < made_ && source_[oldest_ % kSlots] < first) ++oldest_;
        while (!made_ || source_[(made_ - 1) % kSlots] < last) make(y);
        for (int k = 0; k < kTaps; ++k)
            rows[k] = rows_ + (oldest_ + job_.row_within(top + k) - first) % kSlots * pitch_;
    }

private:
    static constexpr int kSlots = kTaps - 1 + kBatch;

    static int64_t blocks_of(int64_t outputs) { return (outputs + kOutputs - 1) / kOutputs * (kOutputs / kTapBlock); }

    // The next batch: rows that output y and those below it need and that are not made. At the end some are there
    // twice.
    void make(int64_t y) {
        const uint8_t* rows[kBatch];
        int count = 0;
        int64_t next = made_ ? source_[(made_ - 1) % kSlots] + 1 : 0;
        for (; y < bottom_ && count < kBatch; ++y) {
            const int64_t top = RowTaps<kTaps>(row_taps_, y).first(), last = job_.row_within(top + kTaps - 1);
            for (next = max(next, job_.row_within(top)); next <= last && count < kBatch; ++next, ++count) {
                source_[(made_ + count) % kSlots] = next;
                rows[count] = job_.src_row<uint8_t>(next);
            }
        }
        int64_t to[kBatch];
        for (int i = 0; i < kBatch; ++i) {
            to[i] = (made_ + i) % kSlots * pitch_;
            if (i >= count) rows[i] = job_.src_row<uint8_t>(next - 1);
        }
        made_ += count;
        for (int64_t b = 0; b < blocks_; b += piece_) make_piece(rows, b, min(piece_, blocks_ - b), to);
    }

    void make_piece(const uint8_t* const* rows, int64_t block, int64_t blocks, const int64_t (&to)[kBatch]) {
        const TapBlock<kTaps>* taps = taps_ + block;
        const int64_t from = taps->first[0], pixels = taps[blocks - 1].first[kTapBlock - 1] + kTaps - from;
        turn_pixels(rows, job_.region.x + from, pixels);
        float* out = rows_ + block * kTapBlock * channels_;
        if (channels_ == 1)
            weigh_columns<kTaps, kExact, 1>(taps, blocks, from, columns_, out, to);
        else if (channels_ == 3)
            weigh_columns<kTaps, kExact, 3>(taps, blocks, from, columns_, out, to);
        else
            weigh_columns<kTaps, kExact, 4>(taps, blocks, from, columns_, out, to);
    }

    // Pixels [from, from + count) of the batch; outside of the source its edge repeats.
    void turn_pixels(const uint8_t* const* rows, int64_t from, int64_t count) {
        const int64_t width = job_.src_size.width;
        const int64_t left = clamp<int64_t>(-from, 0, count), right = clamp<int64_t>(from + count - width, 0, count);
        F32 *begin = columns_ + left * channels_, *end = columns_ + (count - right) * channels_;
        turn_to_columns<S>(rows, (from + left) * channels_, end - begin, begin);
        for (F32* c = begin; c > columns_; --c) c[-1] = c[channels_ - 1];
        for (F32* c = end; c < columns_ + count * channels_; ++c) *c = c[-channels_];
    }

    const Job& job_;
    int channels_;
    const TapBlock<kTaps>* row_taps_;
    int64_t blocks_, piece_;  // of a strip, and those that are made together
    int64_t pitch_;
    TapBlock<kTaps>* taps_;
    F32* columns_;
    float* rows_;
    int64_t bottom_, made_, oldest_;  // rows made of the tile so far, and the oldest that is still needed
    int64_t source_[kSlots];
};

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
