// Affine warps: a region of a destination plane filled from the places of a source plane that it is mapped from.
//
//   src, src_size  the whole source plane; neighbours outside of the region but inside the source are read, outside of
//                  the source the edge pixel repeats
//   from           the region of the source that maps onto the destination; must lie in it
//   dst            the destination plane's pixel (0, 0); must not overlap the source
//   to             the region of the destination that may be written; the plane reaches that far
//   warp           from source coordinates to destination coordinates. Pixel centres have integer coordinates
//
// The destination pixel (X, Y) comes from the source position x = a' X + (b' Y + tx'), y = c' X + (d' Y + ty'), where
// the dashes are the inverse's coefficients, in double, each operation rounded by itself; the position is then rounded
// to 2^-32 of a pixel. A pixel whose position lies outside of the rectangle of from's pixel centres by more than 2^-20
// stays as it is.
//
// Nearest takes the pixel whose centre is closest (between two: the right, lower one). Linear blends 2 x 2 pixels,
// cubic (Catmull-Rom) 4 x 4, Lanczos (three lobes, weights normalised to 1) 6 x 6, with weights that are not quantised
// further than a result shows: 8-bit results lie within 0.5 + 1/32 of the real value, 16-bit results within 0.5 + 1/16,
// saturated; float results within 4 units in the last place of the largest of the pixels blended, their sums by row and
// the result. Every product and every sum of floats is rounded: of 3.5 million random pixels the worst was 3.5 such
// units off (Lanczos), .43 in the root mean square. Fused sums would be 3.4 and .36, and two to six times as slow where
// they must be emulated. Pixels of weight 0 take no part, so positions that are whole give the pixel there. A NaN in a
// float result that is blended is always the same one, positive, quiet, without payload.
//
// No scratch memory. Statuses: kNull, kBadSize (a size of a plane or region is not positive), kBadArg (from leaves the
// source; the warp or its inverse is not finite, or it is singular), kNothingMapped.
#pragma once

#include "kernels/base/kernel.h"

namespace tarn::k {

// x' = a x + b y + tx, y' = c x + d y + ty.
struct Affine {
    double a, b, tx, c, d, ty;
};

// A warning: no pixel of the destination was written.
inline constexpr Status kNothingMapped = 30;

using Warp = Status(const void* src, int32_t src_stride, Size src_size, Region from, void* dst, int32_t dst_stride,
                    Region to, const Affine& warp);
#define TARN_ARITY_Warp 8

#define KERNELS(op, Fn, types, forms) TARN_KERNELS(op, Fn, types, forms)
#include "kernels/warp/warp.def"
#undef KERNELS

}  // namespace tarn::k
