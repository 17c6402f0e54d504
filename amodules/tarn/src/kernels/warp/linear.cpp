// Linear warp. Pairs of 8-bit neighbours are weighed in integers, by fractions of 14 bits (an error of less than 1/64),
// everything else in floats, by fractions of 24 bits.
#include "kernels/warp/scale.h"

namespace tarn::k::TARN_LEVEL {
namespace {

template <int kElement>
inline F32 repeat(F32 v) {
    return (F32)repeat32<kElement>((Bytes)v);
}

// The weights of two floats, times a scale. Floats of weight 0 are left out: they may be NaN or infinite.
template <class T>
struct Weights {
    F32 first, second;
    Bytes whole = {};

    static Weights of(U32 fraction, float scale) {
        const F32 second = to_floats((S32)(fraction >> 8)) * splat(0x1p-24f * scale);
        Weights w{splat(scale) - second, second};
        if constexpr (sizeof(T) == 4) w.whole = (Bytes)(second == 0);
        return w;
    }
    template <int kElement>
    Weights one() const {
        Weights w{repeat<kElement>(first), repeat<kElement>(second)};
        if constexpr (sizeof(T) == 4) w.whole = repeat32<kElement>(whole);
        return w;
    }
    F32 blend(F32 a, F32 b) const {
        const F32 v = a * first + b * second;
        return sizeof(T) == 4 ? select(whole, a, v) : v;
    }
};

constexpr int kBits = 14;

// The weights of two neighbours of 8 bits, in the halves of 32 bits.
struct PairWeights {
    S16 pair;

    static PairWeights of(U32 fraction) {
        const U32 second = fraction >> (32 - kBits);
        return {(S16)((second << 16) - second + splat(uint32_t(1) << kBits))};
    }
    template <int kElement>
    PairWeights one() const {
        return {(S16)repeat32<kElement>((Bytes)pair)};
    }
    F32 blend(S16 neighbours) const { return to_floats(mul_add_pairs(neighbours, pair)); }
};

template <class T, Form kForm>
struct Linear {
    static constexpr bool kKept = kept(kForm), kSettled = sizeof(T) == 4;
    static constexpr int kPixel = int(kPixelBytes<T, kForm>), kTaps = 2, kBeyond = kForm == Form::c3 ? 1 : 0;
    static constexpr double kBiasX = sizeof(T) == 1 ? 0x1p-15 : 0x1p-25, kBiasY = 0x1p-25;
    static constexpr bool kFractions = true;
    static constexpr float kScale = sizeof(T) == 1 ? 1.0f / (1 << kBits) : 1.0f;

    F32 pixels(const uint8_t* upper, int64_t stride, const int32_t* at, U32 x, U32 y) const {
        const uint8_t* lower = upper + stride;
        const auto down = Weights<T>::of(y, kScale);
        if constexpr (sizeof(T) == 1) {
            const auto across = PairWeights::of(x);
            return down.blend(across.blend(load_pairs(upper, at)), across.blend(load_pairs(lower, at)));
        } else {
            const auto across = Weights<T>::of(x, 1);
            F32 a, b, c, d;
            load_neighbours<T>(upper, at, a, b), load_neighbours<T>(lower, at, c, d);
            return down.blend(across.blend(a, b), across.blend(c, d));
        }
    }

    void pixels(const uint8_t* upper, int64_t stride, const int32_t* at, U32 x, U32 y, F32 (&v)[4]) const {
        const uint8_t* lower = upper + stride;
        const auto down = Weights<T>::of(y, kScale);
        if constexpr (sizeof(T) == 1) {
            const auto across = PairWeights::of(x);
            const auto two = [&]<int j>(Phase<j>) {
                S16 a, b, c, d;
                load_neighbours_s16<kPixel>(upper, at + j, a, b), load_neighbours_s16<kPixel>(lower, at + j, c, d);
                const auto left = across.template one<j>(), right = across.template one<j + 1>();
                v[j] = down.template one<j>().blend(left.blend(a), left.blend(c));
                v[j + 1] = down.template one<j + 1>().blend(right.blend(b), right.blend(d));
            };
            two(Phase<0>{}), two(Phase<2>{});
        } else {
            const auto across = Weights<T>::of(x, 1);
            const auto two = [&]<int j>(Phase<j>) {
                F32 a, b, c, d, e, f, g, h;
                load_pixels<T>(upper, at + j, a, e), load_pixels<T>(upper + kPixel, at + j, b, f);
                load_pixels<T>(lower, at + j, c, g), load_pixels<T>(lower + kPixel, at + j, d, h);
                const auto left = across.template one<j>(), right = across.template one<j + 1>();
                v[j] = down.template one<j>().blend(left.blend(a, b), left.blend(c, d));
                v[j + 1] = down.template one<j + 1>().blend(right.blend(e, f), right.blend(g, h));
            };
            two(Phase<0>{}), two(Phase<2>{});
        }
    }

    // As pixels does, a step at a time.
    static constexpr int kPer = kForm == Form::c1 ? 1 : 4;
    using Rows = WeighedRows<kTaps, kPer>;
    struct Down {
        Weights<T> weights;
        static Down of(uint32_t fraction) { return {Weights<T>::of(splat(fraction), kScale)}; }
    };
    void weigh(const uint8_t* p, const int32_t* at, U32 x, F32 (&v)[kPer]) const {
        if constexpr (sizeof(T) == 1) {
            const auto across = PairWeights::of(x);
            const auto two = [&]<int j>(Phase<j>) {
                S16 a, b;
                load_neighbours_s16<kPixel>(p, at + j, a, b);
                v[j] = across.template one<j>().blend(a), v[j + 1] = across.template one<j + 1>().blend(b);
            };
            if constexpr (kPer == 1)
                v[0] = across.blend(load_pairs(p, at));
            else
                two(Phase<0>{}), two(Phase<2>{});
        } else {
            const auto across = Weights<T>::of(x, 1);
            const auto two = [&]<int j>(Phase<j>) {
                F32 a, b, c, d;
                load_pixels<T>(p, at + j, a, c), load_pixels<T>(p + kPixel, at + j, b, d);
                v[j] = across.template one<j>().blend(a, b), v[j + 1] = across.template one<j + 1>().blend(c, d);
            };
            if constexpr (kPer == 1) {
                F32 a, b;
                load_neighbours<T>(p, at, a, b);
                v[0] = across.blend(a, b);
            } else {
                two(Phase<0>{}), two(Phase<2>{});
            }
        }
    }
    template <class Tap>
    F32 down(const Down& d, const Tap& tap) const {
        return d.weights.blend(tap(0), tap(1));
    }

    void run(const uint8_t* base, int64_t stride, Points& points, int64_t from, int64_t to, uint8_t* d) const {
        blend_run<Linear, T, kForm>(*this, base, stride, points, from, to, d);
    }
    void run(Rows& rows, const uint8_t* base, int64_t stride, int64_t number, uint32_t fraction, uint8_t* d) const {
        scaled_run<Linear, T, kForm>(*this, rows, base, stride, number, fraction, d);
    }
};

}  // namespace

TARN_BODIES(warp_linear, Warp, u8_s16_f32, c1_c3_c4_c3x, warp<walk<Linear<T, kForm>>>)

}  // namespace tarn::k::TARN_LEVEL
