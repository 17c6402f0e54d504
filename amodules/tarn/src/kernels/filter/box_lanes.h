// For box.cpp only: means of integers under masks of any size. The sums of a strip's columns are brought from row to
// row by the row that enters and the row that leaves; a band of as many rows as a vector has lanes is then walked
// along, and the lanes' sums are brought from column to column in the same way. Columns are made for a run at a time,
// so that the lanes are at distances known beforehand.
#pragma once

#include "kernels/filter/lanes.h"
#include "kernels/filter/window.h"
#include "kernels/plane/scratch.h"
#include "kernels/plane/strips.h"
#include "kernels/simd/divide.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Sums in progress: elements E of the columns' sums, which begin at kBias for each row, an accumulator, and the means
// of type T, each in the low bits of a lane of E.

// 16 bits altogether.
template <bool kOdd>
struct Sums16 {
    using T = uint8_t;
    using E = uint16_t;
    using Sum = U16;
    static constexpr int kBias = 0;
    U16 first() const { return U16{}; }
    U16 next(U16 sum, Bytes enters, Bytes leaves) const { return sum + ((U16)enters - (U16)leaves); }
    Bytes mean(U16 sum) const { return (Bytes)divide(sum); }
    Divide16<kOdd> divide;
};

// 16 bits for sums that take more: modulo 2^16, and beside them the sum of the columns' upper bits, which tells the
// quotient but for one; the rest of the other sum tells which.
template <bool kOdd>
struct Sums16Twice {
    using T = uint8_t;
    using E = uint16_t;
    struct Sum {
        U16 sum, upper;
    };
    static constexpr int kBias = 0;

    // False where no number of upper bits is enough for the quotient and few enough for the sum.
    bool fit(int64_t columns, int64_t rows) {
        const int64_t n = columns * rows, half = n / 2;
        if (rows > 257 || n > 16383) return false;  // twice n is a signed rest
        for (shift = 0; shift < 8; ++shift) {
            const int64_t one = int64_t(65536) << shift, scale = one / n, begin = (half - 1) >> shift;
            if (scale > 65535) return false;
            // What the quotient falls short of (sum + half) / n by, times n: of the scale rounded down, at the largest
            // sum; of what the sums begin with; of the bits that columns lose.
            const int64_t lost = columns * ((1 << shift) - 1) - (begin << shift);
            const int64_t shortfall = (one - scale * n) * 255 * n + half * one + scale * n * lost;
            if (begin + (255 * n >> shift) > 65535 || shortfall >= n * one) continue;
            start = {splat(uint16_t(half)), splat(uint16_t(begin))};
            reciprocal = splat(uint16_t(scale));
            divisor = splat(uint16_t(n));
            most = splat(int16_t(n - n % 2));
            return true;
        }
        return false;
    }
    Sum first() const { return start; }
    Sum next(Sum sum, Bytes enters, Bytes leaves) const {
        return {sum.sum + ((U16)enters - (U16)leaves), sum.upper + (((U16)enters >> shift) - ((U16)leaves >> shift))};
    }
    Bytes mean(Sum sum) const {
        const U16 q = mul_high(sum.upper, reciprocal), rest = sum.sum - q * divisor;
        // A rest of n was halfway: it goes up from an odd quotient only.
        return (Bytes)(q - (U16)((S16)(kOdd ? rest : rest + (q & splat(uint16_t(1)))) > most));
    }
    Sum start = {};
    U16 reciprocal = {}, divisor = {};
    S16 most = {};
    int shift = 0;
};

