// For the warp sources only: runs of blended pixels. Vectors of pixels at a time: of one channel an element a pixel, of
// more a group of four elements. Four vectors of those hold the pixels in the order in which they are packed: vector j
// holds pixel 4 g + j in group g.
//
// Results are put together in a buffer, of three channels with a fourth, and moved to the destination from there, so
// no loop over vectors has to care for a run's ends.
#pragma once

#include "kernels/plane/move.h"
#include "kernels/plane/pattern.h"
#include "kernels/simd/round.h"
#include "kernels/warp/walk.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// ---- Taps ---------------------------------------------------------------------------------------------------------

inline F32 to_floats(S32 v) { return __builtin_convertvector(v, F32); }

// Of pixels of one channel: two neighbours each.
template <class T>
[[gnu::always_inline]] inline void load_neighbours(const uint8_t* p, const int32_t* at, F32& a, F32& b) {
    if constexpr (sizeof(T) == 2) {
        const S32 v = (S32)load_quarters(p, at);
        a = to_floats(v << 16 >> 16), b = to_floats(v >> 16);
    } else {
        const Bytes v = load_halves(p, at, 4), w = load_halves(p, at + 2, 4);
        a = (F32)even32(v, w), b = (F32)odd32(v, w);
    }
}

// Of more channels: those at at[4 g], and at the next. Up to one element is loaded too much.
template <class T>
[[gnu::always_inline]] inline void load_pixels(const uint8_t* p, const int32_t* at, F32& a, F32& b) {
    if constexpr (sizeof(T) == 2) {
        const Bytes v = load_halves(p, at, 4);
        a = to_floats((S32)interleave_lower16(v, v) >> 16), b = to_floats((S32)interleave_upper16(v, v) >> 16);
    } else {
        a = (F32)load_groups(p, at, 4), b = (F32)load_groups(p, at + 1, 4);
    }
}

// Of 8-bit pixels of kPixel bytes: two neighbours each in 16 bits, channel by channel.
template <int kPixel>
[[gnu::always_inline]] inline void load_neighbours_s16(const uint8_t* p, const int32_t* at, S16& a, S16& b) {
    const Bytes v = load_halves(p, at, 4);
    if constexpr (kHasLookup) {
        constexpr uint8_t n = kPixel;
        alignas(16) static constexpr uint8_t lower[] = {0, 128, n,     128, 1, 128, n + 1, 128,
                                                        2, 128, n + 2, 128, 3, 128, n + 3, 128};
        const Bytes index = every_group(lower);
        a = (S16)lookup(v, index), b = (S16)lookup(v, index | (Bytes)splat(uint16_t(8)));
    } else {
        const Bytes next = (Bytes)((U64)v >> 8 * kPixel);
        a = (S16)interleave_lower8(interleave_lower8(v, next), Bytes{});
        b = (S16)interleave_lower8(interleave_upper8(v, next), Bytes{});
    }
}

// ---- Results ------------------------------------------------------------------------------------------------------

// Four vectors of pixels of four elements, in order.
template <class T>
inline void store_pixels(T* to, const F32 (&v)[4]) {
    uint8_t* bytes = reinterpret_cast<uint8_t*>(to);
    if constexpr (sizeof(T) == 4) {
        constexpr int64_t at[] = {0, 64, 128, 192};
        for (int j = 0; j < 4; ++j) store_groups(bytes + 16 * j, at, (Bytes)settle_nan(v[j]));
    } else {
        const S16 a = narrow_groups(nearest_int(v[0]), nearest_int(v[1]));
        const S16 b = narrow_groups(nearest_int(v[2]), nearest_int(v[3]));
        if constexpr (sizeof(T) == 2) {
            constexpr int64_t at[] = {0, 32, 64, 96};
            store_groups(bytes, at, (Bytes)a), store_groups(bytes + 16, at, (Bytes)b);
        } else {
            store(bytes, narrow_groups_u8(a, b));
        }
    }
}

// Moves n pixels from the buffer to the destination.
template <class T, Form kForm>
inline void move_pixels(uint8_t* d, const T* buffer, int64_t n) {
    constexpr int64_t kPixel = kPixelBytes<T, kForm>;
    const uint8_t* s = reinterpret_cast<const uint8_t*>(buffer);
    if constexpr (kept(kForm)) {
        copy_row_c3x(d, s, n * kPixel, colour_mask<T>());
    } else if constexpr (kForm == Form::c3) {
        constexpr int64_t kFour = 4 * int64_t(sizeof(T));
        for (; n > 1; --n, d += kPixel, s += kFour) memcpy(d, s, kFour);  // the end is overwritten by the next
        memcpy(d, s, kPixel);
    } else {
        memcpy(d, s, size_t(n * kPixel));
    }
}

// ---- Runs ---------------------------------------------------------------------------------------------------------

// Fills a run: make(i) gives the vector of pixels of one channel from place i on, make(i, v) four vectors of pixels of
// more.
template <class T, Form kForm, class Make>
[[gnu::always_inline]] inline void put_run(int64_t from, int64_t to, uint8_t* d, const Make& make) {
    constexpr int kLane = kLanes<float>;
    constexpr bool kOne = kForm == Form::c1;
    alignas(64) T buffer[(kOne ? 1 : 4) * kMostColumns + kVector];
    const int64_t begin = from & -kLane;
    if constexpr (kOne && sizeof(T) < 4) {
        constexpr int kBlock = 4 * kLane;
        for (int64_t i = begin; i < to; i += kBlock) {
            F32 v[4] = {};
#pragma GCC unroll 4
            for (int j = 0; j < 4; ++j)
                if (const int64_t k = i + j * kLane; k < to) v[j] = make(k);
            const Block<T> block = round_to_within32<T>(v[0], v[1], v[2], v[3]);
            for (int j = 0; j < int(sizeof(T)); ++j) store(buffer + (i - begin) + j * kLanes<T>, block.v[j]);
        }
    } else if constexpr (kOne) {
        for (int64_t i = begin; i < to; i += kLane) store(buffer + (i - begin), settle_nan(make(i)));
    } else {
        for (int64_t i = begin; i < to; i += kLane) {
            F32 v[4];
            make(i, v);
            store_pixels(buffer + 4 * (i - begin), v);
        }
    }
    move_pixels<T, kForm>(d, buffer + (kOne ? 1 : 4) * (from - begin), to - from);
}

// With what a Blender makes of its points:
//   pixels(base, stride, at, x, y)      a vector of pixels of one channel
//   pixels(base, stride, at, x, y, v)   four vectors of pixels of more
template <class Blender, class T, Form kForm>
void blend_run(const Blender& blender, const uint8_t* base, int64_t stride, Points& points, int64_t from, int64_t to,
               uint8_t* d) {
    points.close(from, to);
    const int32_t* at = points.at();
    const uint32_t *x = points.x(), *y = points.y();
    put_run<T, kForm>(from, to, d, [=]<class... V>(int64_t i, V&... v) {
        return blender.pixels(base, stride, at + i, load<U32>(x + i), load<U32>(y + i), v...);
    });
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
