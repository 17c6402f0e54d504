// The affine warp that carries one quadrangle onto another, for who calls the warps with corners instead of
// coefficients.
#pragma once

#include <initializer_list>

#include "kernels/warp/warp.h"

namespace tarn::k {

struct Point {
    double x, y;
};
// Top left, top right, bottom right, bottom left.
struct Quad {
    Point corners[4];
};

// A warning: the fourth corners do not fit the warp of the first three.
inline constexpr Status kQuadsDiffer = 28;

// The first three corners define the warp; the fourth may lie beside the place it is carried to by 1e-6 of the
// destination's larger side. An edge without length in both quadrangles, as a picture of one column or row has, is
// taken for one pixel in both. kBadArg: the source's corners lie on a line, or are not finite. Of the destination's
// the warps say so.
inline Status warp_of(const Quad& source, const Quad& destination, Affine& warp) {
    const auto less = [](Point a, Point b) { return Point{a.x - b.x, a.y - b.y}; };
    const auto none = [](Point p) { return p.x == 0 && p.y == 0; };
    const auto size = [](double v) { return v < 0 ? -v : v; };
    const auto& s = source.corners;
    const auto& d = destination.corners;
    Point u = less(s[1], s[0]), v = less(s[2], s[1]), to_u = less(d[1], d[0]), to_v = less(d[2], d[1]);
    if (none(u) && none(to_u)) u = to_u = {1, 0};
    if (none(v) && none(to_v)) v = to_v = {0, 1};
    const double determinant = u.x * v.y - u.y * v.x;
    if (!(size(determinant) > 0x1p-50 * (size(u.x * v.y) + size(u.y * v.x)))) return kBadArg;
    warp.a = (to_u.x * v.y - to_v.x * u.y) / determinant;
    warp.b = (to_v.x * u.x - to_u.x * v.x) / determinant;
    warp.c = (to_u.y * v.y - to_v.y * u.y) / determinant;
    warp.d = (to_v.y * u.x - to_u.y * v.x) / determinant;
    warp.tx = d[0].x - (warp.a * s[0].x + warp.b * s[0].y);
    warp.ty = d[0].y - (warp.c * s[0].x + warp.d * s[0].y);

    const Point fourth =
        less({warp.a * s[3].x + warp.b * s[3].y + warp.tx, warp.c * s[3].x + warp.d * s[3].y + warp.ty}, d[3]);
    double side = 0;
    for (int i = 1; i < 4; ++i)
        for (const double length : {size(d[i].x - d[0].x), size(d[i].y - d[0].y)}) side = length > side ? length : side;
    return size(fourth.x) <= 1e-6 * side && size(fourth.y) <= 1e-6 * side ? kOk : kQuadsDiffer;
}

}  // namespace tarn::k
