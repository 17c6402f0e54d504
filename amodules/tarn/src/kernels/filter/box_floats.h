// For box.cpp only: means of floats, by sums in double: down the columns of a band (box_columns.h), then along its
// rows, run by run, while a run's sums are in the first-level cache. Along the rows by plain sums of a few pixels, or
// by van Herk's scheme (columns.h) with the rows side by side (lanes.h).
#pragma once

#include "kernels/filter/box_columns.h"
#include "kernels/filter/lanes.h"
#include "kernels/filter/window.h"
#include "kernels/plane/scratch.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// A run's columns, and those before it that are still wanted; rows of a band's sums hold them.
constexpr int64_t kRun = 288, kCarried = 40, kSumsPitch = kCarried + kRun + 16;

// ---- A few columns ------------------------------------------------------------------------------------------------

constexpr int64_t kFewColumns = 7;

// d := the means of kColumns pixels each, or of `columns` where that is 0.
template <bool kKept, int kColumns, int64_t kChannels>
[[gnu::noinline]] void mean_few(const double* sums, double scale, uint8_t* d, int64_t n, int64_t columns) {
    constexpr int64_t kStep = kLanes<double>;
    if constexpr (kColumns) columns = kColumns;
    const Bytes mask = colour_mask<float>();
    const F64 by = splat(scale);
    each_vector(n * 4, [=](auto io, int64_t at) {
        const double* p = sums + at / 4;
        F64 lower = load<F64>(p), upper = load<F64>(p + kStep);
#pragma GCC unroll 8
        for (int64_t i = 1; i < columns; ++i) {
            lower += load<F64>(p + i * kChannels);
            upper += load<F64>(p + i * kChannels + kStep);
        }
        store_form<kKept>(io, d + at, settle_nan(narrow(lower * by, upper * by)), mask);
    });
}

template <bool kKept, int kChannels>
struct FewColumns {
    FewColumns(const Window& w, F64*) : columns(w.columns), reach(w.reach) {}
    static int64_t ends(const Window&) { return 0; }

    void begin(int64_t, int64_t, int64_t all) { width = all, x = 0; }
    // Of the columns up to `ready`, column 0 at sums, makes the means that can be made; `last`: all that are left.
    void take(const double* sums, int64_t ready, bool last, double scale, uint8_t* d, int64_t dst_stride,
              int64_t count) {
        const int64_t until = last ? width : max<int64_t>(ready - reach, 0) / 16 * 16;
        if (until <= x) return;
        for (int64_t j = 0; j < count; ++j) {
            const double* row = sums + j * kSumsPitch + x;
            uint8_t* to = d + j * dst_stride + x * 4;
            if (columns == 3)
                mean_few<kKept, 3, kChannels>(row, scale, to, until - x, 3);
            else if (columns == 7)
                mean_few<kKept, 7, kChannels>(row, scale, to, until - x, 7);
            else
                mean_few<kKept, 0, kChannels>(row, scale, to, until - x, columns);
        }
        x = until;
    }
    int64_t columns, reach, width = 0, x = 0;
};

// ---- More columns -------------------------------------------------------------------------------------------------

// A block's columns, summed from its end.
template <int kChannels, int kSets>
[[gnu::noinline]] void sum_ends(F64* ends, int64_t block) {
    F64 sums[kChannels][kSets];
    F64* p = ends + (block - 1) * kSets;
    for (int c = 0; c < kChannels; ++c, p -= kSets)
        for (int s = 0; s < kSets; ++s) sums[c][s] = load<F64>(p + s);
    for (int64_t i = kChannels; i < block; i += kChannels)
        for (int c = 0; c < kChannels; ++c, p -= kSets)
            for (int s = 0; s < kSets; ++s) store(p + s, sums[c][s] = load<F64>(p + s) + sums[c][s]);
}

// Where the lanes of a band's first rows read, in bytes; [vector][lane of a group][group].
template <int kSets>
struct LaneRows {
    int64_t from[kSets][kGroupLanes<double>][kGroups];
    constexpr LaneRows() : from{} {
        for (int s = 0; s < kSets; ++s)
            for (int i = 0; i < kLanes<double>; ++i)
                from[s][i % 2][i / 2] = (s * kLanes<double> + i) * kSumsPitch * int64_t(sizeof(double));
    }
};

