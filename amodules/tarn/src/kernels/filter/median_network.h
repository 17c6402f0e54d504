// For kernel sources only: the median under square masks of few odd rows, by networks of minima and maxima over vectors
// of pixels (odd-even merges, Batcher 1968). Each source row is sorted once per pixel across the mask's columns, in
// place: the pixels of the mask's columns are vectors loaded next to each other. Rows are merged in pairs, and pairs of
// pairs in fours, which serve again further down. Two outputs, one above the other, have all rows but one in common: of
// those only the elements that may be the median are kept, sorted, and either output selects from them and from its own
// row. What of a network is not used the compiler leaves out.
#pragma once

#include "kernels/plane/plane.h"

namespace tarn::k::TARN_LEVEL {
namespace {

template <class V>
[[gnu::always_inline]] inline void put_in_order(V& a, V& b) {
    const V lower = min(a, b);
    b = max(a, b);
    a = lower;
}

template <int kCount, class V>
[[gnu::always_inline]] inline void copy(const V* from, V* to) {
#pragma GCC unroll 128
    for (int i = 0; i < kCount; ++i) to[i] = from[i];
}

// Merges a[0], a[kStep], ... (kA of them) and b likewise, both in ascending order, into out.
template <int kA, int kB, int kStep = 1, class V>
[[gnu::always_inline]] inline void merge(const V* a, const V* b, V* out) {
    if constexpr (kA == 0 || kB == 0) {
#pragma GCC unroll 128
        for (int i = 0; i < kA + kB; ++i) out[i] = (kA ? a : b)[i * kStep];
    } else if constexpr (kA == 1 && kB == 1) {
        out[0] = *a, out[1] = *b;
        put_in_order(out[0], out[1]);
    } else {
        constexpr int kEven = (kA + 1) / 2 + (kB + 1) / 2, kOdd = kA / 2 + kB / 2;
        V even[kEven], odd[kOdd];
        merge<(kA + 1) / 2, (kB + 1) / 2, 2 * kStep>(a, b, even);
        merge<kA / 2, kB / 2, 2 * kStep>(a + kStep, b + kStep, odd);
        out[0] = even[0];
#pragma GCC unroll 128
        for (int i = 0; i < kOdd; ++i) {
            out[2 * i + 1] = odd[i];
            if (i + 1 == kEven) break;
            out[2 * i + 2] = even[i + 1];
            put_in_order(out[2 * i + 1], out[2 * i + 2]);
        }
        if constexpr (kEven == kOdd + 2) out[kA + kB - 1] = even[kEven - 1];
    }
}

template <int kCount, class V>
[[gnu::always_inline]] inline void sort(V* v) {
    if constexpr (kCount > 1) {
        constexpr int kHalf = kCount / 2;
        sort<kHalf>(v);
        sort<kCount - kHalf>(v + kHalf);
        V sorted[kCount];
        merge<kHalf, kCount - kHalf>(v, v + kHalf, sorted);
        copy<kCount>(sorted, v);
    }
}

// Merges kMore elements at `more` and kLists lists of a ring, every other one from `at` on.
template <int kLists, int kRing, int kMore, int kCount, class V>
[[gnu::always_inline]] inline void merge_lists(const V (*ring)[kCount], int64_t at, const V* more, V* all) {
    if constexpr (kLists == 0) {
        copy<kMore>(more, all);
    } else if constexpr (kLists == 1 && kMore == 0) {
        copy<kCount>(ring[at], all);
    } else {
        constexpr int kSome = (kLists - 1) * kCount + kMore;
        V some[kSome];
        merge_lists<kLists - 1, kRing, kMore>(ring, at + 2 < kRing ? at + 2 : at + 2 - kRing, more, some);
        merge<kSome, kCount>(some, ring[at], all);
    }
}

// The middle one of kCount + 1 and kCount elements, each in ascending order: at least one of any kCount + 1 that are
// taken from the lower ends is not below it.
template <int kCount, class V>
[[gnu::always_inline]] inline V middle_of(const V* a, const V* b) {
    V middle = a[kCount];
#pragma GCC unroll 128
    for (int i = 0; i < kCount; ++i) middle = min(middle, max(a[i], b[kCount - 1 - i]));
    return middle;
}

// Going down a band the rows are too many for the processor to foresee that each goes on to the right: bytes fetched
// ahead.
constexpr int64_t kAhead = 384;

// One vector's columns, downwards: `rows` outputs at d, whose windows begin at s. pitch: bytes from pixel to pixel.
template <int kSide, class T>
void median_columns(const uint8_t* s, int64_t src_stride, int64_t pitch, uint8_t* d, int64_t dst_stride, int64_t rows) {
    constexpr int kPairs = kSide / 2, kFours = kPairs / 2, kRing = kFours ? 2 * kFours - 1 : 1;
    constexpr bool kOdd = kPairs % 2 != 0;  // the last pair is in none of the fours then
    using V = Vec<T>;
    V even[kPairs][kSide];                // the last rows of even number
    V last[kSide];                        // the last row, an odd one
    V pair[2 * kSide], above[2 * kSide];  // the last pair of an odd row and the one below it, and the pair before
    V fours[kRing][4 * kSide];            // the last fours: each pair is in two of them
    int64_t slot = 0, at = 0;
    const auto read = [&](V * to) __attribute__((always_inline)) {
#pragma GCC unroll 128
        for (int i = 0; i < kSide; ++i) to[i] = load<V>(s + i * pitch);
        sort<kSide>(to);
        __builtin_prefetch(s + kAhead);
        s += src_stride;
    };
    const auto write = [&](V v) __attribute__((always_inline)) {
        store(d, v);
        __builtin_prefetch(d + kAhead, 1);
        d += dst_stride;
    };
    const auto next_pair = [&]() __attribute__((always_inline)) {
        copy<2 * kSide>(pair, above);
        read(even[slot]);
        merge<kSide, kSide>(last, even[slot], pair);
        slot = slot + 1 == kPairs ? 0 : slot + 1;
    };
    const auto next_four = [&]() __attribute__((always_inline)) {
        merge<2 * kSide, 2 * kSide>(above, pair, fours[at]);
        at = at + 1 == kRing ? 0 : at + 1;
    };
    read(even[slot++]);
    read(last);
    for (int i = 1; i < kPairs; ++i) {
        next_pair();
        if (i > 1) next_four();
        read(last);
    }
    slot = 0;
    for (int64_t y = 0; y < rows; y += 2) {
        V first[kSide], common[kPairs * 2 * kSide];
        copy<kSide>(even[slot], first);
        next_pair();
        if constexpr (!kOdd) next_four();
        merge_lists<kFours, kRing, kOdd ? 2 * kSide : 0>(fours, at, pair, common);
        if constexpr (kOdd && kFours > 0) next_four();
        // Those that kSide others may make the median.
        const V* kept = common + (kSide * kSide - 1) / 2 - kSide;
        write(middle_of<kSide>(kept, first));
        if (y + 1 == rows) break;
        read(last);
        write(middle_of<kSide>(kept, last));
    }
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
