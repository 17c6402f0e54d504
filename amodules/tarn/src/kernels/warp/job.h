// For the warp sources only: what a call is made of, and which pixels of a row are mapped.
#pragma once

#include "kernels/plane/plane.h"
#include "kernels/warp/warp.h"

namespace tarn::k::TARN_LEVEL {
namespace {

constexpr double kTolerance = 0x1p-20;

// The whole number below, of what fits 64 bits.
inline int64_t floor_of(double v) {
    const int64_t whole = int64_t(v);
    return whole - (double(whole) > v);
}
// v within bounds; NaN becomes the lower one.
inline double bounded(double v, double lo, double hi) { return !(v > lo) ? lo : v < hi ? v : hi; }
inline double magnitude(double v) { return v < 0 ? -v : v; }
inline bool is_finite(double v) { return v - v == 0; }
inline bool is_finite(const Affine& m) {
    return is_finite(m.a) && is_finite(m.b) && is_finite(m.tx) && is_finite(m.c) && is_finite(m.d) && is_finite(m.ty);
}

// The inverse of a warp. False where there is none: the determinant is nothing but rounding, or something is beyond
// double.
inline bool invert(const Affine& m, Affine& back) {
    const double ad = m.a * m.d, bc = m.b * m.c, determinant = ad - bc;
    if (!(magnitude(determinant) > 0x1p-50 * (magnitude(ad) + magnitude(bc)))) return false;
    back = {m.d / determinant,  -m.b / determinant, (m.b * m.ty - m.d * m.tx) / determinant,
            -m.c / determinant, m.a / determinant,  (m.c * m.tx - m.a * m.ty) / determinant};
    return is_finite(m) && is_finite(back);
}

// Columns [from, to) of the destination plane.
struct Span {
    int64_t from, to;
};

// One coordinate of the source position as a function of the destination's X, in a row with offset v = row Y + shift.
struct Axis {
    double step, row, shift;
    double per_step = 1 / step;

    double offset(int64_t y) const { return row * double(y) + shift; }
    double at(int64_t x, double v) const { return step * double(x) + v; }

    // Cuts a span of columns to those whose position lies in [least, most], but for a column too many or too few at
    // either end. For positions that move too little for a division to find the place, by halving.
    void cut(double v, double least, double most, Span& s) const {
        if (s.from >= s.to) return;
        if (magnitude(step) >= 0x1p-16) {
            const double ends[] = {(least - v) * per_step, (most - v) * per_step};
            const double from = double(s.from), last = double(s.to) - 1;
            s = {-floor_of(-bounded(ends[step < 0], from, last + 1)),
                 floor_of(bounded(ends[step > 0], from - 1, last)) + 1};
            return;
        }
        const auto inside = [&](int64_t x) { return at(x, v) >= least && at(x, v) <= most; };
        if (inside(s.from) && inside(s.to - 1)) return;
        // The first column that has come as far as a bound.
        const auto first = [&](bool behind) {
            int64_t lo = s.from, hi = s.to;
            while (lo < hi) {
                const int64_t mid = lo + (hi - lo) / 2;
                const double p = at(mid, v);
                const bool there = step < 0 ? (behind ? p < least : p <= most) : (behind ? p > most : p >= least);
                there ? hi = mid : lo = mid + 1;
            }
            return lo;
        };
        s = {first(false), first(true)};
    }
};

// The arguments of a call.
struct Job {
    const void* src;
    int32_t src_stride;
    Size src_size;
    Region from;
    void* dst;
    int32_t dst_stride;
    Region to;
    Axis x, y;  // of the source position

    template <class T>
    T* dst_pixel(int64_t column, int64_t line, int64_t pixel_bytes) const {
        return reinterpret_cast<T*>(row<uint8_t>(dst, dst_stride, line) + column * pixel_bytes);
    }

    // The columns of a part of a row whose position lies in the rectangle [left, right] x [top, bottom]: first nearly,
    // then moved to where the position itself says.
    Span columns_within(int64_t line, Span s, double left, double top, double right, double bottom) const {
        const double vx = x.offset(line), vy = y.offset(line);
        const Span all = s;
        x.cut(vx, left, right, s), y.cut(vy, top, bottom, s);
        const auto inside = [&](int64_t c) {
            const double px = x.at(c, vx), py = y.at(c, vy);
            return px >= left && px <= right && py >= top && py <= bottom;
        };
        if (s.from > s.to + 1) return {0, 0};
        if (s.from > all.from && inside(s.from - 1)) --s.from;
        if (s.to < all.to && inside(s.to)) ++s.to;
        while (s.from < s.to && !inside(s.from)) ++s.from;
        while (s.from < s.to && !inside(s.to - 1)) --s.to;
        return s;
    }
    // Those that are mapped.
    Span mapped(int64_t line) const {
        return columns_within(line, {to.x, int64_t(to.x) + to.width}, from.x - kTolerance, from.y - kTolerance,
                              double(from.x) + from.width - 1 + kTolerance,
                              double(from.y) + from.height - 1 + kTolerance);
    }
};

inline Status check(const Job& j, const Affine& warp, Affine& back) {
    if (Status s = check(j.src_size, j.src, j.dst)) return s;
    const Region& r = j.from;
    if (r.width <= 0 || r.height <= 0 || j.to.width <= 0 || j.to.height <= 0) return kBadSize;
    const bool inside =
        r.x >= 0 && r.y >= 0 && r.width <= j.src_size.width - r.x && r.height <= j.src_size.height - r.y;
    return inside && invert(warp, back) ? kOk : kBadArg;
}

// A kernel: checks its arguments and leaves the rest to kBody.
template <auto kBody>
Status warp(const void* src, int32_t src_stride, Size src_size, Region from, void* dst, int32_t dst_stride, Region to,
            const Affine& warp) {
    Job j{src, src_stride, src_size, from, dst, dst_stride, to, {}, {}};
    Affine back;
    if (Status s = check(j, warp, back)) return s;
    j.x = {back.a, back.b, back.tx};
    j.y = {back.c, back.d, back.ty};
    return kBody(j);
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
