// Commands of the element-wise operations. They work on the colour channels; alpha comes from the first picture as it
// is.
#include "elementwise.h"

#include <cmath>
#include <cstring>
#include <span>

#include "batch.h"
#include "commands.h"
#include "error.h"
#include "kinds.h"
#include "options.h"
#include "progress.h"

namespace tarn::tool {
namespace {
void flip_all(Image& image) {
    for (uint8_t* row : image.rows()) flip_offset16(row, size_t(image.shape.width) * size_t(image.shape.channels));
}
}  // namespace

Image take_samples(Image image, const std::string& name, const Takes& takes) {
    require_samples(image, name, takes.command, samples_of(std::string("tarn::") + takes.command, "", takes.brought));
    if (image.shape.sample != Sample::u16) return image;
    if (takes.wide == Wide::value) return as_floats(image);
    if (takes.wide == Wide::bits) flip_all(image);
    return image;
}

namespace {
struct Options {
    Files files;
    std::string constants, mask, comparison;
    bool wrap = false;
};

// The inputs in the form that the operation needs. given: what they were like in their files.
std::vector<Image> take_inputs(const Files& files, const Takes& takes, Shape& given) {
    std::vector<Image> images = read_equal_inputs(files);
    given = images[0].shape;
    for (size_t i = 0; i < images.size(); ++i) images[i] = take_samples(std::move(images[i]), files.inputs[i], takes);
    return images;
}

// Of the picture without its alpha.
Shape colour_shape(const Image& image) {
    Shape shape = image.shape;
    if (image.has_alpha()) --shape.channels, shape.alpha = Alpha::none;
    return shape;
}

// The colour channels of pictures, without a copy where there are no others.
class Colours {
public:
    explicit Colours(const std::vector<Image>& images) {
        for (const Image& image : images)
            if (image.has_alpha()) parts_.push_back(take_channels(image, 0, image.shape.channels - 1));
        for (size_t i = 0; i < images.size(); ++i) views_.push_back((parts_.empty() ? images[i] : parts_[i]).view());
        for (const LumoMAT& view : views_) list_.push_back(&view);
    }
    const std::vector<const LumoMAT*>& list() const { return list_; }

private:
    std::vector<Image> parts_;
    std::vector<LumoMAT> views_;
    std::vector<const LumoMAT*> list_;
};

enum class Result { like_first, mask };  // a picture like the first one, or one u8 channel

// Reads, calls call(operation, destination, sources, shape of the sources), writes.
template <class Call>
void run_colours(const Files& files, const Takes& takes, Result kind, Call&& call) {
    ImageOutput out(files);
    Shape given;
    std::vector<Image> images = take_inputs(files, takes, given);
    const Shape shape = kind == Result::mask ? Shape{given.width, given.height} : given;
    out.check(shape);
    const Colours colours(images);
    Image result = Image::make(kind == Result::mask ? shape : colour_shape(images[0]), files.inputs[0]);
    const Module module;
    Timing timing{files.time};
    Operation operation(module, std::string("tarn::") + takes.command, timing);
    LumoMAT dst = result.view();
    call(operation, dst, std::span(colours.list()), given);
    if (result.shape.channels != shape.channels) {
        put_channels(images[0], result, 0);
        result = std::move(images[0]);
    }
    if (takes.wide == Wide::bits && result.shape.sample == Sample::u16) flip_all(result);
    out.write(from_floats(std::move(result), shape));
    print_time(files, timing);
}

std::vector<float> floats(const std::vector<double>& values) { return {values.begin(), values.end()}; }

// The constants of so many channels. Those that integers don't hold are refused, unless the module's rule for them is
// asked for.
std::vector<double> constants_of(const Options& options, int channels, Sample sample, Wide wide) {
    std::vector<double> values =
        parse_per_channel(options.constants.empty() ? "0" : options.constants, "--constants", channels);
    const bool worked_in_floats = sample == Sample::f32 || (sample == Sample::u16 && wide == Wide::value);
    if (options.wrap && sample == Sample::u16 && worked_in_floats)
        for (double& v : values) v -= 65536 * std::floor((v = std::floor(v)) / 65536);
    if (options.wrap || worked_in_floats) return values;
    Limits held = limits(sample);
    if (wide == Wide::bits) {  // which may be given with a sign or without
        const double bits = 8 * sample_bytes(sample);
        held = {-std::exp2(bits - 1), std::exp2(bits) - 1};
    }
    for (const double v : values) {
        if (v != std::floor(v))
            fail("--constants",
                 number_text(v) + " is no whole number, and " + sample_name(sample) + " samples hold no others",
                 "give a whole number, or --wrap to have it made one");
        require_value(v, held, sample, "--constants", ", or --wrap to take the low bits");
    }
    return values;
}

std::vector<uint32_t> words(const std::vector<double>& values) {
    std::vector<uint32_t> all;
    for (const double v : values) {
        if (v != std::floor(v) || v < -2147483648.0 || v > 4294967295.0)
            usage("--constants", "a value is no whole number of 32 bits", "give values from -2147483648 to 4294967295");
        all.push_back(uint32_t(int64_t(v)));
    }
    return all;
}

void add_constants(CLI::App& app, Options& options, const char* text) {
    add_option(app, "-c,--constants", options.constants, text).type_name("V[,V,V]");
    add_flag(app, "--wrap", options.wrap,
             "take constants that the samples don't hold by their low bits, as the module does");
}

Run setup_logic(CLI::App& app, const char* name) {
    const auto options = std::make_shared<Options>();
    add_inputs(app, options->files, 2, 2);
    add_image_output(app, options->files);
    return [options, name] {
        run_colours(options->files, {name, Wide::bits}, Result::like_first,
                    [](Operation& operation, LumoMAT& dst, std::span<const LumoMAT* const> src, const Shape& shape) {
                        operation.call<TarnLogic>(describe(shape), &dst, src[0], src[1]);
                    });
    };
}

Run setup_logic_c(CLI::App& app, const char* name) {
    const auto options = std::make_shared<Options>();
    add_pictures(app, options->files);
    add_constants(app, *options, "whole numbers, one or one for each colour channel");
    return each_picture(options->files, [options, name] {
        if (options->constants.empty())
            usage("--constants", "is missing", "give whole numbers such as 15 or 240,15,255");
        run_colours(options->files, {name, Wide::bits}, Result::like_first,
                    [&](Operation& operation, LumoMAT& dst, std::span<const LumoMAT* const> src, const Shape& shape) {
                        const auto values =
                            words(constants_of(*options, int(dst.elemtype >> 12), shape.sample, Wide::bits));
                        operation.call<TarnLogicC>(describe(shape), &dst, src[0], values.data());
                    });
    });
}

Run setup_arith_c(CLI::App& app, const char* name) {
    const auto options = std::make_shared<Options>();
    add_pictures(app, options->files);
    add_constants(
        app, *options,
        "one value or one for each colour channel; u8 and s16 pictures take whole numbers (with --wrap the floor, of "
        "which the low 8 or 16 bits count: -1 adds 255 to u8); u16 pictures any, as they are worked on in floats and "
        "the result is rounded, ties to even");
    return each_picture(options->files, [options, name] {
        if (options->constants.empty()) usage("--constants", "is missing", "give values such as 20 or 1.5,2,0.5");
        run_colours(options->files, {name, Wide::value}, Result::like_first,
                    [&](Operation& operation, LumoMAT& dst, std::span<const LumoMAT* const> src, const Shape& shape) {
                        const auto values =
                            floats(constants_of(*options, int(dst.elemtype >> 12), shape.sample, Wide::value));
                        operation.call<TarnArithC>(describe(shape), &dst, src[0], values.data());
                    });
    });
}

// The comparison's code in the module.
uint32_t comparison_code(const std::string& text) {
    return TARN_LESS +
           uint32_t(parse_word(text, "--comparison", {"less", "less-equal", "equal", "greater-equal", "greater"}));
}

void add_comparison(CLI::App& app, Options& options) {
    add_option(app, "--comparison", options.comparison,
               "less, less-equal, equal, greater-equal or greater; has to hold in every colour channel")
        .required()
        .type_name("HOW");
}

}  // namespace

Run setup_copy(CLI::App& app) {
    const auto files = std::make_shared<Files>();
    add_pictures(app, *files);
    return each_picture(*files, [files] {
        ImageOutput out(*files);
        const Image source = read_input(*files);
        out.check(source.shape);
        const Module module;
        Timing timing{files->time};
        Operation copy(module, "tarn::copy", timing);
        Image result = by_parts(source, source.shape, files->inputs[0], [&](Image& to, const Image& from, bool) {
            LumoMAT dst = to.view();
            const LumoMAT src = from.view();
            copy.call<TarnCopy>(describe(source.shape), &dst, &src);
        });
        out.write(std::move(result));
        print_time(*files, timing);
    });
}

Run setup_and(CLI::App& app) { return setup_logic(app, "and"); }
Run setup_or(CLI::App& app) { return setup_logic(app, "or"); }
Run setup_xor(CLI::App& app) { return setup_logic(app, "xor"); }
Run setup_and_c(CLI::App& app) { return setup_logic_c(app, "and-c"); }
Run setup_or_c(CLI::App& app) { return setup_logic_c(app, "or-c"); }
Run setup_xor_c(CLI::App& app) { return setup_logic_c(app, "xor-c"); }
Run setup_add_c(CLI::App& app) { return setup_arith_c(app, "add-c"); }
Run setup_sub_c(CLI::App& app) { return setup_arith_c(app, "sub-c"); }
Run setup_mul_c(CLI::App& app) { return setup_arith_c(app, "mul-c"); }

Run setup_not(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    add_pictures(app, options->files);
    return each_picture(options->files, [options] {
        run_colours(options->files, {"not", Wide::bits, {Sample::u16, Sample::s16, Sample::s32}}, Result::like_first,
                    [](Operation& operation, LumoMAT& dst, std::span<const LumoMAT* const> src, const Shape& shape) {
                        // The operation takes bytes, and the complement of bytes is that of what they make up.
                        LumoMAT from = *src[0];
                        from.width = dst.width *= int32_t(dst.elemtype >> 12) * sample_bytes(shape.sample);
                        from.elemtype = dst.elemtype = LUMO_U8 | LUMO_CHANNELS(1);
                        operation.call<TarnNot>(describe(shape), &dst, &from);
                    });
    });
}

Run setup_cmp(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    add_inputs(app, options->files, 2, 2);
    add_image_output(app, options->files);
    add_comparison(app, *options);
    return [options] {
        const uint32_t code = comparison_code(options->comparison);
        run_colours(
            options->files, {"cmp", Wide::order}, Result::mask,
            [code](Operation& operation, LumoMAT& dst, std::span<const LumoMAT* const> src, const Shape& shape) {
                operation.call<TarnCmp>(describe(shape), &dst, src[0], src[1], code);
            });
    };
}

Run setup_cmp_c(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    add_pictures(app, options->files);
    add_comparison(app, *options);
    add_constants(
        app, *options,
        "one value or one for each colour channel; integer pictures take whole numbers (with --wrap the nearest "
        "one, of which the low 8 or 16 bits count: 300 is 44 for u8)");
    return each_picture(options->files, [options] {
        const uint32_t code = comparison_code(options->comparison);
        if (options->constants.empty()) usage("--constants", "is missing", "give values such as 128 or 10,20,30");
        run_colours(options->files, {"cmp-c", Wide::order}, Result::mask,
                    [&](Operation& operation, LumoMAT& dst, std::span<const LumoMAT* const> src, const Shape& shape) {
                        auto values =
                            floats(constants_of(*options, int(src[0]->elemtype >> 12), shape.sample, Wide::order));
                        if (shape.sample == Sample::u16)
                            for (float& v : values) v = std::round(v) - kOffset16;
                        operation.call<TarnCmpC>(describe(shape), &dst, src[0], values.data(), code);
                    });
    });
}

Run setup_set(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    add_pictures(app, options->files);
    add_constants(
        app, *options,
        "one value or one for each colour channel (default: 0); integer pictures take whole numbers (with --wrap "
        "the floor, of which the low 8, 16 or 32 bits count)");
    add_option(app, "--mask", options->mask,
               "grey u8 picture of the same size: only where it is not 0 is the picture filled")
        .type_name("FILE");
    return each_picture(options->files, [options] {
        const Takes takes{"set", Wide::order};
        Image mask;
        LumoMAT mask_view = {};
        if (!options->mask.empty()) {
            mask = read_image(options->mask);
            if (mask.shape.channels != 1 || mask.shape.sample != Sample::u8)
                fail(options->mask, "is " + describe(mask.shape), "give a mask with one channel of u8 samples");
            mask_view = mask.view();
        }
        run_colours(
            options->files, takes, Result::like_first,
            [&](Operation& operation, LumoMAT& dst, std::span<const LumoMAT* const> src, const Shape& shape) {
                if (mask_view.data && (mask_view.width != dst.width || mask_view.height != dst.height))
                    fail(options->mask,
                         "is " + describe(mask.shape) + " but " + options->files.inputs[0] + " is " + describe(shape),
                         "give a mask of the picture's size");
                const int channels = int(dst.elemtype >> 12);
                auto values = floats(constants_of(*options, channels, shape.sample, Wide::order));
                if (shape.sample == Sample::u16)
                    for (float& v : values) v = std::floor(v) - kOffset16;
                for (int y = 0; y < dst.height; ++y)
                    std::memcpy(static_cast<uint8_t*>(dst.data) + int64_t(y) * dst.stride,
                                static_cast<const uint8_t*>(src[0]->data) + int64_t(y) * src[0]->stride,
                                size_t(dst.width) * size_t(channels) * size_t(sample_bytes(shape.sample)));
                operation.call<TarnSet>(describe(shape), &dst, values.data(), mask_view.data ? &mask_view : nullptr);
            });
    });
}

}  // namespace tarn::tool
