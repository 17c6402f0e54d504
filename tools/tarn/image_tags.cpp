// What a picture file says beside its pixels: how it is to be turned, its colour profile, its resolution.
#include <algorithm>
#include <cstring>

#include "error.h"
#include "image.h"

namespace tarn::tool {
namespace {
// The same pixels, each at another place: from(x, y) is where the pixel at column x and row y comes from.
template <class From>
Image rearranged(const Image& image, bool sides_swapped, From&& from) {
    Shape shape = image.shape;
    if (sides_swapped) std::swap(shape.width, shape.height);
    Image result = Image::make(shape, "the turned picture");
    const size_t bytes = size_t(shape.channels) * size_t(sample_bytes(shape.sample));
    for (int32_t y = 0; y < result.height(); ++y)
        for (int32_t x = 0; x < result.width(); ++x) {
            const auto [column, row] = from(x, y);
            std::memcpy(result.row(y) + size_t(x) * bytes, image.row(row) + size_t(column) * bytes, bytes);
        }
    return result;
}
}  // namespace

int exif_orientation(std::span<const uint8_t> bytes) {
    if (bytes.size() < 8) return 1;
    const bool big = bytes[0] == 'M';
    const auto number = [&](size_t at, size_t count) {
        uint32_t value = 0;
        for (size_t i = 0; i < count; ++i) value |= uint32_t(bytes[at + i]) << 8 * (big ? count - 1 - i : i);
        return value;
    };
    const size_t directory = number(4, 4);
    if (directory + 2 > bytes.size()) return 1;
    const size_t entries = number(directory, 2);
    constexpr size_t kEntry = 12, kOrientation = 0x112, kShort = 3;
    for (size_t i = 0, at = directory + 2; i < entries && at + kEntry <= bytes.size(); ++i, at += kEntry)
        if (number(at, 2) == kOrientation && number(at + 2, 2) == kShort) return int(number(at + 8, 2));
    return 1;
}

Image upright(Image image, int orientation) {
    if (orientation < 2 || orientation > 8) return image;
    const int32_t right = image.width() - 1, bottom = image.height() - 1;
    const bool swapped = orientation > 4;
    // 5 to 8 are 1 to 4 with columns and rows exchanged.
    const bool from_right = orientation == 2 || orientation == 3 || orientation == 7 || orientation == 8;
    const bool from_bottom = orientation == 3 || orientation == 4 || orientation == 6 || orientation == 7;
    Image result = rearranged(image, swapped, [&](int32_t x, int32_t y) {
        if (swapped) std::swap(x, y);
        return std::pair{from_right ? right - x : x, from_bottom ? bottom - y : y};
    });
    if (swapped && result.shape.tags) {
        Tags tags = *result.shape.tags;
        std::swap(tags.across, tags.down);
        result.shape.tags = std::make_shared<const Tags>(std::move(tags));
    }
    return result;
}

void set_tags(Shape& shape, Tags tags) {
    constexpr double kMost = 1e6;  // else the file tells no resolution
    const auto is_resolution = [](double v) { return v > 0 && v < kMost; };
    if (!is_resolution(tags.across) || !is_resolution(tags.down)) tags.across = tags.down = 0;
    if (!tags.profile.empty() || tags.across > 0) shape.tags = std::make_shared<const Tags>(std::move(tags));
}

Tags tags_to_write(const Shape& shape, Format format, const std::string& path) {
    Tags tags = shape.tags ? *shape.tags : Tags{};
    if (tags.profile.empty()) return tags;
    // The kind of colours that the profile is about stands at byte 16 of it.
    constexpr size_t kSpace = 16;
    const char* const wanted = shape.channels <= 2 ? "GRAY" : "RGB ";
    const bool fits = tags.profile.size() >= kSpace + 4 && std::memcmp(tags.profile.data() + kSpace, wanted, 4) == 0;
    const bool can = format != Format::pnm && format != Format::pfm;
    if (fits && can) return tags;
    warn(path, can ? "gets no colour profile: that of the input is for other colours"
                   : "gets no colour profile: the format holds none");
    tags.profile.clear();
    return tags;
}

}  // namespace tarn::tool
