// For box.cpp only: means of integers under masks of any size. The sums of a strip's columns are brought from row to row by
// the row that enters and the row that leaves; a band of as many rows as a vector has lanes is then walked along, and the
// lanes' sums are brought from column to column in the same way.
#pragma once

#include "kernels/filter/lanes.h"
#include "kernels/filter/window.h"
#include "kernels/plane/scratch.h"
#include "kernels/plane/strips.h"
#include "kernels/simd/divide.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Sums in progress: elements E of the columns' sums, which begin at kBias for each row, an accumulator, and the means of
// type T, each in the low bits of a lane of E.

// 16 bits altogether.
template <bool kOdd>
struct Sums16 {
    using T = uint8_t;
    using E = uint16_t;
    using Sum = U16;
    static constexpr int kBias = 0;
    static U16 next(U16 sum, Bytes enters, Bytes leaves) { return sum + ((U16)enters - (U16)leaves); }
    Bytes mean(U16 sum) const { return (Bytes)divide(sum); }
    Divide16<kOdd> divide;
};

// Columns in 16 bits, up to 256 rows of bytes -128 to 127; 32 bits along the row.
template <class Divide>
struct Sums16In32 {
    using T = uint8_t;
    using E = int16_t;
    struct Sum {
        S32 lower, upper;
    };
    static constexpr int kBias = -128;
    static Sum next(Sum sum, Bytes enters, Bytes leaves) {
        const S16 change = (S16)splat(uint32_t(0xffff0001));  // 1, -1
        return {sum.lower + mul_add_pairs((S16)interleave_lower16(enters, leaves), change),
                sum.upper + mul_add_pairs((S16)interleave_upper16(enters, leaves), change)};
    }
    Bytes mean(Sum sum) const {
        return (Bytes)(narrow_groups(divide(sum.lower), divide(sum.upper)) + splat(int16_t(128)));
    }
    Divide divide;
};

// 32 bits altogether.
template <class Type, class Divide>
struct Sums32 {
    using T = Type;
    using E = int32_t;
    using Sum = S32;
    static constexpr int kBias = sizeof(T) == 1 ? -128 : 0;
    static S32 next(S32 sum, Bytes enters, Bytes leaves) { return sum + ((S32)enters - (S32)leaves); }
    Bytes mean(S32 sum) const {
        if constexpr (sizeof(T) == 1) return (Bytes)(divide(sum) + splat(128));
        return (Bytes)(divide(sum) & splat(0xffff));
    }
    Divide divide;
};

// The columns' sums of the first row, and of each of the others from those before it.
template <class T, class E>
[[gnu::noinline]] void sum_columns(const uint8_t* s, int64_t stride, int64_t rows, int64_t n, E bias,
                                   E* TARN_RESTRICT sums) {
    for (int64_t i = 0; i < n; ++i) sums[i] = E(bias * rows);
    for (int64_t y = 0; y < rows; ++y) {
        const Loose<T>* row = reinterpret_cast<const Loose<T>*>(s + y * stride);
        for (int64_t i = 0; i < n; ++i) sums[i] = E(sums[i] + row[i]);
    }
}
template <class T, class E>
[[gnu::noinline]] void move_columns(const E* TARN_RESTRICT before, const uint8_t* enters, const uint8_t* leaves,
                                    int64_t n, E* TARN_RESTRICT sums) {
    const Loose<T>*in = reinterpret_cast<const Loose<T>*>(enters), *out = reinterpret_cast<const Loose<T>*>(leaves);
    for (int64_t i = 0; i < n; ++i) sums[i] = E(before[i] + (in[i] - out[i]));
}

// Columns of a band's lanes: room for those under the mask and for as many more before they move to the front.
inline int64_t past_length(int64_t under) { return under + max<int64_t>(under, 256); }

// The sums of the next pixel's channels, and the columns so far, `under` of which are under the mask.
template <class Sums, int kChannels>
struct Walk {
    using E = typename Sums::E;
    static constexpr int kColumns = kGroupLanes<E>;
    Bytes* past;
    int64_t under, next = under;
    typename Sums::Sum sum[kChannels] = {};

