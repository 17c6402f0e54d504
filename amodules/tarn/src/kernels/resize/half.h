// For the linear resizes only: to exactly half the size, which is the mean of 2 x 2 pixels. Integers are summed as such
// and rounded once, to the nearest, ties to even; floats are the sums of the general resize, whose weights are all a
// half.
#pragma once

#include "kernels/resize/job.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Drops kBits fraction bits: to the nearest, ties to even.
template <int kBits>
inline int32_t round_even(int32_t v) {
    return (v + (1 << (kBits - 1)) - 1 + (v >> kBits & 1)) >> kBits;
}
template <int kBits>
inline S32 round_even(S32 v) {
    return (v + splat((1 << (kBits - 1)) - 1) + (v >> kBits & splat(1))) >> kBits;
}
// Below 2^15.
template <int kBits>
inline S16 round_even(U16 v) {
    constexpr uint16_t kHalf = 1 << (kBits - 1);
    if constexpr (kHasLookup && !kHasLaneBits)  // halves are rounded up; one less where that gives an odd number
        return mul_fixed15((S16)v, splat(int16_t(1 << (15 - kBits)))) +
               (S16)((v & splat(uint16_t(4 * kHalf - 1))) == splat(kHalf));
    else
        return (S16)(add_and_carry(v, kHalf - 1, 1 << kBits) >> kBits);
}

inline F32 mean(F32 a, F32 b) { return splat(0.5f) * a + splat(0.5f) * b; }

// The elements of the means, as wide as their sums, of vectors whose neighbours go together.
inline S16 means_of_pairs(U8 upper, U8 lower) {
    const S8 ones = splat(int8_t(1));
    return round_even<2>((U16)(mul_add_pairs(upper, ones) + mul_add_pairs(lower, ones)));
}
inline S32 means_of_pairs(S16 upper, S16 lower) {
    const S16 ones = splat(int16_t(1));
    return round_even<2>(mul_add_pairs(upper, ones) + mul_add_pairs(lower, ones));
}
inline Bytes narrowed(S16 a, S16 b) { return (Bytes)narrow_groups_u8(a, b); }
inline Bytes narrowed(S32 a, S32 b) { return (Bytes)narrow_groups(a, b); }

// Moves the elements that go together beside each other: whole pixels of a group.
template <class T, int kChannels>
inline Vec<T> neighbours(Bytes v) {
    static constexpr int8_t k8c3[] = {0, 3, 1, 4, 2, 5, 6, 9, 7, 10, 8, 11, -1, -1, -1, -1};
    static constexpr int8_t k8c4[] = {0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15};
    static constexpr int8_t k16c3[] = {0, 1, 6, 7, 2, 3, 8, 9, 4, 5, 10, 11, -1, -1, -1, -1};
    static constexpr int8_t k16c4[] = {0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15};
    if constexpr (kChannels == 1)
        return (Vec<T>)v;
    else if constexpr (sizeof(T) == 1)
        return (Vec<T>)lookup(v, every_group(kChannels == 3 ? k8c3 : k8c4));
    else
        return (Vec<T>)lookup(v, every_group(kChannels == 3 ? k16c3 : k16c4));
}

// (a + b + c + d) / 4: a mean of means rounded up, less one where it came out too large, or odd at a half. Of pairs
// that differ in their last bit a half has been added.
inline Bytes mean_of_4(U8 a, U8 b, U8 c, U8 d) {
    const U8 ab = average(a, b), cd = average(c, d), mean = average(ab, cd);
    const U8 ab_odd = a ^ b, cd_odd = c ^ d, either = ab_odd | cd_odd, both = ab_odd & cd_odd;
    return mean - ((((ab ^ cd) & (either | mean)) | (both & mean)) & splat(uint8_t(1)));
}

// Without look-up: the means of a vector of pixels of four channels, of two vectors from each row, or of pixels of
// three with what is behind them as a fourth.
template <int kChannels>
inline Bytes means_of_bytes(const uint8_t* upper, const uint8_t* lower) {
    const auto pixels = [](const uint8_t* p, Bytes& even, Bytes& odd) {
        if constexpr (kChannels == 3) {
            static constexpr int32_t kPairs[] = {0, 6, 12, 18};
            const U64 first = (U64)load_halves(p, kPairs, 2), second = (U64)load_halves(p, kPairs + 2, 2);
            even = even32((Bytes)first, (Bytes)second), odd = even32((Bytes)(first >> 24), (Bytes)(second >> 24));
        } else {
            const Bytes first = load<Bytes>(p), second = load<Bytes>(p + kVector);
            even = even32(first, second), odd = odd32(first, second);
        }
    };
    Bytes a, b, c, d;
    pixels(upper, a, b), pixels(lower, c, d);
    return mean_of_4(a, b, c, d);
}
// The same of 16-bit elements, from a vector of each row, widened.
inline S32 means_of_fours(Bytes upper, Bytes lower) {
    const S16 ones = splat(int16_t(1));
    return round_even<2>(mul_add_pairs((S16)interleave_lower16(upper, lower), ones) +
                         mul_add_pairs((S16)interleave_upper16(upper, lower), ones));
}
// Pixels of three such elements, 12 bytes from p on, with what is behind them as a fourth.
inline Bytes load_threes(const uint8_t* p) {
    static constexpr int32_t kPixels[] = {0, 6};
    return load_halves(p, kPixels, 2);
}
// And such pixels, a vector of them, to the first 12 bytes.
template <class T>
inline Bytes joined_threes(Bytes v) {
    const U64 pixels = (U64)v;
    const U64 whole = sizeof(T) == 1 ? (pixels & 0xffffff) | (pixels >> 8 & 0xffffff000000) : pixels & 0xffffffffffff;
    const U64 second = (U64)interleave_upper64((Bytes)whole, (Bytes)whole);
    return interleave_lower64((Bytes)(whole | second << 48), (Bytes)(second >> 16));
}

