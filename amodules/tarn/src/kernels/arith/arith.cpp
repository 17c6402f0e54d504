// Arithmetic with constants, in place, and over lists of planes.
#include "kernels/arith/arith.h"

#include "kernels/arith/fold.h"

namespace tarn::k::TARN_LEVEL {
namespace {

template <class Op, int kChannels, bool kKept>
Status with_constant(const void* constant, void* dst, int32_t dst_stride, Size size) {
    using T = typename Op::T;
    if (Status s = check(size, constant, dst)) return s;
    constexpr bool kInteger = sizeof(T) < 4;
    constexpr int kUsed = kKept ? 3 : kChannels;
    T pixel[4] = {};
    memcpy(pixel, constant, kUsed * sizeof(T));
    if constexpr (kInteger) {
        // An integer that changes nothing keeps the fourth channel too. Floats have none: x + 0 and x * 1 change the
        // bits of some x.
        pixel[3] = Op::kNeutral;
        bool neutral = true;
        for (int c = 0; c < kUsed; ++c) neutral &= pixel[c] == Op::kNeutral;
        if (neutral) return kOk;
    }
    const Pattern pattern = pattern_of<T, kChannels>(pixel);
    const Bytes mask = colour_mask<T>();
    const Rows rows = rows_of(size, size.width * int64_t(kChannels * sizeof(T)), 1, dst_stride);
    for (int64_t y = 0; y < rows.count; ++y) {
        uint8_t* d = row<uint8_t>(dst, dst_stride, y);
        each_vector(rows.length, [=](auto io, int64_t i, auto phase) {
            const Bytes v = io.load(d + i);
            Bytes r = Op{}(v, pattern.v[phase.index]);
            if constexpr (kKept && !kInteger) r = select(mask, r, v);
            io.store(d + i, r);
        });
    }
    return kOk;
}

template <class Op, int kChannels, bool kKept>
Status fold(const Sources* sources, void* dst, int32_t dst_stride, Size size) {
    if (Status s = check_sources(size, sources, dst)) return s;
    each_strip(*sources, dst_stride, size, kChannels * sizeof(typename Op::T), kStrip,
               [=](int64_t y, int64_t x, int64_t n) {
                   fold_sources<Op, kKept>(*sources, row<uint8_t>(dst, dst_stride, y) + x, y, x, n);
               });
    return kOk;
}

}  // namespace

#define CONSTANT(name, Op, channels, kept)                                         \
    Status name(const void* constant, void* dst, int32_t dst_stride, Size size) {  \
        return with_constant<Op, channels, kept>(constant, dst, dst_stride, size); \
    }
#define FOLD(name, Op, channels, kept)                                              \
    Status name(const Sources* sources, void* dst, int32_t dst_stride, Size size) { \
        return fold<Op, channels, kept>(sources, dst, dst_stride, size);            \
    }
#define FORMS(op, type, Op)                    \
    CONSTANT(op##_c_##type##_c1, Op, 1, false) \
    CONSTANT(op##_c_##type##_c3, Op, 3, false) \
    CONSTANT(op##_c_##type##_c3x, Op, 4, true) \
    FOLD(op##_n_##type##_c1, Op, 1, false)     \
    FOLD(op##_n_##type##_c3, Op, 3, false)     \
    FOLD(op##_n_##type##_c3x, Op, 4, true)
FORMS(add, u8, AddU8)
FORMS(add, s16, AddS16)
FORMS(add, f32, AddF32)
FORMS(sub, u8, SubU8)
FORMS(sub, s16, SubS16)
FORMS(sub, f32, SubF32)
FORMS(mul, u8, MulU8)
FORMS(mul, s16, MulS16)
FORMS(mul, f32, MulF32)
#undef FORMS
#undef FOLD
#undef CONSTANT

}  // namespace tarn::k::TARN_LEVEL
