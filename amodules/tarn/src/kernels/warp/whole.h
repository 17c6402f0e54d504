// For the warp sources only: warps that carry whole pixels onto whole pixels. Every interpolation then gives the pixel
// itself, so they are moves: copies, flips, transposes and quarter turns.
#pragma once

#include "kernels/warp/job.h"

namespace tarn::k {

// What is moved: the destination's pixel (x, y) is the one at src + x step_x + y step_y. One of the steps is a pixel,
// forward or backward, the other one a row.
struct Carry {
    const uint8_t* src;
    int64_t step_x, step_y;
    uint8_t* dst;
    int32_t dst_stride;
    Size size;
    int pixel_bytes;
    bool kept;     // the fourth of a pixel's four elements stays
    bool settled;  // the pixels are floats, and every NaN becomes the one that blends give
};

namespace TARN_LEVEL {

void carry(const Carry&);

namespace {

// A coordinate of the source position in whole numbers: by_x X + by_y Y + shift.
struct WholeAxis {
    int64_t by_x, by_y, shift;

    int64_t at(int64_t x, int64_t y) const { return by_x * x + by_y * y + shift; }
};

// Whether one of an axis' coefficients is 1 or -1, the other 0 and the shift whole, as far as the rounding of positions
// to 2^-32 of a pixel can tell anywhere in a region.
inline bool is_whole(const Axis& a, Region r, WholeAxis& whole) {
    if (!(magnitude(a.shift) < 0x1p40 && magnitude(a.step) < 2 && magnitude(a.row) < 2)) return false;
    const auto nearest = [](double v) { return floor_of(v + 0.5); };
    whole = {nearest(a.step), nearest(a.row), nearest(a.shift)};
    if (whole.by_x * whole.by_x + whole.by_y * whole.by_y != 1) return false;
    const double x = max(magnitude(r.x), magnitude(r.x + double(r.width)));
    const double y = max(magnitude(r.y), magnitude(r.y + double(r.height)));
    const double off = magnitude(a.step - double(whole.by_x)) * x + magnitude(a.row - double(whole.by_y)) * y +
                       magnitude(a.shift - double(whole.shift));
    // The positions' own rounding; whole coefficients have none.
    const double rounding = off > 0 ? 0x1p-50 * (x + y + magnitude(a.shift)) : 0;
    return off + rounding < 0x1p-34;
}

// The part of [from, from + size) that lands in [first, first + count) by step p + shift, as p's first and end.
inline Span landing(int64_t from, int64_t size, int64_t step, int64_t shift, int64_t first, int64_t count) {
    const int64_t lo = step > 0 ? first - shift : shift - (first + count - 1);
    return {max(from, lo), min(from + size, lo + count)};
}

// What a warp moves; false where it does not carry whole pixels onto whole pixels.
inline bool is_carry(const Job& j, int pixel_bytes, Carry& c) {
    WholeAxis x, y;
    if (!is_whole(j.x, j.to, x) || !is_whole(j.y, j.to, y) || x.by_x * x.by_x == y.by_x * y.by_x) return false;
    const bool turned = x.by_x == 0;
    const Region& from = j.from;
    const Span columns = turned ? landing(j.to.x, j.to.width, y.by_x, y.shift, from.y, from.height)
                                : landing(j.to.x, j.to.width, x.by_x, x.shift, from.x, from.width);
    const Span rows = turned ? landing(j.to.y, j.to.height, x.by_y, x.shift, from.x, from.width)
                             : landing(j.to.y, j.to.height, y.by_y, y.shift, from.y, from.height);
    c.size = {int32_t(max<int64_t>(columns.to - columns.from, 0)), int32_t(max<int64_t>(rows.to - rows.from, 0))};
    if (c.size.width == 0 || c.size.height == 0) return true;
    c.src =
        row<uint8_t>(j.src, j.src_stride, y.at(columns.from, rows.from)) + x.at(columns.from, rows.from) * pixel_bytes;
    c.step_x = x.by_x * pixel_bytes + y.by_x * j.src_stride;
    c.step_y = x.by_y * pixel_bytes + y.by_y * j.src_stride;
    c.dst = j.dst_pixel<uint8_t>(columns.from, rows.from, pixel_bytes);
    c.dst_stride = j.dst_stride;
    c.pixel_bytes = pixel_bytes;
    return true;
}

}  // namespace
}  // namespace TARN_LEVEL
}  // namespace tarn::k
