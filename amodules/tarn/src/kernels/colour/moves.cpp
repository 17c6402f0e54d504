// Pixels whose elements move, are repeated or left out. Each group of a destination's vector has its elements from
// one or two windows of 16 source bytes, which lie within the block: a load and a look-up each. Without look-up the
// channels are taken apart and put together anew.
#include "kernels/colour/blocks.h"
#include "kernels/colour/colour.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Which element of the source's pixel each of the destination's comes from; -1: none, its bytes are all ones.
struct Grey3 {
    static constexpr int kFrom = 1, kTo = 3, of[] = {0, 0, 0};
};
struct Reverse {
    static constexpr int kFrom = 3, kTo = 3, of[] = {2, 1, 0};
};
struct ThreeFour {
    static constexpr int kFrom = 3, kTo = 4, of[] = {0, 1, 2, -1};
};
struct FourThree {
    static constexpr int kFrom = 4, kTo = 3, of[] = {0, 1, 2};
};

// The windows of a block of kVector / kSize pixels, two for each group, and what is looked up in them.
template <class M, int kSize>
struct Windows {
    static constexpr int kBytes = M::kFrom * int(kVector);
    int64_t from[M::kTo][2][kGroups];
    alignas(64) uint8_t index[M::kTo][2][kVector];
    alignas(64) uint8_t ones[M::kTo][kVector];
    bool two = false;
    constexpr Windows() : from{}, index{}, ones{} {
        for (int i = 0; i < M::kTo; ++i)
            for (int g = 0; g < kGroups; ++g) {
                int first = kBytes, last = 0;
                for (int b = 0; b < 16; ++b)
                    if (const int at = source(i, 16 * g + b); at >= 0) {
                        first = at < first ? at : first;
                        last = at > last ? at : last;
                    }
                const int start = first + 16 <= kBytes ? first : kBytes - 16,
                          end = last >= start + 16 ? last - 15 : start;
                from[i][0][g] = start, from[i][1][g] = end;
                two = two || end != start;
                for (int b = 16 * g; b < 16 * g + 16; ++b) {
                    const int at = source(i, b);
                    index[i][0][b] = at >= start && at < start + 16 ? uint8_t(at - start) : 0x80;
                    index[i][1][b] = at >= start + 16 ? uint8_t(at - end) : 0x80;
                    ones[i][b] = at < 0 ? 0xff : 0;
                }
            }
    }
    // The source byte of byte b of the destination's vector i, or -1.
    static constexpr int source(int i, int b) {
        const int at = i * int(kVector) + b, element = M::of[at / kSize % M::kTo];
        return element < 0 ? -1 : (at / kSize / M::kTo * M::kFrom + element) * kSize + at % kSize;
    }
};

template <class M, class T>
struct Move {
    static constexpr int kIn = 1, kOut = 1;
    static constexpr int64_t kPixels = kLanes<T>, kInBytes = M::kFrom * sizeof(T), kOutBytes = M::kTo * sizeof(T);
    // Vector i of the block at p.
    [[gnu::always_inline]] Bytes vector(const uint8_t* p, int i) const {
        if constexpr (kHasLookup) {
            static constexpr Windows<M, int(sizeof(T))> k;
            Bytes v = lookup(load_groups(p, k.from[i][0]), load<Bytes>(k.index[i][0])) | load<Bytes>(k.ones[i]);
            if constexpr (k.two) v |= lookup(load_groups(p, k.from[i][1]), load<Bytes>(k.index[i][1]));
            return v;
        } else {
            Bytes v[M::kTo];
            apart_and_together(p, v);
            return v[i];
        }
    }
    [[gnu::always_inline]] void apart_and_together(const uint8_t* p, Bytes (&v)[M::kTo]) const {
        Bytes from[M::kFrom];
        load_pixels(p, from);
        if constexpr (M::kFrom > 1) deinterleave_groups<T>(from);
        for (int i = 0; i < M::kTo; ++i) v[i] = M::of[i] < 0 ? ~Bytes{} : from[M::of[i]];
        interleave_groups<T>(v);
    }
    template <class Out>
    [[gnu::always_inline]] void operator()(const From<1>& s, const To<1>& d, Out out) const {
        Bytes v[M::kTo];
        if constexpr (kHasLookup)
            for (int i = 0; i < M::kTo; ++i) v[i] = vector(s.p[0], i);
        else
            apart_and_together(s.p[0], v);
        for (int i = 0; i < M::kTo; ++i) out.vector(d.p[0] + i * kVector, v[i]);
    }
};

// Four such blocks at once, because most vectors need no look-up: exchanged elements come from vectors two elements
// on and two back, the others stay. Only the first vector and the last would reach beyond.
template <class T>
struct Reversed {
    static constexpr int kIn = 1, kOut = 1, kVectors = 12;
    static constexpr int64_t kPixels = 4 * kLanes<T>, kInBytes = 3 * sizeof(T), kOutBytes = kInBytes;
    struct Masks {
        alignas(64) uint8_t of[2][3][kVector];  // where the vector at a phase has the first element, and the second
        constexpr Masks() : of{} {
            for (int at = 0; at < 3 * kVector; ++at)
                if (const int c = at / int(sizeof(T)) % 3; c < 2) of[c][at / kVector][at % kVector] = 0xff;
        }
    };
    static constexpr Masks kMasks{};
    Move<Reverse, T> rest() const { return {}; }
    template <class Out>
    [[gnu::always_inline]] void operator()(const From<1>& s, const To<1>& d, Out out) const {
        const uint8_t* p = s.p[0];
        const Move<Reverse, T> whole;
        Bytes v[kVectors];
        v[0] = whole.vector(p, 0);
        for (int i = 1; i < kVectors - 1; ++i) {
            const auto at = [&](int elements) { return load<Bytes>(p + i * kVector + elements * int(sizeof(T))); };
            const auto mask = [&](int c) { return load<Bytes>(kMasks.of[c][i % 3]); };
            v[i] = blend(mask(0), at(2), blend(mask(1), at(0), at(-2)));
        }
        v[kVectors - 1] = whole.vector(p + (kVectors - 3) * kVector, 2);
        for (int i = 0; i < kVectors; ++i) out.vector(d.p[0] + i * kVector, v[i]);
    }
};

template <class Op>
Status move(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size) {
    if (Status s = check(size, src, dst)) return s;
    return map_pixels(&src, src_stride, &dst, dst_stride, size, Op{});
}

}  // namespace

TARN_BODIES(grey_to_three, Unary, u8_s16_s32, c3, move<Move<Grey3, T>>)
TARN_BODIES(reverse_channels, Unary, u8_s16_s32, c3, move<Reversed<T>>)
TARN_BODIES(three_to_four, Unary, u8, c3, move<Move<ThreeFour, T>>)
TARN_BODIES(four_to_three, Unary, u8, c3, move<Move<FourThree, T>>)

}  // namespace tarn::k::TARN_LEVEL
