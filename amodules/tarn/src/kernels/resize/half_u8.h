// For the 8-bit linear resize only: to exactly half the size, which is the mean of 2 x 2 pixels.
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
inline S16 round_even(U16 v) {
    return (S16)(add_and_carry(v, (1 << (kBits - 1)) - 1, 1 << kBits) >> kBits);
}

// Outputs of one vector: a group of three channels makes four whole pixels.
template <int kChannels>
constexpr int kHalfBytes = kChannels == 3 ? kGroups * 12 : kVector;

// The means of 2 x 2 pixels: kHalfBytes bytes of outputs from kVector * 2 bytes of each row.
template <int kChannels>
inline Bytes half_vector(const uint8_t* upper, const uint8_t* lower) {
    const auto mean = [](Bytes a, Bytes b) {
        const S8 ones = splat(int8_t(1));
        return round_even<2>((U16)(mul_add_pairs(a, ones) + mul_add_pairs(b, ones)));
    };
    if constexpr (kChannels == 3) {
        // A group holds the four source pixels of one window of either kind; the bytes of two neighbours go together.
        static constexpr int64_t kEven[] = {0, 24, 48, 72}, kOdd[] = {12, 36, 60, 84};
        static constexpr int8_t kNeighbours[] = {0, 3, 1, 4, 2, 5, 6, 9, 7, 10, 8, 11, -1, -1, -1, -1};
        static constexpr int8_t kTogether[] = {0, 1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13, -1, -1, -1, -1};
        const auto pairs = [&](const uint8_t* p, const int64_t* from) {
            return lookup(load_groups(p, from), every_group(kNeighbours));
        };
        const S16 even = mean(pairs(upper, kEven), pairs(lower, kEven));
        const S16 odd = mean(pairs(upper, kOdd), pairs(lower, kOdd));
        return join_twelves(lookup((Bytes)narrow_groups_u8(even, odd), every_group(kTogether)));
    } else {
        static constexpr int8_t kNeighbours[] = {0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15};
        const auto pairs = [&](const uint8_t* p) {
            return kChannels == 1 ? load<Bytes>(p) : lookup(load<Bytes>(p), every_group(kNeighbours));
        };
        const S16 first = mean(pairs(upper), pairs(lower));
        const S16 second = mean(pairs(upper + kVector), pairs(lower + kVector));
        return in_order_once((Bytes)narrow_groups_u8(first, second));
    }
}

template <int kChannels, bool kKept>
void half_row(const uint8_t* upper, const uint8_t* lower, int64_t n, uint8_t* dst) {
    int64_t i = 0;
    if constexpr (kHasLookup || kChannels == 1) {
        constexpr int kStep = kHalfBytes<kChannels>;
        const Bytes mask = colour_mask<uint8_t>();
        for (; n - i >= kVector; i += kStep)  // of three channels a store overlaps the next
            store_form_where<kKept>(Whole{}, dst + i, half_vector<kChannels>(upper + 2 * i, lower + 2 * i), mask);
        for (; i < n; i += kStep) {
            const int64_t count = min<int64_t>(kStep, n - i);
            uint8_t above[2 * kVector] = {}, below[2 * kVector] = {};
            memcpy(above, upper + 2 * i, size_t(2 * count));
            memcpy(below, lower + 2 * i, size_t(2 * count));
            store_form_where<kKept>(Part{count}, dst + i, half_vector<kChannels>(above, below), mask);
        }
    } else {
        for (; i < n; ++i) {
            if (kKept && i % 4 == 3) continue;
            const int64_t at = i / kChannels * 2 * kChannels + i % kChannels;
            dst[i] = uint8_t(round_even<2>(upper[at] + upper[at + kChannels] + lower[at] + lower[at + kChannels]));
        }
    }
}

template <Form kForm>
Status half(const Job& j) {
    constexpr int kChannels = channels(kForm);
    for (int64_t y = j.top; y < j.bottom; ++y) {
        const int64_t at = j.region.x * int64_t(kChannels);
        half_row<kChannels, kept(kForm)>(j.src_row<uint8_t>(j.region.y + 2 * y) + at,
                                         j.src_row<uint8_t>(j.region.y + 2 * y + 1) + at,
                                         int64_t(j.dst_size.width) * kChannels, j.dst_row<uint8_t>(y));
    }
    return kOk;
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
