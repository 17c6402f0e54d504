// Bitwise kernels. An operator on bits sees neither element types nor channels: a row is its bytes, a constant is a
// pattern of bytes, and a fourth channel that stays is a mask of bytes.
#include "kernels/logic/logic.h"

#include "kernels/plane/pattern.h"
#include "kernels/plane/plane.h"

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

template <class Op, bool kKept>
Status binary_rows(const void* b, int32_t b_stride, const void* a, int32_t a_stride, void* dst, int32_t dst_stride,
                   Size size, int64_t pixel_bytes, Bytes mask) {
    const Rows rows =
        rows_of(size, Pitch{a_stride, pixel_bytes}, Pitch{b_stride, pixel_bytes}, Pitch{dst_stride, pixel_bytes});
    for (int64_t y = 0; y < rows.count; ++y) {
        const uint8_t *pa = row<uint8_t>(a, a_stride, y), *pb = row<uint8_t>(b, b_stride, y);
        store_each<kKept>(row<uint8_t>(dst, dst_stride, y), rows.pixels * pixel_bytes, mask,
                          [=](auto io, int64_t i) { return Op{}(io.load(pa + i), io.load(pb + i)); });
    }
    return kOk;
}

template <class Op, bool kKept>
Status constant_rows(const void* src, int32_t src_stride, Pattern constant, void* dst, int32_t dst_stride, Size size,
                     int64_t pixel_bytes, Bytes mask) {
    const Rows rows = rows_of(size, Pitch{src_stride, pixel_bytes}, Pitch{dst_stride, pixel_bytes});
    for (int64_t y = 0; y < rows.count; ++y) {
        const uint8_t* ps = row<uint8_t>(src, src_stride, y);
        store_each_phase<kKept>(
            row<uint8_t>(dst, dst_stride, y), rows.pixels * pixel_bytes, mask,
            [=, &constant](auto io, int64_t i, auto phase) { return Op{}(io.load(ps + i), constant.v[phase.index]); });
    }
    return kOk;
}

template <class Op, class T, Form kForm>
Status binary(const void* b, int32_t b_stride, const void* a, int32_t a_stride, void* dst, int32_t dst_stride,
              Size size) {
    if (Status s = check(size, a, b, dst)) return s;
    return binary_rows<Op, kept(kForm)>(b, b_stride, a, a_stride, dst, dst_stride, size, channels(kForm) * sizeof(T),
                                        colour_mask<T>());
}

template <class Op, class T, Form kForm>
Status with_constant(const void* src, int32_t src_stride, const void* constant, void* dst, int32_t dst_stride,
                     Size size) {
    if (Status s = check(size, src, constant, dst)) return s;
    return constant_rows<Op, kept(kForm)>(src, src_stride, pattern_of_constants<T, kForm>(constant), dst, dst_stride,
                                          size, channels(kForm) * sizeof(T), colour_mask<T>());
}

// The complement is an exclusive or with ones.
template <class T, Form kForm>
Status complement(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size) {
    constexpr uint8_t kOnes[] = {255, 255, 255, 255};
    return with_constant<Xor, T, kForm>(src, src_stride, kOnes, dst, dst_stride, size);
}

}  // namespace

TARN_BODIES(and, Binary, u8_s16_s32, c1_c3_c3x, binary<And, T, kForm>)
TARN_BODIES(or, Binary, u8_s16_s32, c1_c3_c3x, binary<Or, T, kForm>)
TARN_BODIES(xor, Binary, u8_s16_s32, c1_c3_c3x, binary<Xor, T, kForm>)
TARN_BODIES(and_c, WithConstant, u8_s16_s32, c1_c3_c4_c3x, with_constant<And, T, kForm>)
TARN_BODIES(or_c, WithConstant, u8_s16_s32, c1_c3_c4_c3x, with_constant<Or, T, kForm>)
TARN_BODIES(xor_c, WithConstant, u8_s16_s32, c1_c3_c4_c3x, with_constant<Xor, T, kForm>)
TARN_BODIES(not, Unary, u8, c1_c3_c3x, complement<T, kForm>)

}  // namespace tarn::k::TARN_LEVEL
