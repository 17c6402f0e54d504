// Rows as bits, and where outlines turn between two of them.
//
// A row of bits has (width + 63) / 64 words of 64 bits; bit i of word w is pixel 64 w + i.
#pragma once

#include "kernels/base/kernel.h"

namespace tarn::k {

// A stretch of outline on the line between two rows: along it, of the pixels above and below the line one is set and
// the other is not, everywhere the same one. At either end the outline goes on along a vertical edge, up or down.
struct Stretch {
    int32_t x[2];   // its left and right end, 0 <= x[0] < x[1] <= width
    uint8_t up[2];  // at each end, 1: goes on upwards, 0: downwards
    uint8_t above;  // 1: the row above is set along the stretch, 0: the row below
    uint8_t unused;
};

// Bits of rows: bit x is set where (pixel > 0) == (value != 0); bits behind the width are clear.
using Binarise = Status(const void* src, int32_t src_stride, void* bits, int32_t bits_stride, Size size, int32_t value);

// The stretches on the line between two rows of bits, from left to right; outside of the rows nothing is set. Where two
// of them meet, four edges do: when set pixels that touch at a corner belong together (diagonal), the outlines pass so
// that the set pixels are joined, else so that they are parted. With an empty row above the stretches are the row's
// runs.
//   above, below  rows of bits; what is behind the width is ignored
//   stretches     room for width of them; only so many are written as there are
//   count         how many there are
using FindStretches = Status(const void* above, const void* below, int32_t width, int32_t diagonal, Stretch* stretches,
                             int32_t* count);

#define KERNEL(name, Fn) TARN_KERNEL(name, Fn)
#include "kernels/contour/contour.def"
#undef KERNEL

}  // namespace tarn::k
