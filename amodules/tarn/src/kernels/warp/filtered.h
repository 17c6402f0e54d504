// For the warp sources only: warps by separable filters of more than two taps. Rows first, then their sums.
//
// 8-bit pixels are weighed along rows in integers: weights of 15 bits, which add up to 1 exactly, times -1, since 1
// would not fit 16 bits. All else is floats: the weights are polynomials of the fraction, so nothing is looked up, and
// no position is rounded to a table's. Sums are taken in one order whatever the vectors' width.
//
// A filter is a type with
//   kTaps                      the pixels on each axis that an output is made of
//   weights(place, scale, w)   their weights, times a power of two
#pragma once

#include "kernels/warp/scale.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// A position t between the two middle taps, 0 <= t < 1. Their weights are t and 1 - t and something small: t in two
// parts, of which the first and its difference from 1 are exact, keeps what is rounded small.
struct Place {
    F32 upper, lower;  // t
    F32 middle, q;     // t - 1/2 to 2^-26; t (1 - t), 0 where the position is whole

    explicit Place(U32 fraction)
        : upper(to_floats((S32)(fraction >> 16)) * splat(0x1p-16f)),
          lower(to_floats((S32)(fraction & splat(0xffffu))) * splat(0x1p-32f)),
          middle(to_floats((S32)(fraction ^ splat(0x80000000u))) * splat(0x1p-32f)),
          q(splat(0.25f) - middle * middle) {}

    // t + v and 1 - t + u, times the scale that v and u have.
    void add(float scale, F32 u, F32 v, F32& left, F32& right) const {
        const F32 t = upper * splat(scale), rest = lower * splat(scale);
        left = (splat(scale) - t) + (u - rest), right = t + (v + rest);
    }
};

// ---- Taps ---------------------------------------------------------------------------------------------------------

// Of four vectors of groups of four: the first, second, ... elements of the groups.
inline void transpose_lower(const Bytes (&v)[4], Bytes& first, Bytes& second) {
    const Bytes a = interleave_lower32(v[0], v[1]), b = interleave_lower32(v[2], v[3]);
    first = interleave_lower64(a, b), second = interleave_upper64(a, b);
}
inline void transpose_upper(const Bytes (&v)[4], Bytes& third, Bytes& fourth) {
    const Bytes a = interleave_upper32(v[0], v[1]), b = interleave_upper32(v[2], v[3]);
    third = interleave_lower64(a, b), fourth = interleave_upper64(a, b);
}
[[gnu::always_inline]] inline void load_each_group(const uint8_t* p, const int32_t* at, Bytes (&v)[4]) {
    for (int j = 0; j < 4; ++j) v[j] = load_groups(p, at + j, 4);
}

// The taps of a vector of pixels of one channel; of 16 bits times 2^16.
template <class T, int kTaps>
[[gnu::always_inline]] inline void load_taps(const uint8_t* p, const int32_t* at, F32 (&t)[kTaps]) {
    Bytes v[4], w[kTaps];
    if constexpr (sizeof(T) == 2) {
        if constexpr (kTaps == 4) {
            const Bytes a = load_halves(p, at, 4), b = load_halves(p, at + 2, 4);
            w[0] = even32(a, b), w[1] = odd32(a, b);
        } else {
            load_each_group(p, at, v);
            transpose_lower(v, w[0], w[1]);
            w[2] = interleave_lower64(interleave_upper32(v[0], v[1]), interleave_upper32(v[2], v[3]));
        }
        for (int i = 0; i < kTaps / 2; ++i) {
            t[2 * i] = to_floats((S32)w[i] << 16);
            t[2 * i + 1] = to_floats((S32)((U32)w[i] & splat(0xffff0000u)));
        }
    } else {
        load_each_group(p, at, v);
        transpose_lower(v, w[0], w[1]), transpose_upper(v, w[2], w[3]);
        if constexpr (kTaps == 6) {
            load_each_group(p + 8, at, v);
            transpose_upper(v, w[4], w[5]);
        }
        for (int i = 0; i < kTaps; ++i) t[i] = (F32)w[i];
    }
}

// Of 8 bits, the first two of four, widened.
inline S16 first_two(Bytes v) {
    if constexpr (kHasLookup) {
        alignas(16) static constexpr uint32_t index[] = {0x80018000, 0x80058004, 0x80098008, 0x800d800c};
        return (S16)lookup(v, every_group(index));
    }
    return (S16)(((U32)v & splat(0xffu)) | ((U32)v << 8 & splat(0xff0000u)));
}

