// Commands of the geometry operations.
#include <algorithm>
#include <cmath>

#include "batch.h"
#include "commands.h"
#include "error.h"
#include "options.h"
#include "progress.h"

namespace tarn::tool {
namespace {
struct ScaleResize {
    Files files;
    std::string size, scale, region, interpolation = "linear", depth = "same", value_range;
    bool antialias = false;
};

int64_t scaled(int32_t pixels, double factor) {
    const double size = std::floor(pixels * factor + 0.5);
    if (size > INT32_MAX) fail("--scale", "makes more than 2147483647 pixels a side", "choose a smaller factor");
    return size < 1 ? 1 : static_cast<int64_t>(size);
}

// The least n at which the new side times 2^n is not below the old one.
int halvings(int64_t from, int64_t to) {
    int n = 0;
    while (to << n < from) ++n;
    return n;
}

void run_scale_resize(const ScaleResize& options) {
    const Files& files = options.files;
    const bool sized = !options.size.empty() || !options.scale.empty();
    if (sized ? options.size.empty() == options.scale.empty() : options.region.empty())
        usage(options.size.empty() ? "--size" : "--scale",
              options.size.empty() ? "the new size is missing" : "can't go with --size",
              "give either --size WxH or --scale F");
    const double factor = options.scale.empty() ? 1 : parse_number(options.scale, "--scale");
    if (factor <= 0) usage("--scale", "'" + options.scale + "' is not above 0", "give a factor such as 0.5");
    const PixelSize fixed = options.size.empty() ? PixelSize{} : parse_size(options.size, "--size");
    const uint32_t interpolation = parse_interpolation(options.interpolation);
    const std::optional<Sample> depth = parse_depth(options.depth);
    uint32_t range[2] = {};
    if (!options.value_range.empty()) {
        const auto ends = parse_numbers(options.value_range, "--value-range", 2);
        for (int i = 0; i < 2; ++i) range[i] = std::bit_cast<uint32_t>(static_cast<float>(ends[i]));
    }

    ImageOutput out(files);
    Image source = read_input(files);
    const LumoRECT region = parse_region(options.region, "--region", source, files.inputs[0]);
    Shape shape = source.shape;
    shape.width = options.size.empty() ? scaled(region.right - region.left, factor) : fixed.width;
    shape.height = options.size.empty() ? scaled(region.bottom - region.top, factor) : fixed.height;
    if (depth) shape.sample = *depth;
    if (shape.sample == Sample::s16 || shape.sample == Sample::f32) shape.white_is_zero = false;
    out.check(shape);
    // What changes values is worked out in floats where 16 bits without a sign come or go.
    Shape worked = shape;
    if (depth || !options.value_range.empty()) {
        if (source.shape.sample == Sample::u16) source = as_floats(source);
        if (shape.sample == Sample::u16) worked.sample = Sample::f32;
    }

    const Module module;
    Timing timing{files.time};
    Operation resize(module, "tarn::scale-resize", timing);
    const std::string subject = options.size.empty() ? "--scale" : "--size";
    const Progress progress("resizing " + files.inputs[0]);
    const int64_t width = region.right - region.left, height = region.bottom - region.top;
    const int across = options.antialias ? halvings(width, shape.width) : 0;
    const int down = options.antialias ? halvings(height, shape.height) : 0;
    // With --antialias a side that shrinks is first brought to the new one times a power of two, which is not smaller,
    // and then halved: linear makes exact means of two by two of that. So each pixel of the result is the mean of the
    // interpolated picture over the very area that it covers. Halving first and interpolating last would be less work,
    // but fine patterns beat with the last step's grid.
    Image result = by_parts(source, worked, subject, [&](Image& to, const Image& from, bool alpha) {
        Image before;
        for (int left = std::max(across, down), first = left; left >= 0; --left) {
            Shape size = to.shape;
            size.width <<= std::min(left, across);
            size.height <<= std::min(left, down);
            if (left && left == first && size.width == width && size.height == height) continue;
            if (left) size.sample = from.shape.sample == Sample::s32 ? Sample::f32 : from.shape.sample;
            Image between = left ? Image::make(size, subject) : Image();
            LumoMAT dst = left ? between.view() : to.view();
            const LumoMAT src = before.pixels ? before.view() : from.view();
            const LumoRECT* part = before.pixels ? nullptr : &region;
            const uint32_t* values = options.value_range.empty() || alpha || left ? nullptr : range;
            resize.call<TarnScaleResize>(describe(from.shape) + " to " + describe(to.shape), &dst, &src, part, values,
                                         left == first ? interpolation : uint32_t{TARN_LINEAR});
            before = std::move(between);
        }
    });
    out.write(from_floats(std::move(result), shape));
    print_time(files, timing);
}
}  // namespace

Run setup_scale_resize(CLI::App& app) {
    const auto options = std::make_shared<ScaleResize>();
    add_pictures(app, options->files);
    add_option(app, "--size", options->size, "new width and height in pixels; for smaller ones see --antialias")
        .type_name("WxH");
    add_option(app, "--scale", options->scale,
               "new size as a multiple of the region's, at least 1 pixel (1 where a region is all that is given)")
        .type_name("F");
    add_option(app, "--region", options->region, "part of the picture to resample (default: all)").type_name("L,T,WxH");
    add_option(app, "--interpolation", options->interpolation,
               "nearest, linear (default), cubic or lanczos; these look at the 1, 2, 4 or 6 pixels nearest to a "
               "place on each axis and leave out others: to shrink, add --antialias")
        .type_name("MODE");
    add_flag(app, "--antialias", options->antialias,
             "where the picture shrinks, make each pixel the mean of all that it covers, so that fine patterns "
             "become even and edges smooth, as in a thumbnail");
    add_option(app, "--depth", options->depth,
               "samples of the result: same (default), u8, u16, s16 or f32; values saturate")
        .type_name("TYPE");
    add_option(app, "--value-range", options->value_range, "stretch the result's values to this range")
        .type_name("LO,HI");
    return each_picture(options->files, [options] { run_scale_resize(*options); });
}

}  // namespace tarn::tool
