// Rows as bits, and where outlines turn between two of them.
//
// A row of bits has (width + 63) / 64 words of 64 bits; bit i of word w is pixel 64 w + i.
#pragma once

#include "kernels/kernel.h"

namespace tarn::k {

// A pixel corner on the line between two rows, at which an outline turns or meets another: a vertical and a horizontal edge
// between unequal pixels end here.
struct Corner {
    int32_t x;       // 0..width
    uint32_t edges;  // bits below
};
enum : uint32_t {
    kEdgeUp = 1,    // the pixels left and right of the corner differ in the row above
    kEdgeLeft = 2,  // the pixels above and below the line differ to the left of the corner
    kEdgeRight = 4, // ... to the right of it
    kAboveSet = 8,  // the pixel above and to the right is set
};

// Bits of rows: bit x is set where (pixel > 0) == (value != 0); bits behind the width are clear.
using Binarise = Status(const void* src, int32_t src_stride, void* bits, int32_t bits_stride, Size size, int32_t value);

// The corners on the line between two rows of bits, from left to right; outside of the rows nothing is set. The corners
// that differ from a straight line only. With the same row above there are none; with an empty row above they are the ends
// of the row's runs.
//   above, below  rows of bits; what is behind the width is ignored
//   corners       room for width + 1; only so many are written as there are
//   count         how many there are
using FindCorners = Status(const void* above, const void* below, int32_t width, Corner* corners, int64_t* count);

#define KERNEL(name, Fn) TARN_KERNEL(name, Fn)
#include "kernels/contour.def"
#undef KERNEL

}  // namespace tarn::k