// Of 8-bit pixels of more channels: pairs of neighbours in 16 bits, channel by channel, of pixels 4 g and 4 g + 1.
template <int kPixel, int kPairs>
[[gnu::always_inline]] inline void load_neighbours_s16(const uint8_t* p, const int32_t* at, S16 (&a)[kPairs],
                                                       S16 (&b)[kPairs]) {
    constexpr int kTogether = kHasLookup ? 2 : 0;
    if constexpr (kHasLookup) {
        constexpr uint8_t n = kPixel;
        alignas(16) static constexpr uint8_t lower[] = {0, 128, n,     128, 1, 128, n + 1, 128,
                                                        2, 128, n + 2, 128, 3, 128, n + 3, 128};
        const Bytes v = load_groups(p, at, 4), w = load_groups(p, at + 1, 4), index = every_group(lower);
        const Bytes upper = index + (Bytes)splat(uint16_t(2 * kPixel));
        a[0] = (S16)lookup(v, index), b[0] = (S16)lookup(w, index);
        a[1] = (S16)lookup(v, upper), b[1] = (S16)lookup(w, upper);
    }
    for (int k = kTogether; k < kPairs; ++k) load_neighbours_s16<kPixel>(p + 2 * k * kPixel, at, a[k], b[k]);
}

// ---- Sums along a row ---------------------------------------------------------------------------------------------

// The places of an axis' taps, from the outermost, whose weights are the smallest, to the middle: sums in this order
// lose least.
template <int kTaps>
constexpr int inwards(int i) {
    return i % 2 ? kTaps - 1 - i / 2 : i / 2;
}

// Of floats. kWhole: some positions may be whole, where the taps of weight 0 are left out, for they may be NaN or
// infinite.
template <class Filter, class T, bool kWhole>
struct RowWeights {
    static constexpr int kTaps = Filter::kTaps;
    F32 w[kTaps];
    Bytes whole = {};

    [[gnu::always_inline]] static RowWeights of(U32 fraction) {
        RowWeights r;
        Filter::weights(Place(fraction), 1, r.w);
        if constexpr (kWhole) r.whole = (Bytes)(fraction == 0);
        return r;
    }
    template <int kElement>
    [[gnu::always_inline]] RowWeights one() const {
        RowWeights r;
        for (int k = 0; k < kTaps; ++k) r.w[k] = (F32)repeat32<kElement>((Bytes)w[k]);
        if constexpr (kWhole) r.whole = repeat32<kElement>(whole);
        return r;
    }
    [[gnu::always_inline]] F32 sum(const F32 (&t)[kTaps]) const {
        F32 v = w[0] * t[0];
        for (int i = 1; i < kTaps; ++i) v = v + t[inwards<kTaps>(i)] * w[inwards<kTaps>(i)];
        return kWhole ? select(whole, t[kTaps / 2 - 1], v) : v;
    }
    // One channel; more: of pixels 4 g + j and 4 g + j + 1, with the second's weights.
    [[gnu::always_inline]] F32 row(const uint8_t* p, const int32_t* at) const {
        F32 t[kTaps];
        load_taps<T>(p, at, t);
        return sum(t);
    }
    template <Form kForm>
    [[gnu::always_inline]] void row(const RowWeights& next, const uint8_t* p, const int32_t* at, F32& a, F32& b) const {
        F32 middle[2] = {};
#pragma GCC unroll 6
        for (int i = 0; i < kTaps; ++i) {
            const int k = inwards<kTaps>(i);
            F32 t, u;
            load_pixels<T>(p + k * kPixelBytes<T, kForm>, at, t, u);
            a = i ? a + t * w[k] : t * w[k], b = i ? b + u * next.w[k] : u * next.w[k];
            if (k == kTaps / 2 - 1) middle[0] = t, middle[1] = u;
        }
        if constexpr (kWhole) a = select(whole, middle[0], a), b = select(next.whole, middle[1], b);
    }
};

// Of 8 bits. One channel weighs taps 0 and 2 together, and 1 and 3, as masks and shifts find them; more channels weigh
// neighbours.
template <class Filter>
struct RowWeights<Filter, uint8_t, false> {
    static constexpr int kTaps = Filter::kTaps, kPairs = kTaps / 2;
    S16 pair[kPairs];