    // The columns at p enter: done(k, the sum) for each.
    template <class F>
    [[gnu::always_inline]] void enter(const Lanes<E>& lanes, const E* p, F done) {
        if (next + kColumns > past_length(under)) {
            memcpy(past, past + next - under, size_t(under * kVector));
            next = under;
        }
        Bytes v[kColumns];
        load_columns(lanes, p, v);
#pragma GCC unroll 8
        for (int k = 0; k < kColumns; ++k) {
            store(past + next + k, v[k]);
            const typename Sums::Sum changed = Sums::next(sum[0], v[k], load<Bytes>(past + next + k - under));
            for (int c = 0; c < kChannels - 1; ++c) sum[c] = sum[c + 1];
            done(k, sum[kChannels - 1] = changed);
        }
        next += kColumns;
    }
};

// Means of a band, from the columns' sums: `reach` of them before the first result's last. Zeros stand before the first.
template <bool kKept, int kChannels, class Sums>
[[gnu::noinline]] void mean_lanes(Sums how, const Lanes<typename Sums::E>& lanes, const typename Sums::E* columns,
                                  int64_t reach, Bytes* past, uint8_t* dst) {
    using T = typename Sums::T;
    using E = typename Sums::E;
    constexpr int kColumns = kGroupLanes<E>, kPer = int(sizeof(E) / sizeof(T));
    constexpr int64_t kResults = kColumns * kPer;
    Walk<Sums, kChannels> walk{past, reach + kChannels};
    memset(past, 0, size_t(walk.under * kVector));
    for (int64_t x = reach % kColumns ? reach % kColumns - kColumns : 0; x < reach; x += kColumns)
        walk.enter(lanes, columns + x, [](int, auto) {});
    for (int64_t x = 0; x < lanes.width; x += kResults) {
        Bytes means[kColumns];
#pragma GCC unroll 4
        for (int part = 0; part < kPer; ++part)
            walk.enter(lanes, columns + reach + x + part * kColumns, [&](int k, auto sum) {
                const int i = part * kColumns + k, shift = i % kPer * int(8 * sizeof(T));
                const Vec<E> mean = (Vec<E>)how.mean(sum);
                means[i / kPer] = shift ? means[i / kPer] | (Bytes)(mean << shift) : (Bytes)mean;
            });
        transpose_groups<E>(means);
        uint8_t* d = dst + x * int64_t(sizeof(T));
        if (x + kResults <= lanes.width)
            store_results<T, kKept>(lanes, d, means);
        else
            store_results<T, kKept>(lanes, d, means, lanes.width - x);
    }
}

constexpr int64_t kStripMost = 6144, kStripUnit = 192;  // elements

template <bool kKept, int kChannels, class Sums>
Status box_lanes(const Window& w, const Sums& how, const Allocator& allocator) {
    using T = typename Sums::T;
    using E = typename Sums::E;
    constexpr int64_t kRows = kLanes<E>, kBlock = 16 / sizeof(T);
    const int64_t strip = strip_width(w.width, kStripMost, kStripUnit);
    const int64_t pitch = (kBlock + w.reach + min(strip, w.width) + 2 * kBlock - 1) / kBlock * kBlock;
    Scratch scratch(allocator);
    E* columns = nullptr;
    Bytes* past = nullptr;
    if (!scratch.carve([&](auto part) { part(columns, kRows * pitch), part(past, past_length(w.reach + kChannels)); }))
        return kNoMemory;
    memset(columns, 0, size_t(kRows * pitch) * sizeof(E));
    columns += kBlock;  // zeros before
    for (int64_t x = 0; x < w.width; x += strip) {
        const int64_t width = min(strip, w.width - x), n = width + w.reach;
        const uint8_t* src = w.src + x * int64_t(sizeof(T));
        for (int64_t y = 0; y < w.height; y += kRows) {
            const int64_t count = min(kRows, w.height - y);
            for (int64_t j = 0; j < count; ++j) {
                if (y + j == 0)
                    sum_columns<T>(src, w.src_stride, w.rows, n, E(Sums::kBias), columns);
                else
                    move_columns<T>(columns + (j ? j - 1 : kRows - 1) * pitch,
                                    src + (y + j + w.rows - 1) * w.src_stride, src + (y + j - 1) * w.src_stride, n,
                                    columns + j * pitch);
            }
            const Lanes<E> lanes = lanes_of<T, E>(count, kRows / count, width, kChannels, pitch, w.dst_stride);
            mean_lanes<kKept, kChannels>(how, lanes, columns, w.reach, past,
                                         w.dst + y * w.dst_stride + x * int64_t(sizeof(T)));
        }
    }
    return kOk;
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