// kSets vectors of rows walked along.
template <bool kKept, int kChannels, int kSets>
struct MeanWalk {
    // A block of columns, as many as the mask has: from column x on sums to the block's end, before it what entered
    // since.
    F64 *ends = nullptr, *past = nullptr, *end = nullptr;  // the last: column x
    int64_t block = 0, entered = 0, x = 0;                 // columns in a block; of the first one, so far; results
    F64 sums[kChannels][kSets] = {};                       // of the columns since, for the next pixel's channels

    static constexpr LaneRows<kSets> kRows{};

    void begin_block() {
        sum_ends<kChannels, kSets>(ends, block);
        for (auto& c : sums)
            for (F64& sum : c) sum = splat(-0.0);
        end = ends;
    }
    // Two columns of the rows, [vector][column].
    [[gnu::always_inline]] static void load_two(const double* columns, Bytes (&v)[kSets][2]) {
#pragma GCC unroll 2
        for (int s = 0; s < kSets; ++s) {
#pragma GCC unroll 2
            for (int j = 0; j < 2; ++j)
                v[s][j] = load_groups(reinterpret_cast<const uint8_t*>(columns), kRows.from[s][j]);
            transpose_groups<double>(v[s]);
        }
    }
    // The first block's columns up to `until`.
    void enter(const double* columns, int64_t until) {
        for (int64_t i = entered; i < until; i += 2) {
            Bytes v[kSets][2];
            load_two(columns + i, v);
            for (int j = 0; j < 2; ++j)  // there is room for one more
                for (int s = 0; s < kSets; ++s) store(ends + (i + j) * kSets + s, v[s][j]);
        }
        entered = until;
        if (until == block) begin_block();
    }
    // Four columns enter, at p, and leave: the means of each row, a group of each of out[vector][lane of a group].
    [[gnu::always_inline]] void move_four(const double* p, F64 by, Bytes (&out)[kSets][2]) {
        F64 means[kSets][4];
#pragma GCC unroll 2
        for (int half = 0; half < 2; ++half) {
            Bytes enters[kSets][2];
            load_two(p + 2 * half, enters);
#pragma GCC unroll 2
            for (int k = 0; k < 2; ++k) {
#pragma GCC unroll 2
                for (int s = 0; s < kSets; ++s) {
                    const F64 sum = sums[0][s];
                    means[s][2 * half + k] = (load<F64>(end + s) + sum) * by;
                    store(end + s, enters[s][k]);
#pragma GCC unroll 4
                    for (int c = 0; c < kChannels - 1; ++c) sums[c][s] = sums[c + 1][s];
                    sums[kChannels - 1][s] = (F64)enters[s][k] + sum;
                }
                end += kSets;
                if (end == past) begin_block();
            }
        }
#pragma GCC unroll 2
        for (int s = 0; s < kSets; ++s) {
            Bytes first[2] = {(Bytes)means[s][0], (Bytes)means[s][1]},
                  second[2] = {(Bytes)means[s][2], (Bytes)means[s][3]};
            transpose_groups<double>(first);
            transpose_groups<double>(second);
#pragma GCC unroll 2
            for (int j = 0; j < 2; ++j) out[s][j] = (Bytes)settle_nan(narrow_groups((F64)first[j], (F64)second[j]));
        }
    }
    [[gnu::noinline]] void take(const Lanes<double> (&lanes)[kSets], const double* columns, int64_t ready, bool last,
                                double scale, uint8_t* dst) {
        if (entered < block) enter(columns, min(block, ready));
        const int64_t width = lanes[0].width, until = (last ? width : ready - block) / 4 * 4;
        const F64 by = splat(scale);
        MeanWalk w = *this;
        const double* p = columns + block;
        for (; w.x < until; w.x += 4) {
            Bytes out[kSets][2];
            w.move_four(p + w.x, by, out);
#pragma GCC unroll 2
            for (int s = 0; s < kSets; ++s) store_results<float, kKept>(lanes[s], dst + w.x * 4, out[s]);
        }
        if (last && w.x < width) {
            Bytes out[kSets][2];
            w.move_four(p + w.x, by, out);
            for (int s = 0; s < kSets; ++s) store_results<float, kKept>(lanes[s], dst + w.x * 4, out[s], width - w.x);
        }
        *this = w;
    }
};