    template <bool kOne>
    [[gnu::always_inline]] static RowWeights of(U32 fraction) {
        F32 w[kTaps];
        Filter::weights(Place(fraction), -0x1p15f, w);
        // What rounding leaves goes to a tap whose weight is far from what 16 bits hold.
        constexpr int kRest = kTaps / 2 - 2;
        S32 v[kTaps];
        v[kRest] = splat(-0x8000);
        for (int k = 0; k < kTaps; ++k)
            if (k != kRest) v[k] = nearest_int(w[k]), v[kRest] -= v[k];
        const auto both = [&](int i, int k) { return (S16)((v[i] & splat(0xffff)) | (v[k] << 16)); };
        RowWeights r;
        r.pair[0] = kOne ? both(0, 2) : both(0, 1), r.pair[1] = kOne ? both(1, 3) : both(2, 3);
        if constexpr (kTaps == 6) r.pair[2] = both(4, 5);
        return r;
    }
    template <int kElement>
    [[gnu::always_inline]] RowWeights one() const {
        RowWeights r;
        for (int k = 0; k < kPairs; ++k) r.pair[k] = (S16)repeat32<kElement>((Bytes)pair[k]);
        return r;
    }
    [[gnu::always_inline]] F32 row(const uint8_t* p, const int32_t* at) const {
        U16 four;
        S32 sum{};
        if constexpr (kTaps == 4) {
            four = (U16)load_quarters(p, at);
        } else {
            const Bytes a = load_halves(p, at, 4), b = load_halves(p, at + 2, 4);
            four = (U16)even32(a, b);
            sum = mul_add_pairs(first_two(odd32(a, b)), pair[2]);
        }
        const S16 even = (S16)(four & splat(uint16_t(0xff))), odd = (S16)(four >> 8);
        return to_floats(sum + mul_add_pairs(even, pair[0]) + mul_add_pairs(odd, pair[1]));
    }
    template <Form kForm>
    [[gnu::always_inline]] void row(const RowWeights& next, const uint8_t* p, const int32_t* at, F32& a, F32& b) const {
        S16 x[kPairs], y[kPairs];
        load_neighbours_s16<kPixelBytes<uint8_t, kForm>>(p, at, x, y);
        a = sum(x), b = next.sum(y);
    }

private:
    [[gnu::always_inline]] F32 sum(const S16 (&v)[kPairs]) const {
        S32 sum = mul_add_pairs(v[0], pair[0]);
        for (int k = 1; k < kPairs; ++k) sum += mul_add_pairs(v[k], pair[k]);
        return to_floats(sum);
    }
};

// ---- Pixels -------------------------------------------------------------------------------------------------------

// Bytes of a row that are read from the first tap on.
template <class T, Form kForm, int kTaps>
constexpr int read_bytes() {
    constexpr int kPixel = int(kPixelBytes<T, kForm>);
    if constexpr (kForm == Form::c1)
        return sizeof(T) < 4 ? kTaps == 4 ? kTaps * kPixel : 8 * kPixel : kTaps * kPixel;
    else if constexpr (sizeof(T) == 1)
        return max(16, kTaps == 6 ? 4 * kPixel + 8 : 0);
    else
        return (kTaps - 1) * kPixel + 4 * int(sizeof(T));
}

template <class Filter, class T, Form kForm>
struct Filtered {
    static constexpr bool kKept = kept(kForm), kSettled = sizeof(T) == 4;
    static constexpr bool kOne = kForm == Form::c1;
    static constexpr int kPixel = int(kPixelBytes<T, kForm>), kTaps = Filter::kTaps;
    static constexpr int kBeyond = (read_bytes<T, kForm, kTaps>() + kPixel - 1) / kPixel - kTaps;
    static constexpr double kBiasX = 0, kBiasY = 0;
    static constexpr bool kFractions = true;
    static constexpr float kScale = sizeof(T) == 1 ? -0x1p-15f : sizeof(T) == 2 && kOne ? 0x1p-16f : 1.0f;

    // The weights of rows.
    template <bool kWhole>
    struct DownWeights {
        F32 w[kTaps];
        Bytes whole = {};
        static DownWeights of(U32 fraction) {
            DownWeights d;
            Filter::weights(Place(fraction), kScale, d.w);
            if constexpr (kWhole) d.whole = (Bytes)(fraction == 0);
            return d;
        }
        template <int kElement>
        DownWeights one() const {
            DownWeights d;
            for (int k = 0; k < kTaps; ++k) d.w[k] = (F32)repeat32<kElement>((Bytes)w[k]);
            if constexpr (kWhole) d.whole = repeat32<kElement>(whole);
            return d;
        }
    };
    template <class F>
    static void each_tap(const F& f) {
        f(Phase<0>{}), f(Phase<1>{}), f(Phase<2>{}), f(Phase<3>{});
        if constexpr (kTaps == 6) f(Phase<4>{}), f(Phase<5>{});
    }
    template <bool kWhole>
    static auto across_of(U32 x) {
        if constexpr (sizeof(T) == 1)
            return RowWeights<Filter, T, false>::template of<kOne>(x);
        else
            return RowWeights<Filter, T, kWhole>::of(x);
    }
    // Whether any of floats is whole: they seldom are, and what they need costs every sum a choice.
    static bool any_whole(U32 x, U32 y) { return kSettled && nonzero_bits((U8)((x == 0) | (y == 0))) != 0; }

