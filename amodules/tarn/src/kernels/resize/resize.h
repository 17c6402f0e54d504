// Resizes: a region of a source plane resampled to the whole of a destination plane.
//
//   src, src_size  the whole source plane; neighbours outside of the region but inside the source are read, outside of
//                  the source the edge pixel repeats
//   region         in pixels of the source; must lie in it
//   dst            must not overlap the source; dst_rows: which rows of the destination plane it is, by default all
//   allocator      pays for tables and a few rows; nothing is kept
//
// Output d of an axis lies at source coordinate (d + 0.5) * region / dst - 0.5, computed exactly. Nearest takes the
// pixel whose centre is closest (between two: the right, lower one). Linear blends 2 x 2 pixels, cubic 4 x 4
// (Catmull-Rom: R. Keys, "Cubic convolution interpolation for digital image processing", 1981, a = -1/2), Lanczos 6 x 6
// (C. Duchon, "Lanczos filtering in one and two dimensions", 1979, three lobes, weights normalised to 1). The taps stay
// that many when the image shrinks. Rounding is to the nearest, once, at the end: 8-bit results lie within 0.5 + 1/32
// of the real value, 16-bit results within 0.5 + 1/16, saturated; float results within 4 units in the last place of the
// largest of the pixels blended, their sums by row and the result. Every product and every sum of floats is rounded: of
// 1.6 million random pixels the worst was 3.4 such units off (Lanczos), .58 in the root mean square. Fused sums would
// be 2.8 and .46, and two to seven times as slow where they must be emulated. A NaN in a float result is always the
// same one, positive, quiet, without payload; it comes of a NaN or an infinity anywhere among the blended pixels, even
// at weight 0. Planes of equal size are copied.
//
// resize_u8_...: of bytes to a wider type, with the bits that the source widened first would give.
//
// Statuses: kNull, kBadSize (a size of the region or a plane is not positive), kBadArg (the region leaves the source,
// or the rows the destination), kNoMemory.
#pragma once

#include "kernels/base/kernel.h"

namespace tarn::k {

// A plane's size, and which of its rows, [top, bottom), are meant.
struct PlaneRows {
    constexpr PlaneRows(Size size) : PlaneRows(size, 0, size.height) {}
    constexpr PlaneRows(Size size, int32_t top, int32_t bottom) : size(size), top(top), bottom(bottom) {}
    Size size;
    int32_t top, bottom;
};

using Resize = Status(const void* src, int32_t src_stride, Size src_size, Region region, void* dst, int32_t dst_stride,
                      PlaneRows dst_rows, const Allocator& allocator);
#define TARN_ARITY_Resize 8

#define KERNELS(op, Fn, types, forms) TARN_KERNELS(op, Fn, types, forms)
#include "kernels/resize/resize.def"
#undef KERNELS

}  // namespace tarn::k