// Outputs of one vector: a group of three channels makes 12 bytes of whole pixels.
template <int kChannels>
constexpr int kHalfBytes = kChannels == 3 ? kGroups * 12 : kVector;

// The means of 2 x 2 pixels: kHalfBytes bytes of outputs from twice as many of each row. Of three channels a vector
// more is read than that has.
template <class T, int kChannels>
inline Bytes half_vector(const uint8_t* upper, const uint8_t* lower) {
    // Three channels: a group holds the 12 bytes of one window of either kind.
    static constexpr int64_t kEven[] = {0, 24, 48, 72}, kOdd[] = {12, 36, 60, 84};
    static constexpr int64_t kLeft[] = {0, 32, 64, 96}, kRight[] = {16, 48, 80, 112};
    if constexpr (sizeof(T) == 4) {
        const auto across = [](const uint8_t* p) {
            if constexpr (kChannels == 1) {
                const Bytes first = load<Bytes>(p), second = load<Bytes>(p + kVector);
                return mean((F32)even32(first, second), (F32)odd32(first, second));
            } else {
                return mean((F32)load_groups(p, kChannels == 3 ? kEven : kLeft),
                            (F32)load_groups(p, kChannels == 3 ? kOdd : kRight));
            }
        };
        const Bytes v = (Bytes)settle_nan(mean(across(upper), across(lower)));
        return kChannels == 1 ? in_order_once(v) : kChannels == 3 ? join_twelves(v) : v;
    } else if constexpr (!kHasLookup && kChannels > 1 && sizeof(T) == 1) {
        const Bytes means = means_of_bytes<kChannels>(upper, lower);
        return kChannels == 3 ? joined_threes<T>(means) : means;
    } else if constexpr (!kHasLookup && kChannels > 1) {
        const auto means = [&](int64_t from) {
            if constexpr (kChannels == 3)
                return means_of_fours(load_threes(upper + from), load_threes(lower + from));
            else
                return means_of_fours(load<Bytes>(upper + from), load<Bytes>(lower + from));
        };
        if constexpr (kChannels == 3)
            return joined_threes<T>(narrowed(means(0), means(12)));
        else
            return narrowed(means(0), means(kVector));
    } else if constexpr (kChannels == 3) {
        static constexpr int8_t kTogether[] = {0, 1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13, -1, -1, -1, -1};
        const auto means = [&](const int64_t* from) {
            return means_of_pairs(neighbours<T, 3>(load_groups(upper, from)),
                                  neighbours<T, 3>(load_groups(lower, from)));
        };
        return join_twelves(lookup(narrowed(means(kEven), means(kOdd)), every_group(kTogether)));
    } else {
        const auto means = [&](int64_t from) {
            return means_of_pairs(neighbours<T, kChannels>(load<Bytes>(upper + from)),
                                  neighbours<T, kChannels>(load<Bytes>(lower + from)));
        };
        return in_order_once(narrowed(means(0), means(kVector)));
    }
}

// A row of n bytes. Of three channels a store overlaps the next; of others the last vector overlaps the one before.
template <class T, int kChannels, bool kKept>
void half_row(const uint8_t* upper, const uint8_t* lower, int64_t n, uint8_t* dst) {
    constexpr int kStep = kHalfBytes<kChannels>;
    const Bytes mask = colour_mask<T>();
    const auto whole = [=](int64_t i) {
        store_form_where<kKept>(Whole{}, dst + i, half_vector<T, kChannels>(upper + 2 * i, lower + 2 * i), mask);
    };
    int64_t i = 0;
    for (; n - i >= kVector; i += kStep) whole(i);
    if (kChannels != 3 && 0 < i && i < n) return whole(n - kVector);
    for (; i < n; i += kStep) {
        const int64_t count = min<int64_t>(kStep, n - i);
        uint8_t above[2 * kVector] = {}, below[2 * kVector] = {};
        const auto copy = [=](const uint8_t* from, uint8_t* to) {
            if (kChannels == 3) {  // is read again by pieces, which would wait for whole vectors
                memcpy(to, from, size_t(2 * count));
                return;
            }
            const int64_t first = min(2 * count, kVector);
            store(to, load_n<Vec<T>>(from, first));
            store(to + kVector, load_n<Vec<T>>(from + first, 2 * count - first));
        };
        copy(upper + 2 * i, above), copy(lower + 2 * i, below);
        store_form_where<kKept>(Part{count}, dst + i, half_vector<T, kChannels>(above, below), mask);
    }
}

template <class T, Form kForm>
Status half(const Job& j) {
    constexpr int64_t kPixel = kPixelBytes<T, kForm>;
    for (int64_t y = j.top; y < j.bottom; ++y) {
        const int64_t at = j.region.x * kPixel;
        half_row<T, channels(kForm), kept(kForm)>(j.src_row<uint8_t>(j.region.y + 2 * y) + at,
                                                  j.src_row<uint8_t>(j.region.y + 2 * y + 1) + at,
                                                  j.dst_size.width * kPixel, j.dst_row<uint8_t>(y));
    }
    return kOk;
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
