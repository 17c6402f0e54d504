// Bitwise kernels. An operator on bits sees neither element types nor channels: a row is its bytes, a constant is a
// pattern of bytes, and a fourth channel that stays is a mask of bytes.
#include "kernels/logic.h"

#include "kernels/vectors.h"

namespace tarn::k::TARN_LEVEL {
namespace {

struct And {
    Bytes operator()(Bytes a, Bytes b) const { return a & b; }
};
struct Or {
    Bytes operator()(Bytes a, Bytes b) const { return a | b; }
};
struct Xor {
    Bytes operator()(Bytes a, Bytes b) const { return a ^ b; }
};

// kKept: bits outside of mask stay as they are in dst.
template <class Op, bool kKept>
Status binary(const void* b, int32_t b_stride, const void* a, int32_t a_stride, void* dst, int32_t dst_stride,
              Size size, int64_t pixel_bytes, Bytes mask) {
    if (Status s = check(size, a, b, dst)) return s;
    const Rows rows = rows_of(size, size.width * pixel_bytes, 1, a_stride, b_stride, dst_stride);
    for (int64_t y = 0; y < rows.count; ++y) {
        const uint8_t *pa = row<uint8_t>(a, a_stride, y), *pb = row<uint8_t>(b, b_stride, y);
        uint8_t* pd = row<uint8_t>(dst, dst_stride, y);
        each_vector(rows.length, [=](auto io, int64_t i, auto) {
            Bytes r = Op{}(io.load(pa + i), io.load(pb + i));
            if constexpr (kKept) r = select(mask, r, io.load(pd + i));
            io.store(pd + i, r);
        });
    }
    return kOk;
}

template <class Op, bool kKept>
Status with_constant(const void* src, int32_t src_stride, Pattern constant, void* dst, int32_t dst_stride, Size size,
                     int64_t pixel_bytes, Bytes mask) {
    const Rows rows = rows_of(size, size.width * pixel_bytes, 1, src_stride, dst_stride);
    for (int64_t y = 0; y < rows.count; ++y) {
        const uint8_t* ps = row<uint8_t>(src, src_stride, y);
        uint8_t* pd = row<uint8_t>(dst, dst_stride, y);
        each_vector(rows.length, [=](auto io, int64_t i, auto phase) {
            Bytes r = Op{}(io.load(ps + i), constant.v[phase.index]);
            if constexpr (kKept) r = select(mask, r, io.load(pd + i));
            io.store(pd + i, r);
        });
    }
    return kOk;
}

// The constants' pattern, made once the pointers are known to be good.
template <class Op, class T, int kChannels, bool kKept>
Status with_constants(const void* src, int32_t src_stride, const void* constant, void* dst, int32_t dst_stride,
                      Size size) {
    if (Status s = check(size, src, constant, dst)) return s;
    T pixel[4] = {};
    memcpy(pixel, constant, (kKept ? 3 : kChannels) * sizeof(T));
    return with_constant<Op, kKept>(src, src_stride, pattern_of<T, kChannels>(pixel), dst, dst_stride, size,
                                    kChannels * sizeof(T), colour_mask<T>());
}

}  // namespace

#define BINARY(name, Op, T, channels, kept)                                                                      \
    Status name(const void* b, int32_t b_stride, const void* a, int32_t a_stride, void* dst, int32_t dst_stride, \
                Size size) {                                                                                     \
        return binary<Op, kept>(b, b_stride, a, a_stride, dst, dst_stride, size, channels * sizeof(T),           \
                                colour_mask<T>());                                                               \
    }
#define CONSTANT(name, Op, T, channels, kept)                                                                          \
    Status name(const void* src, int32_t src_stride, const void* constant, void* dst, int32_t dst_stride, Size size) { \
        return with_constants<Op, T, channels, kept>(src, src_stride, constant, dst, dst_stride, size);                \
    }
#define LOGIC(op, Op)                              \
    BINARY(op##_u8_c1, Op, uint8_t, 1, false)      \
    BINARY(op##_u8_c3, Op, uint8_t, 3, false)      \
    BINARY(op##_u8_c3x, Op, uint8_t, 4, true)      \
    BINARY(op##_s16_c1, Op, int16_t, 1, false)     \
    BINARY(op##_s16_c3, Op, int16_t, 3, false)     \
    BINARY(op##_s16_c3x, Op, int16_t, 4, true)     \
    BINARY(op##_s32_c1, Op, int32_t, 1, false)     \
    BINARY(op##_s32_c3, Op, int32_t, 3, false)     \
    BINARY(op##_s32_c3x, Op, int32_t, 4, true)     \
    CONSTANT(op##_c_u8_c1, Op, uint8_t, 1, false)  \
    CONSTANT(op##_c_u8_c3, Op, uint8_t, 3, false)  \
    CONSTANT(op##_c_u8_c3x, Op, uint8_t, 4, true)  \
    CONSTANT(op##_c_s16_c1, Op, int16_t, 1, false) \
    CONSTANT(op##_c_s16_c3, Op, int16_t, 3, false) \
    CONSTANT(op##_c_s16_c4, Op, int16_t, 4, false) \
    CONSTANT(op##_c_s32_c1, Op, int32_t, 1, false) \
    CONSTANT(op##_c_s32_c3, Op, int32_t, 3, false) \
    CONSTANT(op##_c_s32_c4, Op, int32_t, 4, false)
LOGIC(and, And)
LOGIC(or, Or)
LOGIC(xor, Xor)
#undef LOGIC
#undef CONSTANT
#undef BINARY

// The complement is an exclusive or with ones.
#define NOT(name, channels, kept)                                                                           \
    Status name(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size) {            \
        constexpr uint8_t kOnes[] = {255, 255, 255, 255};                                                   \
        return with_constants<Xor, uint8_t, channels, kept>(src, src_stride, kOnes, dst, dst_stride, size); \
    }
NOT(not_u8_c1, 1, false)
NOT(not_u8_c3, 3, false)
NOT(not_u8_c3x, 4, true)
#undef NOT

}  // namespace tarn::k::TARN_LEVEL
