// For the morphology sources only: rows into passes and out of them.
#pragma once

#include "kernels/morph/pass.h"
#include "kernels/plane/store.h"

namespace tarn::k::TARN_LEVEL {
namespace {

constexpr int64_t kRowsAhead = 2, kStoreAhead = 256;

// n bytes := a pixel, repeated; behind them less than a vector may change.
template <class T>
void repeat_pixel(uint8_t* to, int64_t n, const uint8_t* pixel, int64_t channels) {
    uint8_t* end = to + n;
    T v[4];
    if (channels == 1) {
        memcpy(v, pixel, sizeof(T));
        const auto all = splat(*v);
        for (; to < end; to += kVector) store(to, all);
    } else if (channels == 4) {
        memcpy(v, pixel, sizeof v);
        for (; to < end; to += sizeof v) memcpy(to, v, sizeof v);
    } else {
        memcpy(v, pixel, 3 * sizeof(T));
        for (; to < end; to += 3 * sizeof(T)) memcpy(to, v, 3 * sizeof(T));
    }
}

// Rows of an image, in the order that they are compared in, and beyond its edges.
template <class T>
struct Picture {
    const void* src;
    int64_t stride, width, channels, ahead;  // rows on that are fetched meanwhile

    const uint8_t* at(int64_t y) const { return static_cast<const uint8_t*>(src) + y * stride; }
    // What the next band of rows takes, while this one is joined: memory is idle then.
    void fetch(int64_t y, int64_t x) const {
        if constexpr (sizeof(T) > 1)
            for (int i = 0; i < kBlock; ++i) __builtin_prefetch(at(y + i) + x * int64_t(sizeof(T)), 0, 2);
    }
    // Row y from element x on; behind the last one less than a vector may change.
    template <class E>
    void operator()(int64_t y, int64_t x, int64_t count, E* to) const {
        const uint8_t *s = at(y), *last = s + (width - 1) * channels * int64_t(sizeof(T));
        // What lies in the image is put in order as it is copied.
        const int64_t left = clamp<int64_t>(-x, 0, count);
        const int64_t right = clamp<int64_t>(x + count - width * channels, 0, count);
        const auto edge = [=, this](E* from, int64_t n, const uint8_t* pixel) {
            if (n) repeat_pixel<T>(reinterpret_cast<uint8_t*>(from), n * int64_t(sizeof(T)), pixel, channels);
            if constexpr (!__is_same(T, E))
                for (E* e = from; e < from + n; e += kLanes<E>) store(e, Ordered<T>::of(load<Vec<E>>(e)));
        };
        edge(to, left, s);
        const uint8_t* inside = s + (x + left) * int64_t(sizeof(T));
        uint8_t* d = reinterpret_cast<uint8_t*>(to + left);
        const int64_t n = (count - left - right) * int64_t(sizeof(T));
        if constexpr (__is_same(T, E))
            memcpy(d, inside, size_t(n));
        else
            each_vector(
                n, [=](auto io, int64_t i) { io.store(d + i, Ordered<T>::of(io.template load<Vec<E>>(inside + i))); });
        edge(to + (count - right), right, last);
        if (ahead) {
            const uint8_t* next = at(y + ahead) + x * int64_t(sizeof(T));
            for (int64_t i = 0; i < count * int64_t(sizeof(T)); i += kLine) __builtin_prefetch(next + i);
        }
    }
};

inline U8 less(U8 a, U8 b) { return saturated_sub(a, b); }
inline S32 less(S32 a, S32 b) { return (S32)((F32)a - (F32)b); }

// Where a block goes: `rows` rows of n bytes.
template <class T>
struct Place {
    uint8_t* d;
    int64_t stride, n, rows;

    template <class V>
    void store(const Block<V>& u) const {
        each([&](auto io, int i) { io.store(d + i * stride, Ordered<T>::of(u.v[i])); });
    }
    // The block less other elements, or these less the block.
    template <class V>
    void store_difference(const Block<V>& u, const uint8_t* others, int64_t others_stride, bool others_less) const {
        each([&](auto io, int i) {
            const V a = Ordered<T>::of(u.v[i]), b = io.template load<V>(others + i * others_stride);
            io.store(d + i * stride, others_less ? less(b, a) : less(a, b));
        });
    }

private:
    template <class F>
    [[gnu::always_inline]] void each(F f) const {
        if (n == kVector && rows == kBlock) {
            for (int i = 0; i < kBlock; ++i) {
                f(Whole{}, i);
                if constexpr (sizeof(T) > 1) __builtin_prefetch(d + i * stride + kStoreAhead, 1);
            }
        } else {
            for (int i = 0; i < rows; ++i) f(Part{n}, i);
        }
    }
};

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
