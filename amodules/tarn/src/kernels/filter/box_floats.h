// For box.cpp only: means of floats, summed in double by van Herk's scheme for minima (columns.h), which serves sums as well: a
// mask is the end of one block and the beginning of the next, and both are summed on from element to element. Nothing is
// taken back, so there is no drift, and what is not a number stays in its masks.
//
// Down the columns row by row; of high masks only the sums that every kChunk rows end with are kept, and the others are made
// again from there. Along the rows with the rows side by side (lanes.h), and by plain sums of a few pixels.
#pragma once

#include "kernels/filter/lanes.h"
#include "kernels/filter/window.h"
#include "kernels/plane/scratch.h"
#include "kernels/plane/strips.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// ---- Down the columns ---------------------------------------------------------------------------------------------

constexpr int64_t kChunk = 16;  // rows

// A vector of doubles from floats.
inline F64 widened(const Loose<float>* p) {
    typedef float Half __attribute__((vector_size(kVector / 2)));
    return __builtin_convertvector(load<Half>(p), F64);
}

// Two vectors of doubles at a time: f(i) for each of n / kStep vectors, g(i) for the elements that are left.
template <class F, class G>
[[gnu::always_inline]] inline void each_double(int64_t n, F f, G g) {
    constexpr int64_t kStep = kLanes<double>;
    int64_t i = 0;
    for (; i + 2 * kStep <= n; i += 2 * kStep) {
        f(i);
        f(i + kStep);
    }
    for (; i < n; ++i) g(i);
}

// out := s + sums, or s alone. sums may be out.
[[maybe_unused, gnu::noinline]] void add_floats(const uint8_t* s, const double* sums, double* out, int64_t n) {
    const Loose<float>* p = reinterpret_cast<const Loose<float>*>(s);
    if (sums)
        each_double(
            n, [=](int64_t i) { store(out + i, widened(p + i) + load<F64>(sums + i)); },
            [=](int64_t i) { out[i] = double(float(p[i])) + sums[i]; });
    else
        each_double(
            n, [=](int64_t i) { store(out + i, widened(p + i)); }, [=](int64_t i) { out[i] = double(float(p[i])); });
}
// sums := s + sums, and out := end + sums.
[[maybe_unused, gnu::noinline]] void add_floats_to_end(const uint8_t* s, double* sums, const double* end, double* out,
                                                       int64_t n) {
    const Loose<float>* p = reinterpret_cast<const Loose<float>*>(s);
    each_double(
        n,
        [=](int64_t i) {
            const F64 sum = widened(p + i) + load<F64>(sums + i);
            store(sums + i, sum);
            store(out + i, load<F64>(end + i) + sum);
        },
        [=](int64_t i) {
            sums[i] = double(float(p[i])) + sums[i];
            out[i] = end[i] + sums[i];
        });
}

// Sums of `rows` rows each from row y of s on, y = 0, 1, 2 ... in turn.
struct ColumnSums {
    const uint8_t* s;
    int64_t stride, rows, n;
    double *ends, *marks, *beginning;  // kChunk rows, a row for each chunk of the mask, a row; `pitch` apart
    int64_t pitch;

    // The rows of chunk k of the block at y, from the last to `first`, summed up to each; at(i) is where for row i.
    template <class At>
    void sum_chunk(int64_t y, int64_t k, At at) const {
        const int64_t first = k * kChunk, last = min(first + kChunk, rows) - 1;
        const double* sums = last + 1 < rows ? marks + (k + 1) * pitch : nullptr;
        for (int64_t i = last; i >= first; --i) {
            add_floats(s + (y + i) * stride, sums, at(i), n);
            sums = at(i);
        }
    }
    void row(int64_t y, double* out) const {
        const int64_t j = y % rows, block = y - j;
        if (j == 0)
            for (int64_t k = (rows - 1) / kChunk; k > 0; --k)
                sum_chunk(block, k, [=, this](int64_t) { return marks + k * pitch; });
        if (j % kChunk == 0) sum_chunk(block, j / kChunk, [=, this](int64_t i) { return ends + i % kChunk * pitch; });
        const double* end = ends + j % kChunk * pitch;
        const uint8_t* enters = s + (y + rows - 1) * stride;
        if (j == 0) {
            memcpy(out, end, size_t(n) * sizeof(double));
            for (int64_t i = 0; i < n; ++i) beginning[i] = -0.0;  // what adds nothing
        } else {
            add_floats_to_end(enters, beginning, end, out, n);
        }
    }
};

// ---- Along the rows -----------------------------------------------------------------------------------------------

constexpr int64_t kFewColumns = 7;

// d := the means of a few columns each.
template <bool kKept, int kColumns>
[[gnu::noinline]] void mean_few(const double* sums, double scale, uint8_t* d, int64_t n, int64_t columns,
                                int64_t channels) {
    constexpr int64_t kStep = kLanes<double>;
    if constexpr (kColumns) columns = kColumns;
    const Bytes mask = colour_mask<float>();
    const F64 by = splat(scale);
    each_vector(n * 4, [=](auto io, int64_t at) {
        const double* p = sums + at / 4;
        F64 lower = load<F64>(p), upper = load<F64>(p + kStep);
        for (int64_t i = 1; i < columns; ++i) {
            lower += load<F64>(p + i * channels);
            upper += load<F64>(p + i * channels + kStep);
        }
        store_form<kKept>(io, d + at, settle_nan(narrow(lower * by, upper * by)), mask);
    });
}

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

