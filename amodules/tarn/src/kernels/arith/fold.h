// For kernel sources only: the operators of arithmetic, and lists of planes folded strip by strip: a strip of the
// destination stays in the first-level cache while up to four planes at a time are taken into it, so that the
// destination is written to memory once.
#pragma once

#include "kernels/arith/arith.h"
#include "kernels/plane/plane.h"
#include "kernels/plane/store.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// ---- Operators: the destination's elements first ------------------------------------------------------------------

struct Add {
    static constexpr int kNeutral = 0;
    U8 operator()(U8 d, U8 s) const { return saturated_add(d, s); }
    S16 operator()(S16 d, S16 s) const { return saturated_add(d, s); }
    F32 operator()(F32 d, F32 s) const { return add_ordered(d, s); }
};
struct Sub {
    static constexpr int kNeutral = 0;
    U8 operator()(U8 d, U8 s) const { return saturated_sub(d, s); }
    S16 operator()(S16 d, S16 s) const { return saturated_sub(d, s); }
    F32 operator()(F32 d, F32 s) const { return d - s; }
};
struct Mul {
    static constexpr int kNeutral = 1;
    U8 operator()(U8 d, U8 s) const {
        // What is narrowed is read as signed: 65025 must be cut to 255 before.
        const auto product = [](Bytes a, Bytes b) { return (S16)min((U16)a * (U16)b, splat<uint16_t>(255)); };
        return narrow_groups_u8(product(interleave_lower8(d, Bytes{}), interleave_lower8(s, Bytes{})),
                                product(interleave_upper8(d, Bytes{}), interleave_upper8(s, Bytes{})));
    }
    S16 operator()(S16 d, S16 s) const {
        const Bytes low = (Bytes)((U16)d * (U16)s), high = (Bytes)mul_high(d, s);
        return narrow_groups((S32)interleave_lower16(low, high), (S32)interleave_upper16(low, high));
    }
    F32 operator()(F32 d, F32 s) const { return mul_ordered(d, s); }
};

// ---- Lists --------------------------------------------------------------------------------------------------------

constexpr int64_t kStripBytes = 8192;  // of the destination

// The planes of a list, of which the first, most often all, are asked for once and not for every row.
class Planes {
public:
    explicit Planes(const Sources& sources) : count(sources.count), sources_(sources) {
        for (int32_t i = 0; i < min(count, kFirst); ++i) first_[i] = sources.at(sources.list, i);
    }
    // Plane i from byte x of row y.
    const uint8_t* row(int32_t i, int64_t y, int64_t x) const {
        const Source s = i < kFirst ? first_[i] : sources_.at(sources_.list, i);
        return TARN_LEVEL::row<uint8_t>(s.data, s.stride, y) + x;
    }
    const int32_t count;

private:
    static constexpr int32_t kFirst = 4;
    const Sources& sources_;
    Source first_[kFirst];
};

inline Status check_sources(Size size, const Sources* sources, const void* dst) {
    if (Status s = check(size, sources, dst)) return s;
    if (sources->count <= 0) return kBadArg;
    for (int32_t i = 0; i < sources->count; ++i)
        if (!sources->at(sources->list, i).data) return kNull;
    return kOk;
}

// The rows of a list and its destination, joined where all of them are packed.
inline Rows rows_of_list(const Sources& sources, int32_t dst_stride, Size size, int64_t pixel_bytes) {
    bool packed = is_packed(size, {dst_stride, pixel_bytes});
    for (int32_t i = 0; i < sources.count; ++i)
        packed &= is_packed(size, {sources.at(sources.list, i).stride, pixel_bytes});
    return packed ? joined_rows(size) : separate_rows(size);
}

// f(y, x, n) for every strip of the destination: n bytes, at most `most`, from byte x of row y.
template <class F>
void each_strip(const Sources& sources, int32_t dst_stride, Size size, int64_t pixel_bytes, int64_t most, F f) {
    const Rows rows = rows_of_list(sources, dst_stride, size, pixel_bytes);
    for (int64_t y = 0; y < rows.count; ++y)
        for (int64_t x = 0; x < rows.pixels * pixel_bytes; x += most) f(y, x, min(most, rows.pixels * pixel_bytes - x));
}

// d := first op more[0] op ... over n bytes.
template <class Op, class T, bool kKept, int kMore>
inline void fold_strip(uint8_t* d, const uint8_t* first, const uint8_t* const* more, int64_t n) {
    const uint8_t* p[kMore + 1] = {};
    for (int j = 0; j < kMore; ++j) p[j] = more[j];
    store_each<kKept, kMore >= 2 ? 2 : 4>(d, n, colour_mask<T>(), [=](auto io, int64_t i) {
        using V = Vec<T>;
        V r = io.template load<V>(first + i);
        for (int j = 0; j < kMore; ++j) r = Op{}(r, io.template load<V>(p[j] + i));
        return r;
    });
}

// d := the fold of all sources over n bytes from byte x of row y.
template <class Op, class T, bool kKept>
void fold_sources(const Planes& sources, uint8_t* d, int64_t y, int64_t x, int64_t n) {
    const uint8_t* first = sources.row(0, y, x);
    int32_t i = 1;
    do {
        const uint8_t* more[3];
        const int32_t count = min(3, sources.count - i);
        for (int32_t j = 0; j < count; ++j) more[j] = sources.row(i + j, y, x);
        if (count == 3)
            fold_strip<Op, T, kKept, 3>(d, first, more, n);
        else if (count == 2)
            fold_strip<Op, T, kKept, 2>(d, first, more, n);
        else if (count == 1)
            fold_strip<Op, T, kKept, 1>(d, first, more, n);
        else
            fold_strip<Op, T, kKept, 0>(d, first, more, n);
        first = d;
        i += 3;
    } while (i < sources.count);
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
