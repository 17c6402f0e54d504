// For box_floats.h only: sums of floats down the columns, in double, eight rows at a time. Each source row is read
// twice at any number of rows: as it enters the mask and as it leaves.
//
// Rows are taken in groups. The mask of a group's row is the group's end from that row on, whole groups, and the
// beginning of another. The end and the beginning are summed on from row to row in registers; the sums of whole groups,
// few as they are, are kept, and summed by van Herk's scheme (columns.h). Nothing is taken back, so there is no drift,
// and what is not a number stays in its masks. The order is that of the groups, the same for every vector width.
#pragma once

#include "kernels/plane/strips.h"
#include "kernels/simd/simd.h"

namespace tarn::k::TARN_LEVEL {
namespace {

constexpr int64_t kBandSums = 8;      // rows of sums made at a time
constexpr int64_t kFewRows = 4;       // of masks whose rows are summed plainly
constexpr int64_t kFetchAhead = 384;  // bytes: the rows are too many for the processor to foresee that each goes on

using Doubles = decltype(load_f64(nullptr));
constexpr Doubles kNothing = -0.0 - Doubles{};  // adds nothing

// f(load, i) for each vector of doubles of n, where load(p) are those from the floats at p.
template <class F>
[[gnu::always_inline]] inline void each_doubles(int64_t n, F f) {
    constexpr int64_t kStep = sizeof(Doubles) / sizeof(double);
    int64_t i = 0;
    for (; i + kStep <= n; i += kStep) f([](const uint8_t* p) { return load_f64(p); }, i);
    if (i < n) f([=](const uint8_t* p) { return load_f64_n(p, n - i); }, i);
}

// Row j of out: the sum of kRows rows from row j on, for j < kCount.
template <int kRows, int kCount>
[[gnu::noinline]] void sum_few_rows(const uint8_t* s, int64_t stride, int64_t n, double* out, int64_t pitch) {
    each_doubles(n, [=](auto load, int64_t i) {
        Doubles rows[kCount + kRows - 1];
#pragma GCC unroll 16
        for (int j = 0; j < kCount + kRows - 1; ++j) {
            rows[j] = load(s + j * stride + i * 4);
            if (j < kRows - 1) continue;
            Doubles sum = rows[j];
#pragma GCC unroll 4
            for (int k = 1; k < kRows; ++k) sum += rows[j - k];
            store(out + (j - kRows + 1) * pitch + i, sum);
        }
    });
}

// out := the sums of `rows` rows.
[[gnu::noinline, maybe_unused]] void sum_rows(const uint8_t* s, int64_t stride, int64_t rows, int64_t n, double* out) {
    each_doubles(n, [=](auto load, int64_t i) {
        Doubles sum = kNothing;
        for (int64_t j = 0; j < rows; ++j) sum += load(s + j * stride + i * 4);
        store(out + i, sum);
    });
}

// Row j: the sum of the rows from j to the last.
[[gnu::noinline, maybe_unused]] void sum_to_last(double* sums, int64_t pitch, int64_t rows, int64_t n) {
    for (int64_t i = 0; i < n; i += int64_t(sizeof(Doubles) / sizeof(double))) {
        Doubles sum = load<Doubles>(sums + (rows - 1) * pitch + i);
        for (int64_t j = rows - 2; j >= 0; --j) store(sums + j * pitch + i, sum += load<Doubles>(sums + j * pitch + i));
    }
}

// A group of rows of sums.
struct GroupOfRows {
    const uint8_t *leaves, *enters;
    int64_t stride;
    int64_t count;   // of the group's rows, those that are wanted
    int64_t last;    // the one with whose entering row a group is complete
    double* begun;   // sums of the incomplete group's rows; those of the next one's come here
    double* end;     // sums of whole groups to the end of their block; those of the group that is complete come here
    double* groups;  // sums of the next block's groups so far
};

// A line's worth of columns at a time: of rows whole pages apart, lines at the same place share one place in the
// first-level cache, which holds fewer of them than a group has rows, and would come again for each of its parts.
template <int kGroup, bool kMiddle, bool kWhole>
[[gnu::noinline]] void sum_group(const GroupOfRows& group, int64_t n, double* out, int64_t pitch) {
    const GroupOfRows g = group;
    constexpr int64_t kStep = sizeof(Doubles) / sizeof(double);
    constexpr int kLine = int(min<int64_t>(16 / kStep, 4));  // as many as there are registers for
    const auto sum_columns = [=]<int kVectors>(auto load, int64_t x) {
        const auto each = [](auto f) {
#pragma GCC unroll 8
            for (int v = 0; v < kVectors; ++v) f(v, v * kStep);
        };
        const auto kept = [x](const double* p, int64_t at) { return TARN_LEVEL::load<Doubles>(p + x + at); };
        Doubles sum[kVectors], begun[kVectors], complete[kVectors] = {};
        each([&](int v, int64_t at) { sum[v] = kMiddle ? kept(g.end, at) + kept(g.groups, at) : kNothing; });
        const uint8_t* leaves = g.leaves + x * 4;
#pragma GCC unroll 8
        for (int j = kGroup - 1; j >= 0; --j)
            each([&](int v, int64_t at) {
                store(out + j * pitch + x + at, sum[v] += load(leaves + j * g.stride + at * 4));
            });
        each([&](int v, int64_t at) { sum[v] = begun[v] = kept(g.begun, at); });
        const uint8_t* enters = g.enters + x * 4;
#pragma GCC unroll 8
        for (int j = 0; j < kGroup; ++j) {
            if (!kWhole && j == g.count) break;
            __builtin_prefetch(enters + j * g.stride + kFetchAhead);
            each([&](int v, int64_t at) {
                const Doubles entering = load(enters + j * g.stride + at * 4);
                sum[v] += entering;
                begun[v] += entering;
                store(out + j * pitch + x + at, kept(out + j * pitch, at) + sum[v]);
            });
            if (j == g.last) each([&](int v, int64_t) { complete[v] = begun[v], begun[v] = kNothing; });
        }
        each([&](int v, int64_t at) {
            store(g.begun + x + at, begun[v]);
            if constexpr (kMiddle) {
                store(g.end + x + at, complete[v]);
                store(g.groups + x + at, kept(g.groups, at) + complete[v]);
            }
        });
    };
    int64_t x = 0;
    for (; x + kLine * kStep <= n; x += kLine * kStep)
        sum_columns.template operator()<kLine>([](const uint8_t* p) { return load_f64(p); }, x);
    each_doubles(n - x, [=](auto load, int64_t i) { sum_columns.template operator()<1>(load, x + i); });
}

// The sums of a strip's columns, for bands of kBandSums rows in turn, and in each for runs of columns.
class ColumnSums {
public:
    // Rows of `pitch` doubles that are kept.
    static int64_t kept_rows(int64_t rows) { return rows <= kFewRows ? 0 : max<int64_t>(whole_groups(rows), 0) + 2; }

