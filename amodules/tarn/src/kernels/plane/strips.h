// For kernel sources only: a plane worked on in strips of columns, narrow enough that what a strip needs stays in the
// first-level cache, and strips in bands of rows.
#pragma once

#include "kernels/base/body.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Rows of a band. A row of a strip is short and lies in a memory page of its own: of a tall image a whole strip would
// touch more pages than the processor keeps translated. A single strip is whole rows, and needs no bands.
constexpr int64_t kBandRows = 512;

// What is worked on at a time: columns [x, x + width), rows [top, bottom).
struct Tile {
    int64_t x, width, top, bottom;
};

// The width of a plane's strips: nearly equal, at most `most`, multiples of `unit`.
inline int64_t strip_width(int64_t width, int64_t most, int64_t unit) {
    const int64_t strips = (width + most - 1) / most;
    return min(most, ((width + strips - 1) / strips + unit - 1) / unit * unit);
}

// f(tile) for every strip of every band. Strips are nearly equal, at most `most` wide, and multiples of `unit` but for
// the last of a band.
template <class F>
inline void each_tile(int64_t width, int64_t height, int64_t most, int64_t unit, F f) {
    const int64_t step = strip_width(width, most, unit), rows = step < width ? kBandRows : height;
    for (int64_t top = 0; top < height; top += rows)
        for (int64_t x = 0; x < width; x += step) f(Tile{x, min(step, width - x), top, min(height, top + rows)});
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