// Means of kSets vectors of rows; `ends` holds a block of their columns.
template <bool kKept, int kChannels, int kSets>
[[gnu::noinline]] void mean_blocks(const Lanes<double> (&lanes)[kSets], const double* columns, int64_t block,
                                   double scale, F64* ends, uint8_t* dst) {
    Bytes v[2];
    for (int64_t i = 0; i < block; i += 2)
        for (int s = 0; s < kSets; ++s) {
            load_columns(lanes[s], columns + i, v);
            store(ends + i * kSets + s, v[0]);
            store(ends + (i + 1) * kSets + s, v[1]);  // there is room for one more
        }
    sum_ends<kChannels, kSets>(ends, block);
    F64 sums[kChannels][kSets];
    for (auto& c : sums)
        for (F64& sum : c) sum = splat(-0.0);
    const F64 by = splat(scale);
    const int64_t width = lanes[0].width;
    F64* end = ends;
    for (int64_t x = 0; x < width; x += 4) {
        Bytes means[kSets][4];
#pragma GCC unroll 2
        for (int half = 0; half < 2; ++half) {
            Bytes enters[kSets][2];
            for (int s = 0; s < kSets; ++s) load_columns(lanes[s], columns + block + x + 2 * half, enters[s]);
#pragma GCC unroll 2
            for (int k = 0; k < 2; ++k) {
                for (int s = 0; s < kSets; ++s) {
                    const F64 sum = sums[0][s];
                    means[s][2 * half + k] = (Bytes)((load<F64>(end + s) + sum) * by);
                    store(end + s, enters[s][k]);
                    for (int c = 0; c < kChannels - 1; ++c) sums[c][s] = sums[c + 1][s];
                    sums[kChannels - 1][s] = (F64)enters[s][k] + sum;
                }
                end += kSets;
                if (end == ends + block * kSets) {
                    sum_ends<kChannels, kSets>(ends, block);
                    for (auto& c : sums)
                        for (F64& sum : c) sum = splat(-0.0);
                    end = ends;
                }
            }
        }
        for (int s = 0; s < kSets; ++s) {
            Bytes out[2], *m = means[s];
            Bytes first[2] = {m[0], m[1]}, second[2] = {m[2], m[3]};
            transpose_groups<double>(first);
            transpose_groups<double>(second);
            for (int j = 0; j < 2; ++j) out[j] = (Bytes)settle_nan(narrow_groups((F64)first[j], (F64)second[j]));
            if (x + 4 <= width)
                store_results<float, kKept>(lanes[s], dst + x * 4, out);
            else
                store_results<float, kKept>(lanes[s], dst + x * 4, out, width - x);
        }
    }
}

constexpr int64_t kFloatsKept = 128 << 10;  // doubles; narrower strips cost more than they save

template <bool kKept, int kChannels>
Status box_floats(const Window& w, const Allocator& allocator) {
    constexpr int kSets = kChannels == 1 ? 2 : 1;
    constexpr int64_t kRows = kSets * kLanes<double>;
    const bool few = w.columns <= kFewColumns;
    const int64_t chunk = min(w.rows, kChunk), marks = (w.rows - 1) / kChunk + 1, results = few ? 1 : kRows;
    const int64_t kept_rows = chunk + marks + 1 + results;
    // A strip ends where a block of columns does, so that sums do not depend on it.
    const int64_t unit = few ? 192 : w.reach + kChannels;
    const int64_t strip =
        strip_width(w.width, max(kFloatsKept / kept_rows - w.reach, w.reach + unit) / unit * unit, unit);
    const int64_t pitch = (min(strip, w.width) + 2 * w.reach + 64) / 8 * 8;
    const double scale = 1.0 / (double(w.columns) * double(w.rows));
    Scratch scratch(allocator);
    double* rows = nullptr;
    F64* ends = nullptr;
    if (!scratch.carve(
            [&](auto part) { part(rows, kept_rows * pitch), part(ends, (w.reach + kChannels + 1) * kSets); }))
        return kNoMemory;
    double* kept_sums = rows + results * pitch;
    for (int64_t x = 0; x < w.width; x += strip) {
        const int64_t width = min(strip, w.width - x);
        const ColumnSums columns{w.src + x * 4,
                                 w.src_stride,
                                 w.rows,
                                 width + w.reach,
                                 kept_sums,
                                 kept_sums + chunk * pitch,
                                 kept_sums + (chunk + marks) * pitch,
                                 pitch};
        for (int64_t y = 0; y < w.height; y += kRows) {
            const int64_t count = min(kRows, w.height - y);
            uint8_t* d = w.dst + y * w.dst_stride + x * 4;
            for (int64_t j = 0; j < count; ++j) {
                double* sums = rows + (few ? 0 : j) * pitch;
                columns.row(y + j, sums);
                if (!few) continue;
                if (w.columns == 3)
                    mean_few<kKept, 3>(sums, scale, d + j * w.dst_stride, width, 3, kChannels);
                else
                    mean_few<kKept, 0>(sums, scale, d + j * w.dst_stride, width, w.columns, kChannels);
            }
            if (few) continue;
            Lanes<double> lanes[kSets];
            for (int s = 0; s < kSets; ++s) {
                // Of fewer rows the first ones once more.
                const int64_t first = min(int64_t(s) * kLanes<double>, count - 1);
                lanes[s] = lanes_of<float, double>(min(count - first, int64_t(kLanes<double>)), 1, width, kChannels,
                                                   pitch, w.dst_stride);
                for (auto& lane : lanes[s].from)
                    for (int64_t& from : lane) from += first * pitch * 8;
                for (auto& lane : lanes[s].to)
                    for (int64_t& to : lane) to += first * w.dst_stride;
            }
            mean_blocks<kKept, kChannels, kSets>(lanes, rows, w.reach + kChannels, scale, ends, d);
        }
    }
    return kOk;
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