template <bool kKept, int kChannels>
struct ManyColumns {
    static constexpr int kSets = kChannels == 1 && 2 * kLanes<double> <= kBandSums ? 2 : 1;
    static constexpr int kRows = kSets * kLanes<double>, kWalks = kBandSums / kRows;
    using Walk = MeanWalk<kKept, kChannels, kSets>;

    ManyColumns(const Window& w, F64* memory) : block(w.reach + kChannels), ends_memory(memory) {}
    static int64_t ends(const Window& w) { return (w.reach + kChannels + 1) * kSets * kWalks; }

    void begin(int64_t count, int64_t dst_stride, int64_t width) {
        for (int i = 0; i < kWalks; ++i) {
            F64* ends = ends_memory + i * (block + 1) * kSets;
            walks[i] = Walk{ends, ends + block * kSets, ends, block};
            for (int s = 0; s < kSets; ++s) {
                lanes[i][s].width = width;
                for (int lane = 0; lane < kLanes<double>; ++lane) {
                    const int64_t row = i * kRows + s * kLanes<double> + lane;
                    lanes[i][s].to[lane % 2][lane / 2] = row < count ? row * dst_stride : 0;
                }
            }
        }
    }
    void take(const double* sums, int64_t ready, bool last, double scale, uint8_t* d, int64_t, int64_t count) {
        for (int i = 0; i < kWalks && i * kRows < count; ++i)
            walks[i].take(lanes[i], sums + i * kRows * kSumsPitch, ready, last, scale, d);
    }
    int64_t block;
    F64* ends_memory;
    Walk walks[kWalks];
    Lanes<double> lanes[kWalks][kSets];
};

// ---- A region -----------------------------------------------------------------------------------------------------

constexpr int64_t kFloatsKept = 128 << 10;  // doubles; narrower strips cost more than they save

template <template <bool, int> class Along, bool kKept, int kChannels>
Status box_floats_along(const Window& w, const Allocator& allocator) {
    using Means = Along<kKept, kChannels>;
    // A strip ends where a block of columns does, so that sums do not depend on it.
    const int64_t kept_rows = ColumnSums::kept_rows(w.rows), block = w.reach + kChannels;
    const int64_t unit = (192 + block - 1) / block * block;
    const int64_t fit = kFloatsKept / (kept_rows + 1) - w.reach;
    const int64_t strip = strip_width(w.width, max(fit, w.reach + unit) / unit * unit, unit);
    const int64_t pitch = (min(strip, w.width) + w.reach + 15) / 8 * 8;
    const double scale = 1.0 / (double(w.columns) * double(w.rows));
    Scratch scratch(allocator);
    double *kept = nullptr, *sums = nullptr;
    F64* ends = nullptr;
    if (!scratch.carve([&](auto part) {
            part(kept, kept_rows * pitch), part(sums, kBandSums * kSumsPitch), part(ends, Means::ends(w));
        }))
        return kNoMemory;
    Means means(w, ends);
    for (int64_t x = 0; x < w.width; x += strip) {
        const int64_t width = min(strip, w.width - x), n = width + w.reach, most = strip_width(n, kRun, 16);
        ColumnSums columns(w.src + x * 4, w.src_stride, w.rows, n, kept, pitch);
        for (int64_t y = 0; y < w.height; y += kBandSums, columns.move()) {
            const int64_t count = min(kBandSums, w.height - y);
            uint8_t* d = w.dst + y * w.dst_stride + x * 4;
            means.begin(count, w.dst_stride, width);
            for (int64_t i = 0, run; i < n; i += run) {
                run = min(most, n - i);
                columns.band(y, count, i, run, sums + kCarried, kSumsPitch);
                // Rows walked along without need give the first one's means.
                for (int64_t j = count; j < kBandSums; ++j)
                    memcpy(sums + j * kSumsPitch, sums, kSumsPitch * sizeof(double));
                means.take(sums + kCarried - i, i + run, i + run == n, scale, d, w.dst_stride, count);
                if (i + run == n) break;
                for (int64_t j = 0; j < kBandSums; ++j)
                    memcpy(sums + j * kSumsPitch, sums + j * kSumsPitch + run, kCarried * sizeof(double));
            }
        }
    }
    return kOk;
}

template <bool kKept, int kChannels>
Status box_floats(const Window& w, const Allocator& allocator) {
    return w.columns <= kFewColumns ? box_floats_along<FewColumns, kKept, kChannels>(w, allocator)
                                    : box_floats_along<ManyColumns, kKept, kChannels>(w, allocator);
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
