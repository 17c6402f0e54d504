// Commands of value conversion, origin and reshaping.
#include <cstring>

#include "batch.h"
#include "commands.h"
#include "error.h"
#include "options.h"

namespace tarn::tool {
namespace {

struct Options {
    Files files;
    std::string depth = "same", scale, offset, range, size;
};

// u16 samples lie 32768 lower in memory.
double bias(Sample sample) { return sample == Sample::u16 ? kOffset16 : 0; }

void run_convert_scale(const Options& options) {
    constexpr Sample kDepths[] = {Sample::u8, Sample::u16, Sample::s16, Sample::s32, Sample::f32};
    const size_t depth = parse_word(options.depth, "--depth", {"same", "u8", "u16", "s16", "s32", "f32"});
    ImageOutput out(options.files);
    Image source = read_input(options.files);
    const int colours = source.shape.channels - source.has_alpha();
    const auto scale = parse_per_channel(options.scale.empty() ? "1" : options.scale, "--scale", colours),
               offset = parse_per_channel(options.offset.empty() ? "0" : options.offset, "--offset", colours);

    Shape shape = source.shape;
    if (depth) shape.sample = kDepths[depth - 1];
    if (shape.sample != source.shape.sample) shape.white_is_zero = false;
    out.check(shape);
    if (shape.sample == Sample::u32)
        fail("--depth", "is missing, and u32 samples can't be written", "add --depth f32, or another");
    // Opaque stays opaque, whatever the colours are scaled by.
    const double full = opaque(source.shape.sample), new_full = opaque(shape.sample);
    const double alpha_scale = full && new_full ? new_full / full : 1;
    // Kinds that the operation does not take, s32 with a scale or offset among them, go by floats.
    const bool plain = options.scale.empty() && options.offset.empty();
    const auto by_floats = [&](Sample s) {
        return s == Sample::u16 || s == Sample::u32 || (s == Sample::s32 && !plain);
    };
    if (by_floats(source.shape.sample)) source = as_floats(source);
    Shape worked = shape;
    if (by_floats(shape.sample)) worked.sample = Sample::f32;

    const Module module;
    Timing timing{options.files.time};
    Operation convert(module, "tarn::convert-scale", timing);
    Image result = by_parts(source, worked, options.files.inputs[0], [&](Image& to, const Image& from, bool alpha) {
        LumoMAT dst = to.view();
        const LumoMAT src = from.view();
        float scales[4], offsets[4];
        for (int c = 0; c < to.shape.channels; ++c) {
            scales[c] = static_cast<float>(alpha ? alpha_scale : scale[static_cast<size_t>(c)]);
            offsets[c] = static_cast<float>(alpha ? 0 : offset[static_cast<size_t>(c)]);
        }
        convert.call<TarnConvertScale>(describe(from.shape) + " to " + describe(to.shape), &dst, &src, scales, offsets);
    });
    out.write(from_floats(std::move(result), shape));
    print_time(options.files, timing);
}

void copy_pixels(Image& to, const Image& from) {
    for (int64_t y = 0; y < from.shape.height; ++y) std::memcpy(to.row(y), from.row(y), from.row_bytes());
}

// Runs work(picture) in place on the colours of the input and, where alpha_too, on its alpha alone; writes the result.
// In place a call can't be repeated, so --time measures one.
template <class Work>
void in_place(const Options& options, const char* operation, bool alpha_too, Work&& work) {
    ImageOutput out(options.files);
    const Image source = read_input(options.files);
    out.check(source.shape);
    const Module module;
    Timing timing{false};
    Operation op(module, operation, timing);
    Image result =
        by_parts(source, source.shape, options.files.inputs[0], [&](Image& to, const Image& from, bool alpha) {
            copy_pixels(to, from);
            if (!alpha || alpha_too) work(op, to);
        });
    out.write(std::move(result));
    print_time(options.files, timing);
}

// The same on a list of arrays: each channel of the picture is one.
template <class Work>
void in_place_list(const Options& options, const char* operation, bool alpha_too, Work&& work) {
    in_place(options, operation, alpha_too, [&](Operation& op, Image& image) {
        std::vector<Image> planes;
        for (int c = 0; c < image.shape.channels; ++c) planes.push_back(take_channels(image, c, 1));
        std::vector<LumoMAT> views;
        for (const Image& plane : planes) views.push_back(plane.view());
        std::vector<LumoMAT*> list;
        for (LumoMAT& view : views) list.push_back(&view);
        work(op, image, list);
        for (size_t c = 0; c < planes.size(); ++c) put_channels(image, planes[c], static_cast<int>(c));
    });
}

struct Range {
    float ends[2];
};
Range range_for(const Options& options, const Image& image) {
    if (!opaque(image.shape.sample))
        fail(options.files.inputs[0],
             std::string("has ") + sample_name(image.shape.sample) + " samples, and u8, u16, s16 and f32 are stretched",
             "convert it first with tarn convert-scale --depth f32");
    const auto ends = parse_numbers(options.range, "--range", 2);
    return {{static_cast<float>(ends[0] - bias(image.shape.sample)),
             static_cast<float>(ends[1] - bias(image.shape.sample))}};
}

void run_reshape(const Options& options) {
    const PixelSize size = parse_size(options.size, "--size");
    ImageOutput out(options.files);
    const Image source = read_input(options.files);
    Shape shape = source.shape;
    shape.width = size.width;
    shape.height = size.height;
    if (shape.width * shape.height != source.shape.width * source.shape.height)
        fail("--size",
             "has " + std::to_string(shape.width * shape.height) + " pixels and the picture " +
                 std::to_string(source.shape.width * source.shape.height),
             "give a width and a height with the same product");
    out.check(shape);
    const Module module;
    Timing timing{options.files.time};
    Operation reshape(module, "tarn::reshape", timing);
    Image result = by_parts(source, shape, "--size", [&](Image& to, const Image& from, bool) {
        LumoMAT dst = to.view(), src = from.view();
        // The operation moves bits, and knows four bytes by the name of the signed kind.
        if (shape.sample == Sample::u32) dst.elemtype = src.elemtype = LUMO_S32 | LUMO_CHANNELS(to.shape.channels);
        reshape.call<TarnReshape>(describe(from.shape) + " to " + describe(to.shape), &dst,
                                  static_cast<const LumoMAT*>(&src), 0u);
    });
    out.write(std::move(result));
    print_time(options.files, timing);
}

std::shared_ptr<Options> add_common(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    add_pictures(app, options->files);
    return options;
}

void add_range(CLI::App& app, Options& options) {
    add_option(app, "--range", options.range, "what the smallest and the largest value become")
        .type_name("LO,HI")
        .required();
}

}  // namespace

Run setup_convert_scale(CLI::App& app) {
    const auto options = add_common(app);
    add_option(app, "--depth", options->depth,
               "samples of the result: same (default), u8, u16, s16, s32 or f32; values saturate")
        .type_name("TYPE");
    add_option(app, "--scale", options->scale, "factor, one for all colour channels or one for each (default: 1)")
        .type_name("F[,F,F]");
    add_option(app, "--offset", options->offset, "what is added after that (default: 0)").type_name("V[,V,V]");
    return each_picture(options->files, [options] { run_convert_scale(*options); });
}

Run setup_cvtvrange_n(CLI::App& app) {
    const auto options = add_common(app);
    add_range(app, *options);
    return each_picture(options->files, [options] {
        in_place_list(
            *options, "tarn::cvtvrange-n", false, [&](Operation& op, Image& image, std::vector<LumoMAT*>& list) {
                const Range range = range_for(*options, image);
                op.call<TarnCvtvrangeN>(describe(image.shape), uint64_t(list.size()), list.data(), range.ends);
            });
    });
}

Run setup_cvtvrange_v(CLI::App& app) {
    const auto options = add_common(app);
    add_range(app, *options);
    return each_picture(options->files, [options] {
        in_place(*options, "tarn::cvtvrange-v", false, [&](Operation& op, Image& image) {
            const Range range = range_for(*options, image);
            LumoMAT array = image.view();
            op.call<TarnCvtvrangeV>(describe(image.shape), &array, range.ends);
        });
    });
}

Run setup_cvtorigin(CLI::App& app) {
    const auto options = add_common(app);
    return each_picture(options->files, [options] {
        in_place(*options, "tarn::cvtorigin", true, [&](Operation& op, Image& image) {
            LumoMAT array = image.view();
            op.call<TarnCvtorigin>(describe(image.shape), &array, 0u, 1u);
        });
    });
}

Run setup_cvtorigin_n(CLI::App& app) {
    const auto options = add_common(app);
    return each_picture(options->files, [options] {
        in_place_list(*options, "tarn::cvtorigin-n", true,
                      [&](Operation& op, Image& image, std::vector<LumoMAT*>& list) {
                          op.call<TarnCvtoriginN>(describe(image.shape), uint64_t(list.size()), list.data(), 0u, 1u);
                      });
    });
}

Run setup_reshape(CLI::App& app) {
    const auto options = add_common(app);
    add_option(app, "--size", options->size, "new width and height, as many pixels as before")
        .type_name("WxH")
        .required();
    return each_picture(options->files, [options] { run_reshape(*options); });
}

}  // namespace tarn::tool
