// For kernel sources only: how a vector of a row meets memory: whole or only its first bytes, with all channels or with
// the destination's fourth kept.
#pragma once

#include "kernels/simd/simd.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// A whole vector, and the first n bytes of one (0 < n < kVector; the others are loaded as zero), under one set of
// names.
struct Whole {
    template <class V = Bytes>
    V load(const void* p) const {
        return TARN_LEVEL::load<V>(p);
    }
    template <class V>
    void store(void* p, V v) const {
        TARN_LEVEL::store(p, v);
    }
    template <class V>
    void store_where(void* p, Bytes mask, V v) const {
        TARN_LEVEL::store_where(p, mask, v);
    }
};
struct Part {
    int64_t n;
    template <class V = Bytes>
    V load(const void* p) const {
        return load_n<V>(p, n);
    }
    template <class V>
    void store(void* p, V v) const {
        store_n(p, v, n);
    }
    template <class V>
    void store_where(void* p, Bytes mask, V v) const {
        store_where_n(p, mask, v, n);
    }
};

// All ones in the first three elements of every four.
template <class T>
inline Bytes colour_mask() {
    constexpr uint64_t even = sizeof(T) == 1 ? 0x00ffffff00ffffff : sizeof(T) == 2 ? 0x0000ffffffffffff : ~uint64_t(0);
    constexpr uint64_t odd = sizeof(T) == 4 ? 0x00000000ffffffff : even;
    U64 v = {};
    for (int i = 0; i < kLanes<uint64_t>; ++i) v[i] = i % 2 ? odd : even;
    return (Bytes)v;
}

// What is stored of a vector; kKept: the destination but for the bytes of the mask, a colour mask. Read, blended and
// written it streams better than stored under a mask.
template <bool kKept, class Io, class V>
inline Bytes formed(Io io, const void* p, V v, Bytes mask) {
    if constexpr (kKept)
        return blend(mask, (Bytes)v, io.load(p));
    else
        return (Bytes)v;
}
template <bool kKept, class Io, class V>
inline void store_form(Io io, void* p, V v, Bytes mask) {
    io.store(p, formed<kKept>(io, p, v, mask));
}

// The same under a mask where the level has one: for vectors that take longer to compute than to store.
template <bool kKept, class Io, class V>
inline void store_form_where(Io io, void* p, V v, Bytes mask) {
    if constexpr (kKept)
        io.store_where(p, mask, v);
    else
        io.store(p, v);
}

// The first n bytes of several vectors, one behind the other; n may be more than they have.
template <bool kKept, int kCount>
inline void store_form_where(uint8_t* p, const Bytes (&v)[kCount], Bytes mask, int64_t n) {
    for (int i = 0; i < kCount; ++i) {
        const int64_t left = n - i * kVector;
        if (n >= kCount * kVector)
            store_form_where<kKept>(Whole{}, p + i * kVector, v[i], mask);
        else if (left > 0)
            store_form_where<kKept>(Part{min(left, kVector)}, p + i * kVector, v[i], mask);
    }
}

// Where the vector at i stands when the last of n bytes ends with them, over the one before: at 0 when there is only
// one.
inline int64_t overlapped(int64_t i, int64_t n) { return max<int64_t>(min(i, n - kVector), 0); }

// f(io, offset) for every vector of a row of n bytes, the last one overlapped: for operators that write elsewhere than
// they read, and may do so twice.
template <class F>
inline void each_overlapped(int64_t n, F f) {
    if (n < kVector) return f(Part{n}, 0);
    for (int64_t i = 0; i < n - kVector; i += kVector) f(Whole{}, i);
    f(Whole{}, n - kVector);
}

// f(io, offset) for every vector of a row of n bytes.
template <class F>
inline void each_vector(int64_t n, F f) {
    int64_t i = 0;
    for (; i + kVector <= n; i += kVector) f(Whole{}, i);
    if (i < n) f(Part{n - i}, i);
}

// Copies n bytes of a short row, which must be apart.
inline void copy_short(uint8_t* d, const uint8_t* s, int64_t n) {
    if (n < kVector) return copy_bytes(d, s, n);
    for (int64_t i = 0; i < n - kVector; i += kVector) store(d + i, load<Bytes>(s + i));
    store(d + n - kVector, load<Bytes>(s + n - kVector));
}

// Bytes of a row's vectors before the last one, which ends with the row and may overlap them. n: at least a vector.
inline int64_t before_last(int64_t n) { return (n - 1) / kVector * kVector; }

// Stores f(io, offset), a vector, for every vector of a row of n bytes, four made before the first is stored: a load
// waits for a store before it that seems to have its address, of which processors compare the place within a page
// first. The last vector overlaps the one before it; it is made first, since the destination may be a source.
template <bool kKept, int kTogether = 4, class F>
inline void store_each(uint8_t* d, int64_t n, Bytes mask, F f) {
    if (n < kVector) return store_form<kKept>(Part{n}, d, (Bytes)f(Part{n}, 0), mask);
    const Bytes last = formed<kKept>(Whole{}, d + n - kVector, f(Whole{}, n - kVector), mask);
    const int64_t to = before_last(n);
    int64_t i = 0;
    for (; i + kTogether * kVector <= to; i += kTogether * kVector) {
        Bytes v[kTogether];
        for (int k = 0; k < kTogether; ++k) v[k] = (Bytes)f(Whole{}, i + k * kVector);
        for (int k = 0; k < kTogether; ++k) store_form<kKept>(Whole{}, d + i + k * kVector, v[k], mask);
    }
    for (; i < to; i += kVector) store_form<kKept>(Whole{}, d + i, (Bytes)f(Whole{}, i), mask);
    store(d + n - kVector, last);
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
