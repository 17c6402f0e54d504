// Arithmetic with constants, in place, and over lists of planes. The constants' pattern spans three vectors, so that
// rows of any form are streams of whole vectors.
#include "kernels/arith/arith.h"

#include "kernels/arith/fold.h"
#include "kernels/plane/pattern.h"

namespace tarn::k::TARN_LEVEL {
namespace {

template <class Op, class T, bool kKept>
Status constant_rows(Pattern constant, void* dst, int32_t dst_stride, Size size, int64_t pixel_bytes) {
    const Bytes mask = colour_mask<T>();
    const Rows rows = rows_of(size, Pitch{dst_stride, pixel_bytes});
    for (int64_t y = 0; y < rows.count; ++y) {
        uint8_t* d = row<uint8_t>(dst, dst_stride, y);
        store_each_phase<kKept>(d, rows.pixels * pixel_bytes, mask, [=, &constant](auto io, int64_t i, auto phase) {
            using V = Vec<T>;
            return Op{}(io.template load<V>(d + i), (V)constant.v[phase.index]);
        });
    }
    return kOk;
}

template <class Op, class T, Form kForm>
Status with_constant(const void* constant, void* dst, int32_t dst_stride, Size size) {
    if (Status s = check(size, constant, dst)) return s;
    // An integer that changes nothing keeps the fourth channel too. Floats have none: x + 0 and x * 1 change the bits
    // of some x.
    constexpr bool kInteger = sizeof(T) < 4;
    T pixel[4];
    read_constants<T, kForm>(constant, pixel, T(Op::kNeutral));
    if (kInteger) {
        bool neutral = true;
        for (int c = 0; c < used(kForm); ++c) neutral &= pixel[c] == T(Op::kNeutral);
        if (neutral) return kOk;
    }
    return constant_rows < Op, T,
           kept(kForm) && !kInteger > (pattern_of<T, kForm>(pixel), dst, dst_stride, size, kPixelBytes<T, kForm>);
}

// Lists of few planes, 1 + kMore: whole rows at a time.
template <class Op, class T, bool kKept, int kMore>
void fold_few(const Planes& planes, void* dst, int32_t dst_stride, Rows rows, int64_t row_bytes) {
    for (int64_t y = 0; y < rows.count; ++y) {
        const uint8_t* more[3];
        for (int j = 0; j < kMore; ++j) more[j] = planes.row(j + 1, y, 0);
        fold_strip<Op, T, kKept, kMore>(row<uint8_t>(dst, dst_stride, y), planes.row(0, y, 0), more, row_bytes);
    }
}

template <class Op, class T, bool kKept>
Status fold_rows(const Sources* sources, void* dst, int32_t dst_stride, Size size, int64_t pixel_bytes) {
    if (Status s = check_sources(size, sources, dst)) return s;
    const Planes planes(*sources);
    if (planes.count == 2 || planes.count == 3) {
        const Rows rows = rows_of_list(*sources, dst_stride, size, pixel_bytes);
        const auto few = planes.count == 2 ? fold_few<Op, T, kKept, 1> : fold_few<Op, T, kKept, 2>;
        few(planes, dst, dst_stride, rows, rows.pixels * pixel_bytes);
        return kOk;
    }
    each_strip(*sources, dst_stride, size, pixel_bytes, kStripBytes, [=, &planes](int64_t y, int64_t x, int64_t n) {
        fold_sources<Op, T, kKept>(planes, row<uint8_t>(dst, dst_stride, y) + x, y, x, n);
    });
    return kOk;
}

template <class Op, class T, Form kForm>
Status fold(const Sources* sources, void* dst, int32_t dst_stride, Size size) {
    return fold_rows<Op, T, kept(kForm)>(sources, dst, dst_stride, size, kPixelBytes<T, kForm>);
}

}  // namespace

TARN_BODIES(add_c, WithConstantInPlace, u8_s16_f32, c1_c3_c3x, with_constant<Add, T, kForm>)
TARN_BODIES(sub_c, WithConstantInPlace, u8_s16_f32, c1_c3_c3x, with_constant<Sub, T, kForm>)
TARN_BODIES(mul_c, WithConstantInPlace, u8_s16_f32, c1_c3_c3x, with_constant<Mul, T, kForm>)
TARN_BODIES(add_n, Fold, u8_s16_f32, c1_c3_c3x, fold<Add, T, kForm>)
TARN_BODIES(sub_n, Fold, u8_s16_f32, c1_c3_c3x, fold<Sub, T, kForm>)
TARN_BODIES(mul_n, Fold, u8_s16_f32, c1_c3_c3x, fold<Mul, T, kForm>)

}  // namespace tarn::k::TARN_LEVEL