// Columns in 16 bits, up to 256 rows of bytes -128 to 127; 32 bits along the row. Behind a lane's end anything enters,
// and may wrap around.
template <class Divide>
struct Sums16In32 {
    using T = uint8_t;
    using E = int16_t;
    struct Sum {
        S32 lower, upper;
    };
    static constexpr int kBias = -128;
    Sum first() const { return {S32{}, S32{}}; }
    Sum next(Sum sum, Bytes enters, Bytes leaves) const {
        const S16 change = (S16)splat(uint32_t(0xffff0001));  // 1, -1
        const auto moved = [=](S32 v, Bytes pairs) { return (S32)((U32)v + (U32)mul_add_pairs((S16)pairs, change)); };
        return {moved(sum.lower, interleave_lower16(enters, leaves)),
                moved(sum.upper, interleave_upper16(enters, leaves))};
    }
    Bytes mean(Sum sum) const {
        return (Bytes)((U16)narrow_groups(divide(sum.lower), divide(sum.upper)) + splat(uint16_t(128)));
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
    S32 first() const { return S32{}; }
    // Behind a lane's end anything enters, and may wrap around.
    S32 next(S32 sum, Bytes enters, Bytes leaves) const { return (S32)((U32)sum + ((U32)enters - (U32)leaves)); }
    Bytes mean(S32 sum) const {
        if constexpr (sizeof(T) == 1) return (Bytes)((U32)divide(sum) + splat(128u));
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
// Of as many of T at a and b as a vector has of E: the differences.
template <class T, class E>
inline Vec<E> load_difference(const uint8_t* a, const uint8_t* b) {
    if constexpr (sizeof(T) == 2)
        return TARN_LEVEL::load_difference(reinterpret_cast<const int16_t*>(a), reinterpret_cast<const int16_t*>(b));
    else if constexpr (sizeof(E) == 2)
        return (Vec<E>)(load_s16(a) - load_s16(b));
    else
        return load_s32(a) - load_s32(b);
}
template <class T, class E>
[[gnu::noinline]] void move_columns(const E* before, const uint8_t* enters, const uint8_t* leaves, int64_t n,
                                    E* TARN_RESTRICT sums) {
    constexpr int64_t kStep = kLanes<E>, kElement = sizeof(T);
    const auto move = [=](int64_t i) {
        store(sums + i, load<Vec<E>>(before + i) + load_difference<T, E>(enters + i * kElement, leaves + i * kElement));
    };
    if (n < kStep) {
        const Loose<T>*in = reinterpret_cast<const Loose<T>*>(enters), *out = reinterpret_cast<const Loose<T>*>(leaves);
        for (int64_t i = 0; i < n; ++i) sums[i] = E(before[i] + (in[i] - out[i]));
        return;
    }
#pragma GCC unroll 4
    for (int64_t i = 0; i + kStep <= n; i += kStep) move(i);
    move(n - kStep);
}

// Columns of every lane that are made at a time.
constexpr int64_t kRunColumns = 49152 / kVector, kRunPitch = kRunColumns + 32;

// The columns of a band's lanes: `lead` of them enter before the first result, some of them zeros before the first
// column; the last are kept in a ring. Of the ring's beginning there is a copy behind its end, so that no columns that
// are read together are apart.
template <class Sums, int kChannels>
struct Walk {
    using E = typename Sums::E;
    static constexpr int kColumns = kGroupLanes<E>;
    static int64_t ring_length(int64_t under) { return (under + 2 * kColumns - 1) / kColumns * kColumns; }

    Walk(const Sums& how, int64_t under, Bytes* memory) : ring(memory), length(ring_length(under)) {
        memset(ring, 0, size_t((length + kColumns) * kVector));
        leaves = length - under;
        for (auto& s : sum) s = how.first();
    }
    // The columns at p enter: done(k, the sum) for each.
    template <class F>
    [[gnu::always_inline]] void enter(const Sums& how, const E* p, F done) {
        Bytes v[kColumns];
#pragma GCC unroll 8
        for (int k = 0; k < kColumns; ++k) {
            int64_t from[kGroups];
            for (int g = 0; g < kGroups; ++g) from[g] = (g * kColumns + k) * kRunPitch * int64_t(sizeof(E));
            v[k] = load_groups(reinterpret_cast<const uint8_t*>(p), from);
        }
        transpose_groups<E>(v);
        if (enters == 0)
            for (int k = 0; k < kColumns; ++k) store(ring + length + k, v[k]);
#pragma GCC unroll 8
        for (int k = 0; k < kColumns; ++k) {
            store(ring + enters + k, v[k]);
            const typename Sums::Sum changed = how.next(sum[0], v[k], load<Bytes>(ring + leaves + k));
            for (int c = 0; c < kChannels - 1; ++c) sum[c] = sum[c + 1];
            done(k, sum[kChannels - 1] = changed);
        }
        enters = enters + kColumns == length ? 0 : enters + kColumns;
        leaves = leaves + kColumns >= length ? leaves + kColumns - length : leaves + kColumns;
    }

    Bytes* ring;
    int64_t length, enters = 0, leaves;
    typename Sums::Sum sum[kChannels];  // of the next pixel's channels
};

// Columns [begin, end) enter; the means of those that have `lead` before them.
template <bool kKept, int kChannels, class Sums>
[[gnu::noinline]] void mean_lanes(const Sums& given, const Lanes<typename Sums::E>& lanes,
                                  Walk<Sums, kChannels>& walked, const typename Sums::E* columns, int64_t begin,
                                  int64_t end, int64_t lead, uint8_t* dst) {
    using T = typename Sums::T;
    using E = typename Sums::E;
    constexpr int kColumns = kGroupLanes<E>, kPer = int(sizeof(E) / sizeof(T));
    constexpr int64_t kResults = kColumns * kPer;
    const Sums how = given;
    Walk<Sums, kChannels> walk = walked;
    int64_t i = begin;
    for (; i < min(end, lead); i += kColumns) walk.enter(how, columns + i - begin, [](int, auto) {});
    for (; i < end; i += kResults) {
        Bytes means[kColumns];
#pragma GCC unroll 4
        for (int part = 0; part < kPer; ++part)
            walk.enter(how, columns + i - begin + part * kColumns, [&](int k, auto sum) {
                const int at = part * kColumns + k, shift = at % kPer * int(8 * sizeof(T));
                const Vec<E> mean = (Vec<E>)how.mean(sum);
                means[at / kPer] = shift ? means[at / kPer] | (Bytes)(mean << shift) : (Bytes)mean;
            });
        transpose_groups<E>(means);
        const int64_t x = i - lead;
        uint8_t* d = dst + x * int64_t(sizeof(T));
        if (x + kResults <= lanes.width)
            store_results<T, kKept>(lanes, d, means);
        else
            store_results<T, kKept>(lanes, d, means, lanes.width - x);
    }
    walked = walk;
}

constexpr int64_t kStripMost = 6144, kStripUnit = 192;  // elements

template <bool kKept, int kChannels, class Sums>
Status box_lanes(const Window& w, const Sums& how, const Allocator& allocator) {
    using T = typename Sums::T;
    using E = typename Sums::E;
    using Along = Walk<Sums, kChannels>;
    constexpr int64_t kRows = kLanes<E>, kBlock = 16 / sizeof(T);
    const int64_t strip = strip_width(w.width, kStripMost, kStripUnit), under = w.reach + kChannels;
    const int64_t lead = (w.reach + kBlock - 1) / kBlock * kBlock, zeros = lead - w.reach;
    Scratch scratch(allocator);
    E *made = nullptr, *above = nullptr;
    Bytes* ring = nullptr;
    if (!scratch.carve([&](auto part) {
            part(made, kRows * kRunPitch), part(above, min(strip, w.width) + w.reach);
            part(ring, Along::ring_length(under) + Along::kColumns);
        }))
        return kNoMemory;
    for (int64_t x = 0; x < w.width; x += strip) {
        const int64_t width = min(strip, w.width - x);
        const uint8_t* src = w.src + x * int64_t(sizeof(T));
        uint8_t* dst = w.dst + x * int64_t(sizeof(T));
        sum_columns<T>(src, w.src_stride, w.rows, width + w.reach, E(Sums::kBias), above);
        for (int64_t y = 0; y < w.height; y += kRows) {
            const int64_t count = min(kRows, w.height - y);
            const Lanes<E> lanes = lanes_of<T, E>(count, kRows / count, width, kChannels, w.dst_stride);
            Along walk(how, under, ring);
            const int64_t all = lead + lanes.width;
            for (int64_t begin = 0, end; begin < all; begin = end) {
                end = min(begin + kRunColumns, all);
                // The columns' place in the run, in the lane, and their number.
                const int64_t at = begin ? 0 : zeros, first = begin + at - zeros, n = end - begin - at;
                for (int64_t i = 0; i < kRows; ++i) {
                    E* sums = made + i * kRunPitch;
                    const int64_t row = lanes.row[i], from = lanes.x[i] + first;
                    for (int64_t j = 0; j < at; j += kLanes<E>) store(sums + j, Vec<E>{});
                    if (y + row == 0)
                        memcpy(sums + at, above + from, size_t(n) * sizeof(E));
                    else
                        move_columns<T>(row ? sums - kRunPitch + at : above + from,
                                        src + (y + row + w.rows - 1) * w.src_stride + from * int64_t(sizeof(T)),
                                        src + (y + row - 1) * w.src_stride + from * int64_t(sizeof(T)), n, sums + at);
                }
                if (y + kRows < w.height)
                    memcpy(above + first, made + (kRows - 1) * kRunPitch + at, size_t(n) * sizeof(E));
                mean_lanes<kKept>(how, lanes, walk, made, begin, end, lead, dst + y * w.dst_stride);
            }
        }
    }
    return kOk;
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
