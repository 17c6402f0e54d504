// The outlines of a binary image by another way than the module's: regions are labelled by flood fill, the sides of
// their pixels collected, chained corner by corner, and nested by looking which holes hold a region's pixel.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace tarn::test {

using Points = std::vector<std::pair<int32_t, int32_t>>;  // x, y

struct Bitmap {
    int width, height;
    std::vector<uint8_t> pixels;  // 0 or not
    int at(int x, int y) const { return pixels[std::size_t(y) * width + x] > 0; }
};

// One outline: the polygon clockwise from its least rotation, and the polygon it lies in (empty: none).
struct Outline {
    Points points;
    int value;  // of the region that it encloses
    int kind;   // 1: known as a hole only
    Points parent;
    auto operator<=>(const Outline&) const = default;
};

// Twice the signed area; positive when clockwise as seen with y downwards.
int64_t twice_area(const Points& points);

// Clockwise, beginning at the rotation that compares least.
Points canonical(Points points);

// All outlines that tarn::contour::find must deliver, sorted.
std::vector<Outline> reference_outlines(const Bitmap& image, uint32_t flags);

}  // namespace tarn::test