    template <bool kWhole>
    F32 blended(const uint8_t* p, int64_t stride, const int32_t* at, U32 x, U32 y) const {
        const auto across = across_of<kWhole>(x);
        const auto down = DownWeights<kWhole>::of(y);
        F32 sum{}, middle{};
        const auto add = [&]<int i>(Phase<i>) {
            constexpr int k = inwards<kTaps>(i);
            const F32 v = across.row(p + k * stride, at);
            sum = i ? sum + v * down.w[k] : v * down.w[k];
            if constexpr (k == kTaps / 2 - 1) middle = v;
        };
        each_tap(add);
        return kWhole ? select(down.whole, middle, sum) : sum;
    }
    F32 pixels(const uint8_t* p, int64_t stride, const int32_t* at, U32 x, U32 y) const {
        if (kSettled && any_whole(x, y)) return blended<kSettled>(p, stride, at, x, y);
        return blended<false>(p, stride, at, x, y);
    }

    template <bool kWhole>
    void blended(const uint8_t* p, int64_t stride, const int32_t* at, U32 x, U32 y, F32 (&v)[4]) const {
        const auto across = across_of<kWhole>(x);
        const auto down = DownWeights<kWhole>::of(y);
        const auto two = [&]<int j>(Phase<j>) {
            const auto left = across.template one<j>(), right = across.template one<j + 1>();
            const auto first = down.template one<j>(), second = down.template one<j + 1>();
            F32 middle[2] = {};
            const auto add = [&]<int i>(Phase<i>) {
                constexpr int k = inwards<kTaps>(i);
                F32 a, b;
                left.template row<kForm>(right, p + k * stride, at + j, a, b);
                v[j] = i ? v[j] + a * first.w[k] : a * first.w[k];
                v[j + 1] = i ? v[j + 1] + b * second.w[k] : b * second.w[k];
                if constexpr (k == kTaps / 2 - 1) middle[0] = a, middle[1] = b;
            };
            each_tap(add);
            if constexpr (kWhole)
                v[j] = select(first.whole, middle[0], v[j]), v[j + 1] = select(second.whole, middle[1], v[j + 1]);
        };
        two(Phase<0>{}), two(Phase<2>{});
    }
    void pixels(const uint8_t* p, int64_t stride, const int32_t* at, U32 x, U32 y, F32 (&v)[4]) const {
        if (kSettled && any_whole(x, y)) return blended<kSettled>(p, stride, at, x, y, v);
        blended<false>(p, stride, at, x, y, v);
    }

    // As pixels does, a step at a time.
    static constexpr int kPer = kOne ? 1 : 4;
    using Rows = WeighedRows<kTaps, kPer>;
    // Of a line, which is whole or is not.
    struct Down {
        DownWeights<false> weights;
        bool whole;
        static Down of(uint32_t fraction) {
            return {DownWeights<false>::of(splat(fraction)), kSettled && fraction == 0};
        }
    };
    void weigh(const uint8_t* p, const int32_t* at, U32 x, F32 (&v)[kPer]) const {
        if (kSettled && any_whole(x, x)) return weighed<kSettled>(p, at, x, v);
        weighed<false>(p, at, x, v);
    }
    template <bool kWhole>
    static void weighed(const uint8_t* p, const int32_t* at, U32 x, F32 (&v)[kPer]) {
        const auto across = across_of<kWhole>(x);
        if constexpr (kOne) {
            v[0] = across.row(p, at);
        } else {
            const auto two = [&]<int j>(Phase<j>) {
                across.template one<j>().template row<kForm>(across.template one<j + 1>(), p, at + j, v[j], v[j + 1]);
            };
            two(Phase<0>{}), two(Phase<2>{});
        }
    }
    template <class Tap>
    F32 down(const Down& d, const Tap& tap) const {
        if (d.whole) return tap(kTaps / 2 - 1);
        F32 sum = tap(0) * d.weights.w[0];
        for (int i = 1; i < kTaps; ++i) sum = sum + tap(inwards<kTaps>(i)) * d.weights.w[inwards<kTaps>(i)];
        return sum;
    }

    void run(const uint8_t* base, int64_t stride, Points& points, int64_t from, int64_t to, uint8_t* d) const {
        blend_run<Filtered, T, kForm>(*this, base, stride, points, from, to, d);
    }
    void run(Rows& rows, const uint8_t* base, int64_t stride, int64_t number, uint32_t fraction, uint8_t* d) const {
        scaled_run<Filtered, T, kForm>(*this, rows, base, stride, number, fraction, d);
    }
};

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
