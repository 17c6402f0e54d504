// For kernel sources only: the channels of pixels taken apart and put together, group by group: a group holds whole
// pixels when its 16 bytes in each of three or four vectors are read as one stretch (load_pixels, store_pixels).
#pragma once

#include "kernels/plane/transpose.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Where vectors and their groups are stored: into the cache, and around it.
struct Cached {
    template <class V>
    void vector(uint8_t* p, V v) const {
        store(p, v);
    }
    void groups(uint8_t* base, const int64_t* to, Bytes v) const { store_groups(base, to, v); }
};
struct Streamed {
    template <class V>
    void vector(uint8_t* p, V v) const {
        stream(p, (Bytes)v);
    }
    void groups(uint8_t* base, const int64_t* to, Bytes v) const { stream_groups(base, to, v); }
};

// kCount vectors of pixels, of which group g has the g-th stretch of 16 kCount bytes.
template <int kCount>
[[gnu::always_inline]] inline void load_pixels(const uint8_t* p, Bytes (&v)[kCount]) {
    for (int i = 0; i < kCount; ++i) {
        int64_t from[kGroups];
        for (int g = 0; g < kGroups; ++g) from[g] = 16 * (kCount * g + i);
        v[i] = load_groups(p, from);
    }
}
template <class Out, int kCount>
[[gnu::always_inline]] inline void store_pixels(Out out, uint8_t* p, const Bytes (&v)[kCount]) {
    for (int i = 0; i < kCount; ++i) {
        int64_t to[kGroups];
        for (int g = 0; g < kGroups; ++g) to[g] = 16 * (kCount * g + i);
        out.groups(p, to, v[i]);
    }
}

// Pixels of three elements of type T in three vectors, and the channels they have: in a group of each, an element's
// place tells its channel, of which no two groups have one at the same place. So groups are blended by channel, and
// then the elements of one group put in order.
template <class T>
struct Channels3 {
    alignas(16) uint8_t where[3][16];    // all ones where group 0 has channel c
    alignas(16) uint8_t ordered[3][16];  // the places of channel c's elements among those blended
    alignas(16) uint8_t placed[3][16];   // and back
    constexpr Channels3() : where{}, ordered{}, placed{} {
        constexpr int kSize = int(sizeof(T));
        for (int i = 0; i < 48; ++i) {
            const int c = i / kSize % 3, from = i % 16, to = i / kSize / 3 * kSize + i % kSize;
            if (i < 16) where[c][from] = 0xff;
            ordered[c][to] = uint8_t(from);
            placed[c][from] = uint8_t(to);
        }
    }
    // Where group g has channel c: where group 0 has another.
    Bytes mask(int c, int g) const { return every_group(where[(c + 2 * g * int(16 / sizeof(T))) % 3]); }
};

// Without look-up the elements of all vectors are a row, whose halves are dealt out in turn: i goes to 2 i, modulo one
// less than there are. As many rounds as double 1 to the lanes of a vector bring 3 k + c, and 4 k + c, to lane k of
// vector c.
constexpr int rounds_of(int lanes) { return lanes == 4 ? 2 : 1 + rounds_of(lanes / 2); }

