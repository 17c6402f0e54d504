// For kernel sources only: the operators of arithmetic, and lists of planes folded strip by strip: a strip of the
// destination stays in the first-level cache while up to four planes at a time are taken into it, so that the
// destination is written to memory once.
#pragma once

#include "kernels/arith/arith.h"
#include "kernels/simd/vectors.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// ---- Operators: the destination's element first -------------------------------------------------------------------

struct AddU8 {
    using T = uint8_t;
    static constexpr T kNeutral = 0;
    Bytes operator()(Bytes d, Bytes s) const { return adds_u8(d, s); }
};
struct SubU8 {
    using T = uint8_t;
    static constexpr T kNeutral = 0;
    Bytes operator()(Bytes d, Bytes s) const { return subs_u8(d, s); }
};
struct MulU8 {
    using T = uint8_t;
    static constexpr T kNeutral = 1;
    Bytes operator()(Bytes d, Bytes s) const {
        // The pack reads its operand as signed: 65025 must be cut to 255 before it.
        const auto product = [](Bytes a, Bytes b) {
            return min_u16((Bytes)((Vec<uint16_t>)a * (Vec<uint16_t>)b), broadcast<uint16_t>(255));
        };
        return pack_s16_u8(product(unpack_lo8(d, Bytes{}), unpack_lo8(s, Bytes{})),
                           product(unpack_hi8(d, Bytes{}), unpack_hi8(s, Bytes{})));
    }
};
struct AddS16 {
    using T = int16_t;
    static constexpr T kNeutral = 0;
    Bytes operator()(Bytes d, Bytes s) const { return adds_s16(d, s); }
};
struct SubS16 {
    using T = int16_t;
    static constexpr T kNeutral = 0;
    Bytes operator()(Bytes d, Bytes s) const { return subs_s16(d, s); }
};
struct MulS16 {
    using T = int16_t;
    static constexpr T kNeutral = 1;
    Bytes operator()(Bytes d, Bytes s) const {
        const Bytes low = (Bytes)((Vec<uint16_t>)d * (Vec<uint16_t>)s), high = mulhi_s16(d, s);
        return pack_s32_s16(unpack_lo16(low, high), unpack_hi16(low, high));
    }
};
struct AddF32 {
    using T = float;
    Bytes operator()(Bytes d, Bytes s) const { return (Bytes)add_ordered((Vec<float>)d, (Vec<float>)s); }
};
struct SubF32 {
    using T = float;
    Bytes operator()(Bytes d, Bytes s) const { return (Bytes)((Vec<float>)d - (Vec<float>)s); }
};
struct MulF32 {
    using T = float;
    Bytes operator()(Bytes d, Bytes s) const { return (Bytes)mul_ordered((Vec<float>)d, (Vec<float>)s); }
};

// ---- Lists --------------------------------------------------------------------------------------------------------

constexpr int64_t kStrip = 8192;  // bytes of the destination

// The place in source i of byte x of row y.
const uint8_t* place(const Sources& sources, int32_t i, int64_t y, int64_t x) {
    const Source s = sources.at(sources.list, i);
    return row<uint8_t>(s.data, s.stride, y) + x;
}

[[maybe_unused]] Status check_sources(Size size, const Sources* sources, const void* dst) {
    if (Status s = check(size, sources, dst)) return s;
    if (sources->count <= 0) return kBadArg;
    for (int32_t i = 0; i < sources->count; ++i)
        if (!sources->at(sources->list, i).data) return kNull;
    return kOk;
}

// strip(y, x, bytes) for every strip of the destination, rows joined where no plane has padding.
template <class F>
void each_strip(const Sources& sources, int32_t dst_stride, Size size, int64_t pixel_bytes, int64_t strip, F f) {
    const int64_t row_bytes = size.width * pixel_bytes;
    bool packed = dst_stride == row_bytes;
    for (int32_t i = 0; i < sources.count; ++i) packed &= sources.at(sources.list, i).stride == row_bytes;
    const Rows rows = packed ? Rows{1, row_bytes * size.height} : Rows{size.height, row_bytes};
    for (int64_t y = 0; y < rows.count; ++y)
        for (int64_t x = 0; x < rows.length; x += strip) f(y, x, min(strip, rows.length - x));
}

// d := first op more[0] op ... over n bytes.
template <class Op, bool kKept, int kMore>
void fold_strip(uint8_t* d, const uint8_t* first, const uint8_t* const* more, int64_t n) {
    const uint8_t* p[kMore + 1] = {};
    for (int j = 0; j < kMore; ++j) p[j] = more[j];
    const Bytes mask = colour_mask<typename Op::T>();
    each_single_vector(n, [=](auto io, int64_t i) {
        Bytes r = io.load(first + i);
        for (int j = 0; j < kMore; ++j) r = Op{}(r, io.load(p[j] + i));
        if constexpr (kKept) r = select(mask, r, io.load(d + i));
        io.store(d + i, r);
    });
}

// d := the fold of all sources over n bytes from byte x of row y.
template <class Op, bool kKept>
void fold_sources(const Sources& sources, uint8_t* d, int64_t y, int64_t x, int64_t n) {
    const uint8_t* first = place(sources, 0, y, x);
    int32_t i = 1;
    do {
        const uint8_t* more[3];
        const int32_t count = min(3, sources.count - i);
        for (int32_t j = 0; j < count; ++j) more[j] = place(sources, i + j, y, x);
        if (count == 3)
            fold_strip<Op, kKept, 3>(d, first, more, n);
        else if (count == 2)
            fold_strip<Op, kKept, 2>(d, first, more, n);
        else if (count == 1)
            fold_strip<Op, kKept, 1>(d, first, more, n);
        else
            fold_strip<Op, kKept, 0>(d, first, more, n);
        first = d;
        i += 3;
    } while (i < sources.count);
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
