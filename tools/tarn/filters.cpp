// Commands of borders and rectangular filters. Alpha is worked on by itself, as one more channel.
#include <algorithm>

#include "batch.h"
#include "commands.h"
#include "error.h"
#include "kinds.h"
#include "options.h"
#include "progress.h"

namespace tarn::tool {
namespace {

// ---- Borders ------------------------------------------------------------------------------------------------------

struct Copymkb {
    Files files;
    std::string border, kind = "replicate", values;
};

void run_copymkb(const Copymkb& options) {
    const Files& files = options.files;
    const auto widths = parse_integers(options.border, "--border", 4, -1, INT32_MAX);
    if (widths[0] < 0 || widths[1] < 0)
        usage("--border", "'" + options.border + "' has a left or top width below 0",
              "give these from 0 on; only right and bottom may be -1, for as wide as left and top");
    const bool constant = parse_word(options.kind, "--kind", {"replicate", "constant"});
    if (!constant && !options.values.empty())
        usage("--value", "can't go with a replicated border", "add --kind constant");

    ImageOutput out(files);
    const Image source = read_input(files);
    require_samples(source, files.inputs[0], "copymkb", samples_of("tarn::copymkb"));
    const auto values = constant ? parse_pixel(options.values.empty() ? "0" : options.values, "--value", source.shape)
                                 : std::vector<float>(4);
    Shape shape = source.shape;
    shape.width += widths[0] + (widths[2] < 0 ? widths[0] : widths[2]);
    shape.height += widths[1] + (widths[3] < 0 ? widths[1] : widths[3]);
    out.check(shape);

    const Module module;
    Timing timing{files.time};
    Operation copymkb(module, "tarn::copymkb", timing);
    const Progress progress("making a border around " + files.inputs[0]);
    Image result = by_parts(source, shape, "--border", [&](Image& to, const Image& from, bool alpha) {
        TarnBORDER border = {int32_t(widths[0]), int32_t(widths[1]), int32_t(widths[2]), int32_t(widths[3]), {}};
        for (int c = 0; c < to.shape.channels; ++c)
            border.values[c] = values[size_t(alpha ? source.shape.channels - 1 : c)];
        LumoMAT dst = to.view();
        const LumoMAT src = from.view();
        copymkb.call<TarnCopymkb>(describe(from.shape) + " to " + describe(to.shape), &dst, &src,
                                  uint32_t(constant ? TARN_BORDER_CONSTANT : TARN_BORDER_REPLICATE), &border);
    });
    out.write(std::move(result));
    print_time(files, timing);
}

// ---- Filters ------------------------------------------------------------------------------------------------------

struct Filter {
    Files files;
    std::string kind, size, anchor, region;
};

TarnMASK parse_mask(const Filter& options) {
    const PixelSize size = parse_size(options.size, "--size");
    const PixelSize last = {size.width - 1, size.height - 1};
    if (options.anchor.empty())
        return {uint32_t(last.width / 2), uint32_t(last.height / 2), uint32_t(size.width), uint32_t(size.height)};
    const auto anchor = parse_integers(options.anchor, "--anchor", 2, INT32_MIN, INT32_MAX);
    if (anchor[0] < 0 || anchor[0] > last.width || anchor[1] < 0 || anchor[1] > last.height)
        usage("--anchor", "'" + options.anchor + "' lies outside of the " + options.size + " mask",
              "give a cell from 0,0 to " + std::to_string(last.width) + "," + std::to_string(last.height));
    return {uint32_t(anchor[0]), uint32_t(anchor[1]), uint32_t(size.width), uint32_t(size.height)};
}

void run_filter(const Filter& options) {
    const Files& files = options.files;
    const uint32_t kind =
        TARN_FILTER_BOX + uint32_t(parse_word(options.kind, "--kind", {"box", "min", "max", "median"}));
    const TarnMASK mask = parse_mask(options);

    ImageOutput out(files);
    const Image source = read_input(files);
    require_samples(source, files.inputs[0], "filter --kind " + options.kind,
                    samples_of("tarn::filter", kind == TARN_FILTER_MEDIAN ? "median" : ""));
    const LumoRECT region = parse_region(options.region, "--region", source, files.inputs[0]);
    Shape shape = source.shape;
    shape.width = region.right - region.left;
    shape.height = region.bottom - region.top;
    out.check(shape);
    // Where the picture ends too early the operation works on a copy that reaches as far as the mask.
    Shape extended = shape;
    extended.width += 2 * int64_t(std::max(mask.anchor_x, mask.width - mask.anchor_x));
    extended.height += 2 * int64_t(std::max(mask.anchor_y, mask.height - mask.anchor_y));
    Image::stride_for(extended, "--size");

    const Module module;
    Timing timing{files.time};
    Operation filter(module, "tarn::filter", timing);
    const Progress progress("filtering " + files.inputs[0]);
    Image result = by_parts(source, shape, "--region", [&](Image& to, const Image& from, bool) {
        LumoMAT dst = to.view();
        const LumoMAT src = from.view();
        filter.call<TarnFilter>(describe(to.shape) + ", under a mask of " + options.size, &dst, &src, &region, kind,
                                &mask);
    });
    out.write(std::move(result));
    print_time(files, timing);
}
}  // namespace

Run setup_copymkb(CLI::App& app) {
    const auto options = std::make_shared<Copymkb>();
    add_pictures(app, options->files);
    add_option(app, "--border", options->border,
               "widths of the border in pixels: left, top, right, bottom; a right or bottom of -1 is as wide as "
               "left or top")
        .required()
        .type_name("L,T,R,B");
    add_option(app, "--kind", options->kind,
               "replicate (default): repeat the picture's edge pixels; constant: fill with --value")
        .type_name("KIND");
    add_option(app, "--value", options->values,
               "of a constant border: one for all colour channels or one for each (default: 0), then one for "
               "alpha (default: opaque); integer pictures take the floor")
        .type_name("V[,V,V,A]");
    return each_picture(options->files, [options] { run_copymkb(*options); });
}

Run setup_filter(CLI::App& app) {
    const auto options = std::make_shared<Filter>();
    add_pictures(app, options->files);
    add_option(app, "--kind", options->kind,
               "what a pixel becomes of those under the mask: box (the mean), min, max or median (of an even "
               "number the lower in the middle; not of f32)")
        .required()
        .type_name("KIND");
    add_option(app, "--size", options->size, "width and height of the mask in pixels, at least 1x1")
        .required()
        .type_name("WxH");
    add_option(app, "--anchor", options->anchor,
               "column and row of the mask that lie on the pixel, from 0 on (default: the middle, the left or "
               "upper of two)")
        .type_name("X,Y");
    add_option(app, "--region", options->region,
               "part of the picture to filter, which is the result (default: all); the mask sees the pixels "
               "around it where there are enough on every side, else the region's edge pixels repeat")
        .type_name("L,T,WxH");
    return each_picture(options->files, [options] { run_filter(*options); });
}

}  // namespace tarn::tool