template <class T>
[[gnu::always_inline]] inline void deal_halves(Bytes (&v)[3]) {
    const auto upper = [](Bytes a) { return interleave_upper64(a, a); };
    const Bytes first = interleave_lower<T>(v[0], upper(v[1])), second = interleave_lower<T>(upper(v[0]), v[2]);
    v[2] = interleave_lower<T>(v[1], upper(v[2]));
    v[0] = first, v[1] = second;
}
template <class T>
[[gnu::always_inline]] inline void deal_halves(Bytes (&v)[4]) {
    const Bytes lower02 = interleave_lower<T>(v[0], v[2]), upper02 = interleave_upper<T>(v[0], v[2]);
    const Bytes lower13 = interleave_lower<T>(v[1], v[3]), upper13 = interleave_upper<T>(v[1], v[3]);
    v[0] = lower02, v[1] = upper02, v[2] = lower13, v[3] = upper13;
}
// And back. Of elements below four bytes two pixels are three pairs: those of the first two elements, of the third and
// the next pixel's first, and of its other two.
template <int kBytes>
[[gnu::always_inline]] inline void together(Bytes (&v)[3]) {
    if constexpr (kBytes == 4) {
        for (int i = 0; i < 2; ++i) {  // the elements at even places, then those at odd ones
            const Bytes middle = even32(v[2], (Bytes)((U64)v[0] >> 32)), last = odd32(v[1], v[2]);
            v[0] = even32(v[0], v[1]), v[1] = middle, v[2] = last;
        }
    } else {
        const auto pairs = [&](auto first) {
            using Pairs = decltype(first);
            const Pairs a = (Pairs)v[0], b = (Pairs)v[1], c = (Pairs)v[2];
            v[0] = (Bytes)((a & first) | b << 8 * kBytes);
            v[1] = (Bytes)((c & first) | (a & ~first));
            v[2] = (Bytes)(b >> 8 * kBytes | (c & ~first));
        };
        if constexpr (kBytes == 1)
            pairs(splat(uint16_t(0xff)));
        else
            pairs(splat(uint32_t(0xffff)));
        together<2 * kBytes>(v);
    }
}

// v: in each group pixels one after the other; then a channel each; and back.
template <class T>
[[gnu::always_inline]] inline void deinterleave_groups(Bytes (&v)[3]) {
    if constexpr (kHasLookup) {
        static constexpr Channels3<T> k;
        const auto channel = [&](int i) {
            const Bytes rest = blend(k.mask(i, 1), v[1], v[2]);
            return lookup(blend(k.mask(i, 0), v[0], rest), every_group(k.ordered[i]));
        };
        const Bytes c0 = channel(0), c1 = channel(1), c2 = channel(2);
        v[0] = c0, v[1] = c1, v[2] = c2;
    } else {
        for (int i = 0; i < rounds_of(kLanes<T>); ++i) deal_halves<T>(v);
    }
}
template <class T>
[[gnu::always_inline]] inline void interleave_groups(Bytes (&v)[3]) {
    if constexpr (kHasLookup) {
        static constexpr Channels3<T> k;
        const auto placed = [](Bytes v, int i) { return lookup(v, every_group(k.placed[i])); };
        const Bytes c0 = placed(v[0], 0), c1 = placed(v[1], 1), c2 = placed(v[2], 2);
        const auto pixels = [=](int g) { return blend(k.mask(0, g), c0, blend(k.mask(1, g), c1, c2)); };
        v[0] = pixels(0), v[1] = pixels(1), v[2] = pixels(2);
    } else {
        together<int(sizeof(T))>(v);
    }
}

// Four elements a pixel: channels to pixels by two rounds of pairs; back by elements of 4 bytes, which the same rounds
// transpose, or by as many rounds as for three.
template <class T>
[[gnu::always_inline]] inline void interleave_groups(Bytes (&v)[4]) {
    deal_halves<T>(v);
    deal_halves<T>(v);
}
struct Channels4 {
    alignas(16) uint8_t together[16];  // of each channel the elements that make 4 bytes
    constexpr explicit Channels4(int size) : together{} {
        const int count = 4 / size;
        for (int i = 0; i < 16; ++i) together[i] = uint8_t((i / size % count * 4 + i / 4) * size + i % size);
    }
};
template <class T>
[[gnu::always_inline]] inline void deinterleave_groups(Bytes (&v)[4]) {
    if constexpr (kHasLookup || sizeof(T) == 4) {
        static constexpr Channels4 k(sizeof(T));
        if constexpr (sizeof(T) < 4)
            for (Bytes& each : v) each = lookup(each, every_group(k.together));
        interleave_groups<uint32_t>(v);
    } else {
        for (int i = 0; i < rounds_of(kLanes<T>); ++i) deal_halves<T>(v);
    }
}

// a, b, c: pixels of three bytes one after the other; then a channel each.
template <class V>
[[gnu::always_inline]] inline void deinterleave3(V& a, V& b, V& c) {
    static_assert(sizeof a[0] == 1);
    deal_groups3(a, b, c);
    Bytes v[] = {(Bytes)a, (Bytes)b, (Bytes)c};
    deinterleave_groups<uint8_t>(v);
    a = (V)v[0], b = (V)v[1], c = (V)v[2];
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