    ColumnSums(const uint8_t* s, int64_t stride, int64_t rows, int64_t n, double* kept, int64_t pitch)
        : s_(s),
          stride_(stride),
          rows_(rows),
          pitch_(pitch),
          begun_(kept),
          groups_(kept + pitch),
          ends_(kept + 2 * pitch),
          middle_(rows <= kFewRows ? 0 : max<int64_t>(whole_groups(rows), 0)) {
        if (rows <= kFewRows) return;
        const int64_t group = group_rows(rows), before = (rows - 1) / group * group;
        sum_rows(s + before * stride, stride, (rows - 1) % group, n, begun_);
        for (int64_t k = 0; k < middle_; ++k)
            sum_rows(s + (k + 1) * group * stride, stride, group, n, ends_ + k * pitch);
        if (middle_) begin_block(0, n);
    }

    // Columns x to x + n of `count` rows from row y on, to `out`.
    void band(int64_t y, int64_t count, int64_t x, int64_t n, double* out, int64_t out_pitch) {
        const uint8_t* s = s_ + y * stride_ + x * 4;
        switch (rows_) {
            case 1:
                return few<1>(s, count, n, out, out_pitch);
            case 2:
                return few<2>(s, count, n, out, out_pitch);
            case 3:
                return few<3>(s, count, n, out, out_pitch);
            case 4:
                return few<4>(s, count, n, out, out_pitch);
        }
        if (rows_ <= kBandSums) {
            group<4, false>(s, count, x, n, out, out_pitch);
            if (count > 4) group<4, false>(s + 4 * stride_, count - 4, x, n, out + 4 * out_pitch, out_pitch);
        } else if (middle_ == 0) {
            group<8, false>(s, count, x, n, out, out_pitch);
        } else {
            group<8, true>(s, count, x, n, out, out_pitch);
            if (slot_ + 1 == middle_) begin_block(x, n);
        }
    }
    // The next band.
    void move() {
        if (++slot_ >= middle_) slot_ = 0;
    }

private:
    static int64_t group_rows(int64_t rows) { return rows <= kBandSums ? 4 : 8; }
    static int64_t whole_groups(int64_t rows) { return (rows - 1) / group_rows(rows) - 1; }

    template <int kRows>
    void few(const uint8_t* s, int64_t count, int64_t n, double* out, int64_t pitch) {
        if (count == kBandSums) return sum_few_rows<kRows, kBandSums>(s, stride_, n, out, pitch);
        for (int64_t j = 0; j < count; ++j) sum_few_rows<kRows, 1>(s + j * stride_, stride_, n, out + j * pitch, pitch);
    }
    template <int kGroup, bool kMiddle>
    void group(const uint8_t* s, int64_t count, int64_t x, int64_t n, double* out, int64_t pitch) {
        const GroupOfRows g = {
            s,          s + (rows_ - 1) * stride_,  stride_,    count, kGroup - 1 - (rows_ - 1) % kGroup,
            begun_ + x, ends_ + slot_ * pitch_ + x, groups_ + x};
        if (count >= kGroup)
            sum_group<kGroup, kMiddle, true>(g, n, out, pitch);
        else
            sum_group<kGroup, kMiddle, false>(g, n, out, pitch);
    }
    // The groups of a block are complete: their sums to its end, and none of the next one's.
    void begin_block(int64_t x, int64_t n) {
        sum_to_last(ends_ + x, pitch_, middle_, n);
        for (int64_t i = x; i < x + n; ++i) groups_[i] = -0.0;
    }

    const uint8_t* s_;
    int64_t stride_, rows_, pitch_;
    double *begun_, *groups_, *ends_;
    int64_t middle_, slot_ = 0;  // whole groups of a mask; the place of this band's first in a block
};

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
