// For kernel sources only: floats to elements. To the nearest integer, ties to the even one, saturated; NaN to the
// type's smallest value; floats as they are. One by one without library calls and branches, so that plain loops become
// vectors, and four vectors at a time, packed in order.
#pragma once

#include "kernels/simd/simd.h"

namespace tarn::k::TARN_LEVEL {
namespace {

template <class D>
struct Limits;
template <>
struct Limits<uint8_t> {
    static constexpr int32_t kMin = 0, kMax = 255;
};
template <>
struct Limits<int16_t> {
    static constexpr int32_t kMin = -32768, kMax = 32767;
};

// 8 and 16 bits. In range, the sum with 1.5 x 2^23 has a last place of 1: its low bits are the rounded value.
template <class D>
inline D round_to(float v) {
    constexpr float kMin = Limits<D>::kMin, kMax = Limits<D>::kMax;
    v = v > kMin ? v : kMin;  // in this order: NaN gives kMin
    v = v < kMax ? v : kMax;
    return D(__builtin_bit_cast(int32_t, v + 12582912.0f) - 0x4b400000);
}
// Below 2^23 a sum with 2^23 of the same sign rounds; from there on every float is an integer.
template <>
inline int32_t round_to(float v) {
    constexpr float kTwo23 = 8388608.0f, kTwo31 = 2147483648.0f;
    const float shift = v < 0 ? -kTwo23 : kTwo23;
    const float whole = v > -kTwo23 && v < kTwo23 ? (v + shift) - shift : v;
    return v >= kTwo31 ? INT32_MAX : v >= -kTwo31 ? int32_t(whole) : INT32_MIN;
}
template <>
inline float round_to(float v) {
    return v;
}

// Elements of four vectors of floats, in order: as many as a vector has bytes.
template <class D>
struct Block {
    static constexpr int64_t kElements = kVector;
    Bytes v[sizeof(D)];
};

// Packed with saturation.
template <class D>
inline Block<D> pack(S32 a, S32 b, S32 c, S32 d) {
    const S16 ab = narrow_groups(a, b), cd = narrow_groups(c, d);
    if constexpr (sizeof(D) == 1)
        return {{in_order_twice((Bytes)narrow_groups_u8(ab, cd))}};
    else
        return {{in_order_once((Bytes)ab), in_order_once((Bytes)cd)}};
}

// 8 and 16 bits, of floats below 2^31. Packing saturates; what is below the range of 32 bits, and NaN, has become its
// smallest value before.
template <class D>
inline Block<D> round_to_within32(F32 a, F32 b, F32 c, F32 d) {
    return pack<D>(nearest_int(a), nearest_int(b), nearest_int(c), nearest_int(d));
}
// Of any floats: only what is above needs to be cut off.
template <class D>
inline Block<D> round_to(F32 a, F32 b, F32 c, F32 d) {
    const F32 top = splat(float(Limits<D>::kMax));  // in front: min hands on the NaN behind
    return round_to_within32<D>(min(top, a), min(top, b), min(top, c), min(top, d));
}
template <>
inline Block<int32_t> round_to(F32 a, F32 b, F32 c, F32 d) {
    return {{(Bytes)nearest_int_saturated(a), (Bytes)nearest_int_saturated(b), (Bytes)nearest_int_saturated(c),
             (Bytes)nearest_int_saturated(d)}};
}
template <>
inline Block<float> round_to(F32 a, F32 b, F32 c, F32 d) {
    return {{(Bytes)a, (Bytes)b, (Bytes)c, (Bytes)d}};
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
