// For the linear resize of 8-bit pixels only: a source row resampled horizontally, to 7 fraction bits; see
// linear_u8.cpp.
#pragma once

#include "kernels/resize/windows.h"

namespace tarn::k::TARN_LEVEL {
namespace {

constexpr int kGroup = 8;  // outputs of a group of windows

// Where the bytes of outputs come from: see the loops.
enum class Fetch { one_window, two_windows, apart, by_pixel };

// What the rows of a strip of columns are made with. A slot is an element, but for three channels of pixels apart,
// whose groups are two pixels and two slots of no meaning: behind them with look-ups, without one behind each.
struct StripTables {
    int64_t pixels, elements, slots;
    int32_t *near, *other;    // per pixel: the nearer of the source pixels a and b, and the other one
    int16_t* pixel_fraction;  // per pixel: how far from the nearer one, in -2^-16, since a half must fit
    int16_t* fraction;  // per slot: the same; of pairs without look-ups from their middle towards the second, in 2^-16
    Fetch fetch;
    Windows windows;  // 16 per group: the nearer and the other of each output
    int32_t* at;      // apart: the first byte of each load
    int64_t whole;    // without look-ups: pixels before those that would be loaded from behind the row
};

// The source bytes of a strip, two of each element; past the end the last again.
template <int kChannels>
struct BytesOfPairs {
    const int32_t *near, *other;
    int64_t last, x = 0;
    int32_t c = 0;
    Group next(int32_t latest) {
        int32_t at[kWindow], first = latest, most = 0;
        for (int i = 0; i < kWindow; i += 2) {
            at[i] = near[x] * kChannels + c;
            at[i + 1] = other[x] * kChannels + c;
            first = min(first, min(at[i], at[i + 1])), most = max(most, max(at[i], at[i + 1]));
            if (c < kChannels - 1)
                ++c;
            else if (x < last)
                c = 0, ++x;
        }
        Group group{first, most - first, {}};
        for (int i = 0; i < kWindow; ++i) group.bytes[i / 8] |= uint64_t(uint8_t(at[i] - first)) << i % 8 * 8;
        return group;
    }
};

// ---- Loops --------------------------------------------------------------------------------------------------------
// Not inlined: constants would be taken out of the loop over rows, and from there to memory.

template <int kChannels>
void resample_by_pixel(const StripTables& t, const uint8_t* s, int16_t* out, int64_t x = 0) {
    const int32_t *near = t.near, *other = t.other;
    const int16_t* fraction = t.pixel_fraction;
    out += x * kChannels;
    for (int64_t n = t.pixels; x < n; ++x) {
        const uint8_t *a = s + int64_t(near[x]) * kChannels, *b = s + int64_t(other[x]) * kChannels;
        const int32_t f = fraction[x];
        for (int c = 0; c < kChannels; ++c) *out++ = int16_t(a[c] * 128 + ((64 * (a[c] - b[c]) * f + 0x4000) >> 15));
    }
}

// The outputs of a vector of slots, of the two bytes of each.
inline U16 between(Bytes pairs, S16 fraction) {
    const S8 difference = (S8)splat(int16_t(-64 * 256 + 64)), start = (S8)splat(int16_t(0x80));  // -128 times
    const S16 more = mul_fixed15(mul_add_pairs(pairs, difference), fraction);
    return (U16)more - (U16)mul_add_pairs(pairs, start);
}

// kPeriod: of the vectors that repeat, whose tables stay in registers; 0 without any.
template <int kPeriod, bool kTwo>
[[gnu::noinline]] void resample_by_windows(const StripTables& t, const uint8_t* s, int16_t* out) {
    const StripTables u = t;  // in registers
    const auto by_tables = [&](int64_t v, int64_t to) {
        for (; v < to; ++v)
            store(out + v * kLanes<int16_t>,
                  between(pick<kTwo>(u.windows, s, v * kGroups), load<S16>(u.fraction + v * kLanes<int16_t>)));
    };
    const int64_t vectors = u.slots / kLanes<int16_t>;
    if constexpr (kPeriod > 0) {
        const Repeats r = u.windows.repeats;
        by_tables(0, r.from);
        const Period<kPeriod, kTwo> period(u.windows);
        S16 fraction[kPeriod];
#pragma GCC unroll 3
        for (int k = 0; k < kPeriod; ++k) fraction[k] = load<S16>(u.fraction + (r.from + k) * kLanes<int16_t>);
        const uint8_t* from = s;
        int16_t* to = out + r.from * kLanes<int16_t>;
        for (int64_t v = r.from; v < r.to; v += kPeriod, from += r.step)
#pragma GCC unroll 3
            for (int k = 0; k < kPeriod; ++k, to += kLanes<int16_t>)
                store(to, between(period.pick(from, k), fraction[k]));
        by_tables(r.to, vectors);
    } else {
        by_tables(0, vectors);
    }
}
template <bool kTwo>
void resample_by_windows(const StripTables& t, const uint8_t* s, int16_t* out) {
    switch (t.windows.repeats.period) {
        case 1:
            return resample_by_windows<1, kTwo>(t, s, out);
        case 3:
            return resample_by_windows<3, kTwo>(t, s, out);
        default:
            return resample_by_windows<0, kTwo>(t, s, out);
    }
}

// One channel: four bytes of each output, of which two are picked; more: eight bytes of each pixel, two to a group.
template <int kChannels>
[[gnu::noinline]] void resample_apart(const StripTables& t, const uint8_t* s, int16_t* out) {
    constexpr int64_t kStored = kChannels == 3 ? kGroup / 4 * 3 : kGroup;  // of a group
    const StripTables u = t;                                               // in registers
    for (int64_t g = 0; g * kGroup < u.slots; g += kGroups) {
        Bytes pairs;
        if constexpr (kChannels == 1) {
            const int32_t* at = u.at + g * kGroup;
            pairs = lookup(load_quarters(s, at), load<Bytes>(u.windows.low + g * kWindow)) |
                    lookup(load_quarters(s, at + kLanes<int32_t>), load<Bytes>(u.windows.high + g * kWindow));
        } else {
            pairs = lookup(load_halves(s, u.at + 2 * g, 2), load<Bytes>(u.windows.low + g * kWindow));
        }
        const U16 v = between(pairs, load<S16>(u.fraction + g * kGroup));
        if constexpr (kChannels == 3)
            store(out + g * kStored, join_twelves((Bytes)v));
        else
            store(out + g * kStored, v);
    }
}

// Without look-ups: of each output, or pixel, a and b side by side, which are taken apart as 16-bit elements. From the
// middle between both the fraction fits a signed factor; 64 times their sum is an integer, so the roundings are the
// same.
template <int kChannels>
[[gnu::noinline]] void resample_pairs(const StripTables& t, const uint8_t* s, int16_t* out) {
    constexpr int kPixels = kChannels == 1 ? kLanes<int16_t> : kLanes<int16_t> / 4;
    const StripTables u = t;  // in registers
    int64_t x = 0;
    for (const int16_t* factors = u.fraction; x + kPixels <= u.whole; x += kPixels, factors += kLanes<int16_t>) {
        S16 a, b;
        if constexpr (kChannels == 1) {
            const U16 pairs = (U16)load_eighths(s, u.at + x);
            a = (S16)(pairs & 0xff), b = (S16)(pairs >> 8);
        } else {
            const Bytes pixels = load_halves(s, u.at + x, 2);
            const Bytes pairs = even32(pixels, (Bytes)((U64)pixels >> 8 * kChannels));
            a = (S16)interleave_lower8(pairs, Bytes{}), b = (S16)interleave_upper8(pairs, Bytes{});
        }
        const S16 v = ((a + b) << 6) + mul_fixed16((b - a) << 7, load<S16>(factors));
        if constexpr (kChannels == 3) {
            for (int i = 0; i < kPixels; ++i) {
                const uint64_t pixel = ((U64)v)[i];
                memcpy(out + (x + i) * 3, &pixel, 8);
            }
        } else {
            store(out + x * kChannels, v);
        }
    }
    resample_by_pixel<kChannels>(t, s, out, x);
}

template <int kChannels>
void resample_row(const StripTables& t, const uint8_t* s, int16_t* out) {
    switch (t.fetch) {
        case Fetch::one_window:
            return resample_by_windows<false>(t, s, out);
        case Fetch::two_windows:
            return resample_by_windows<true>(t, s, out);
        case Fetch::apart:
            if constexpr (kHasLookup)
                return resample_apart<kChannels>(t, s, out);
            else
                return resample_pairs<kChannels>(t, s, out);
        case Fetch::by_pixel:
            return resample_by_pixel<kChannels>(t, s, out);
    }
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
