// Three channels to grey. Integers: 1000 times the sum is an integer, which is summed exactly in 32 bits and divided
// once: bytes by one product with a float, a proven rounding; 16-bit elements by such a product and a correction, the
// rest being exact again.
#include "kernels/colour/blocks.h"
#include "kernels/colour/colour.h"
#include "kernels/plane/channels.h"

namespace tarn::k::TARN_LEVEL {
namespace {

constexpr int kWeights[] = {299, 587, 114};

// The weights of channel pairs, times kTimes, with red first or last.
template <int kRed, int kTimes>
inline S16 weights(int a, int b) {
    const auto of = [](int c) { return c < 3 ? kTimes * kWeights[kRed ? 2 - c : c] : 0; };
    return (S16)splat(int32_t(uint32_t(of(b)) << 16 | uint32_t(of(a))));
}

// Sums of three channels' 16-bit elements, of the groups' lower and upper halves.
struct PairSums {
    S32 lower, upper;
    PairSums(Bytes a, Bytes b, Bytes c, S16 weights_ab, S16 weight_c)
        : lower(mul_add_pairs((S16)interleave_lower16(a, b), weights_ab) +
                mul_add_pairs((S16)interleave_lower16(c, Bytes{}), weight_c)),
          upper(mul_add_pairs((S16)interleave_upper16(a, b), weights_ab) +
                mul_add_pairs((S16)interleave_upper16(c, Bytes{}), weight_c)) {}
};

template <class T, int kRed>
struct Grey;

// 3000 times the sum is below 2^24, so a float has it, and the float next to 1/3000 is near enough to it that where
// the exact quotient is a half, so is the product: the rounding is right for each of the 255001 sums.
template <int kRed>
struct Grey<uint8_t, kRed> {
    static constexpr int kIn = 1, kOut = 1;
    static constexpr int64_t kPixels = kVector, kInBytes = 3, kOutBytes = 1;
    // Four pixels of a group in the first 12 bytes of a window, in the last 12 of the block's last ones.
    struct Index {
        alignas(16) uint8_t pair[2][16], single[2][16];
        constexpr Index() : pair{}, single{} {
            for (int last = 0; last < 2; ++last)
                for (int i = 0; i < 16; ++i) {
                    const int at = 4 * last + i / 4 * 3;
                    pair[last][i] = i % 2 ? 0x80 : uint8_t(at + i % 4 / 2);
                    single[last][i] = i % 4 ? 0x80 : uint8_t(at + 2);
                }
        }
    };
    static constexpr Index kIndex{};
    static S32 divided(S32 sums) { return nearest_int(__builtin_convertvector(sums, F32) * splat(1.0f / 3000)); }
    template <class Out>
    [[gnu::always_inline]] void operator()(const From<1>& s, const To<1>& d, Out out) const {
        if constexpr (!kHasLookup) {
            Bytes v[3];
            load_pixels(s.p[0], v);
            deinterleave_groups<uint8_t>(v);
            const auto half = [](Bytes a, Bytes b, Bytes c) __attribute__((always_inline)) {
                const PairSums sums(a, b, c, weights<kRed, 3>(0, 1), weights<kRed, 3>(2, 3));
                return narrow_groups(divided(sums.lower), divided(sums.upper));
            };
            const auto lower = [](Bytes v) { return interleave_lower8(v, Bytes{}); };
            const auto upper = [](Bytes v) { return interleave_upper8(v, Bytes{}); };
            const S16 ab = half(lower(v[0]), lower(v[1]), lower(v[2]));
            return out.vector(d.p[0], narrow_groups_u8(ab, half(upper(v[0]), upper(v[1]), upper(v[2]))));
        }
        const auto grey = [&](int i) __attribute__((always_inline)) {
            const int last = i == 3;
            int64_t from[kGroups];
            for (int g = 0; g < kGroups; ++g) from[g] = 48 * g + 12 * i - 4 * last;
            const Bytes v = load_groups(s.p[0], from);
            const S32 sums = mul_add_pairs((S16)lookup(v, every_group(kIndex.pair[last])), weights<kRed, 3>(0, 1)) +
                             mul_add_pairs((S16)lookup(v, every_group(kIndex.single[last])), weights<kRed, 3>(2, 3));
            return divided(sums);
        };
        const S16 ab = narrow_groups(grey(0), grey(1)), cd = narrow_groups(grey(2), grey(3));
        out.vector(d.p[0], narrow_groups_u8(ab, cd));
    }
};

// The product with a float gives a quotient whose rest is at most 502 either way: one more or one less is nearest.
// Unsigned elements less 2^15, an even number, are signed ones.
template <class T, int kRed>
struct Grey16 {
    static constexpr int kIn = 1, kOut = 1;
    static constexpr int64_t kPixels = kLanes<T>, kInBytes = 6, kOutBytes = 2;
    // Two pixels of a group, the first 12 bytes of a window, or the last 12 of the block's last ones: the first two
    // elements of both, then the third of both with zeros.
    struct Index {
        alignas(16) uint8_t of[2][16];
        constexpr Index() : of{} {
            for (int last = 0; last < 2; ++last)
                for (int i = 0; i < 16; ++i)
                    of[last][i] = uint8_t(4 * last + (i < 8       ? i / 4 * 6 + i % 4
                                                      : i % 4 < 2 ? (i - 8) / 4 * 6 + 4 + i % 2
                                                                  : 0x80));
        }
    };
    static constexpr Index kIndex{};
    template <class Out>
    [[gnu::always_inline]] void operator()(const From<1>& s, const To<1>& d, Out out) const {
        const Bytes bias = (Bytes)splat(T(-1) > T(0) ? int16_t(-32768) : int16_t(0));
        const S16 all = (S16)interleave_lower64((Bytes)weights<kRed, 1>(0, 1), (Bytes)weights<kRed, 1>(2, 3));
        const auto sums = [&](int i) __attribute__((always_inline)) {
            const int last = i == 3;
            int64_t from[kGroups];
            for (int g = 0; g < kGroups; ++g) from[g] = 48 * g + 12 * i - 4 * last;
            const Bytes v = load_groups(s.p[0], from) ^ bias;
            return (Bytes)mul_add_pairs((S16)lookup(v, every_group(kIndex.of[last])), all);
        };
        S32 of_half[2];
        if constexpr (kHasLookup) {
            for (int i = 0; i < 2; ++i) {
                const Bytes a = sums(2 * i), b = sums(2 * i + 1);
                of_half[i] = (S32)interleave_lower64(a, b) + (S32)interleave_upper64(a, b);
            }
        } else {
            // Two pixels at a time, each with what is behind it as a fourth element; the last with what is before it.
            const Bytes each = interleave_lower32((Bytes)weights<kRed, 1>(0, 1), (Bytes)weights<kRed, 1>(2, 3));
            const Bytes last = interleave_lower64(each, (Bytes)((U64)each << 16));
            const auto two = [&](int i) __attribute__((always_inline)) {
                const int32_t at[] = {12 * i, 12 * i + 6 - 2 * (i == 3)};
                const S16 v = (S16)(load_halves(s.p[0], at, 2) ^ bias);
                return (Bytes)mul_add_pairs(v, (S16)(i == 3 ? last : each));
            };
            for (int i = 0; i < 2; ++i) {
                const Bytes a = two(2 * i), b = two(2 * i + 1);
                of_half[i] = (S32)even32(a, b) + (S32)odd32(a, b);
            }
        }
        S32 quotient[2], rest[2];
        for (int i = 0; i < 2; ++i) {
            const S32 sum = of_half[i];
            quotient[i] = nearest_int(__builtin_convertvector(sum, F32) * splat(0.001f));
            // Of a quotient in 32 bits the upper half is its sign, which is not wanted.
            rest[i] = sum - mul_add_pairs((S16)quotient[i], (S16)splat<int32_t>(1000));
        }
        const S16 q = narrow_groups(quotient[0], quotient[1]), r = narrow_groups(rest[0], rest[1]);
        const S16 odd = q & 1;  // at a half odd ones move on
        out.vector(d.p[0], (q - (S16)(r + odd > 500) + (S16)(r - odd < -500)) ^ (S16)bias);
    }
};
template <int kRed>
struct Grey<int16_t, kRed> : Grey16<int16_t, kRed> {};
template <int kRed>
struct Grey<uint16_t, kRed> : Grey16<uint16_t, kRed> {};

template <int kRed>
struct Grey<float, kRed> {
    static constexpr int kIn = 1, kOut = 1;
    static constexpr int64_t kPixels = kLanes<float>, kInBytes = 12, kOutBytes = 4;
    template <class Out>
    [[gnu::always_inline]] void operator()(const From<1>& s, const To<1>& d, Out out) const {
        Bytes v[3];
        load_pixels(s.p[0], v);
        deinterleave_groups<float>(v);
        const F32 red = (F32)v[kRed], green = (F32)v[1], blue = (F32)v[2 - kRed];
        out.vector(d.p[0], settle_nan((red * splat(0.299f) + green * splat(0.587f)) + blue * splat(0.114f)));
    }
};

template <class T, int kRed>
Status to_grey(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size) {
    if (Status s = check(size, src, dst)) return s;
    return map_pixels(&src, src_stride, &dst, dst_stride, size, Grey<T, kRed>{});
}

}  // namespace

TARN_BODIES(rgb_to_grey, Unary, u8_s16_u16_f32, c3, to_grey<T, 0>)
TARN_BODIES(bgr_to_grey, Unary, u8_s16_u16_f32, c3, to_grey<T, 2>)

}  // namespace tarn::k::TARN_LEVEL
