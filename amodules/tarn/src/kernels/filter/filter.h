// Rectangular neighbourhood filters: each pixel becomes the mean, minimum, maximum or median of the pixels under a
// mask.
//
//   src        the region's first pixel. Pixel (x, y) combines the source's pixels (x - anchor.x + i, y - anchor.y +
//              j), 0 <= i < mask.width, 0 <= j < mask.height: all of them must be readable, nothing else is read
//   dst        the result's first pixel; must not overlap what is read
//   mask       columns and rows of the mask, any number from 1
//   anchor     the cell of the mask that lies on the pixel
//   allocator  pays for the rows of a strip; nothing is kept
//
// Channels are filtered apart. c3x: the destination's fourth stays as it is.
//
// box         integers: the mean of the exact sum, the nearest, of two the even one. Floats: the sum in double, times
//             the reciprocal of the area, rounded to float. NaN and infinities are in the means of exactly the masks
//             that hold them; all NaN have the same bits. The order of the sum depends on the mask's size and a pixel's
//             place in the region, which shows only where double rounds: where the magnitudes under a mask differ by
//             more than 2^29 / area
// filter_min, filter_max   floats in IEEE 754's total order, of NaN too: -NaN < -inf < ... < -0 < +0 < ... < inf < NaN
//
// Statuses: kNull, kBadSize (size not positive), kBadArg (a side of the mask not positive, an anchor outside of the
// mask), kNoMemory.
#pragma once

#include "kernels/base/kernel.h"

namespace tarn::k {

using Filter = Status(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size, Size mask,
                      Offset anchor, const Allocator& allocator);
#define TARN_ARITY_Filter 8

#define KERNELS(op, Fn, types, forms) TARN_KERNELS(op, Fn, types, forms)
#include "kernels/filter/filter.def"
#undef KERNELS

}  // namespace tarn::k
