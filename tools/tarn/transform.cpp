// The command of copy-transform: pictures, or an array in a .npy file, into an array or a picture of another shape.
#include <algorithm>

#include "commands.h"
#include "error.h"
#include "npy.h"
#include "options.h"
#include "progress.h"

namespace tarn::tool {
namespace {

struct Transform {
    Files files;
    std::string size, interpolation = "linear", type = "same", colour, layout, range, input_layout = "nchw",
                      input_colour;
    bool per_channel = false;
};

// ---- Arrays -------------------------------------------------------------------------------------------------------

// In the order of the colour classes' codes.
const std::vector<std::string> kColours = {"grey", "rgb", "bgr", "bgra"};
uint32_t parse_colour(const std::string& text, const std::string& option) {
    return LUMO_CLASS_GREY + uint32_t(parse_word(text, option, kColours));
}
uint32_t class_of_channels(int64_t channels) {
    return channels == 1 ? LUMO_CLASS_GREY : channels == 3 ? LUMO_CLASS_RGB : LUMO_CLASS_BGRA;
}

// A batch of pictures: what an array of it is made of.
struct Batch {
    int64_t count, width, height;
    int channels;
    uint32_t cls;
    Sample sample;
    bool planar;
    bool wide = false;                      // floats for the values of a file's u16
    std::shared_ptr<const Tags> tags = {};  // of a picture's file

    int64_t picture_bytes() const { return width * height * channels * sample_bytes(sample); }
    std::vector<int64_t> shape() const {
        if (planar) return {count, channels, height, width};
        return {count, height, width, channels};
    }
    std::string describe() const { return tool::describe(Shape{width, height, channels, sample, Alpha::none, false}); }
};

// One picture of a batch, in rows of so many bytes (0: without gaps).
LumoARRAY array_of(const Batch& b, void* data, int64_t row = 0) {
    const int64_t element = sample_bytes(b.sample), pixel = element * (b.planar ? 1 : b.channels);
    const auto width = int32_t(b.width), height = int32_t(b.height), channels = int32_t(b.channels);
    if (row == 0) row = b.width * pixel;
    LumoARRAY array;
    if (b.planar) {
        const int32_t sizes[] = {1, channels, height, width};
        const int64_t strides[] = {row * b.height * b.channels, row * b.height, row, element};
        LumoARRPARMS(&array, 4, sizes, strides, &_G_Lumo_NCHW_arrlo, sample_type(b.sample), b.cls);
    } else {
        const int32_t sizes[] = {height, width, channels};
        const int64_t strides[] = {row, pixel, element};
        LumoARRPARMS(&array, 3, sizes, strides, &_G_Lumo_HWC_arrlo, sample_type(b.sample), b.cls);
    }
    array.data = data;
    return array;
}

// RGB and alpha in memory <-> the class of four channels, which begins with blue.
void exchange_red_and_blue(Image& image) {
    const int bytes = sample_bytes(image.shape.sample);
    for (int y = 0; y < image.height(); ++y) {
        uint8_t* pixel = image.row(y);
        for (int64_t x = 0; x < image.shape.width; ++x, pixel += 4 * bytes)
            std::swap_ranges(pixel, pixel + bytes, pixel + 2 * bytes);
    }
}

// ---- Input --------------------------------------------------------------------------------------------------------

Batch batch_of(const Tensor& tensor, const std::string& name, bool planar, const std::string& colour) {
    std::vector<int64_t> shape = tensor.shape;
    if (shape.size() == 3) shape.insert(shape.begin(), 1);
    if (shape.size() != 4)
        fail(name, "holds " + describe(tensor.shape) + ", not a batch of pictures",
             "give it four axes (batch, then channels, height, width), or three without the batch");
    Batch b{shape[0], planar ? shape[3] : shape[2], planar ? shape[2] : shape[1], 0, 0, tensor.sample, planar};
    const int64_t channels = planar ? shape[1] : shape[3];
    if (channels != 1 && channels != 3 && channels != 4)
        fail(name, "has " + std::to_string(channels) + " channels (" + describe(tensor.shape) + ")",
             "1, 3 or 4 are taken; say --input-layout hwc where the channels are the last axis");
    b.channels = int(channels);
    b.cls = colour.empty() ? class_of_channels(channels) : parse_colour(colour, "--input-colour");
    if (LumoARRCLSnchannels(b.cls) != b.channels)
        fail("--input-colour", colour + " does not have " + std::to_string(channels) + " channels", "leave it out");
    return b;
}

// Reads a picture as an array's pixels: u16 samples as floats (wide); four channels as BGRA, or without alpha where the
// result has none, which spares the operation a way that it has for bytes only.
Image read_pixels(const Transform& options, size_t index, bool& wide) {
    Image image = read_input(options.files, index);
    const std::string& name = options.files.inputs[index];
    require_samples(image, name, "copy-transform", {Sample::u8, Sample::u16, Sample::s16, Sample::s32, Sample::f32});
    if (image.shape.channels == 2)
        fail(name, "is grey with alpha; copy-transform takes grey, RGB, or RGB with alpha",
             "save it as RGB with alpha");
    wide = image.shape.sample == Sample::u16;
    if (wide) image = as_floats(image);
    if (image.shape.channels == 4 && !options.colour.empty() && options.colour != "bgra")
        return take_channels(image, 0, 3);
    if (image.shape.channels == 4) exchange_red_and_blue(image);
    return image;
}
Batch batch_of(const Image& image, size_t count) {
    const Shape& s = image.shape;
    return {int64_t(count), s.width, s.height, s.channels, class_of_channels(s.channels), s.sample, false};
}

// ---- The call -----------------------------------------------------------------------------------------------------

// What the options make of a batch.
Batch wanted(const Transform& options, const Batch& from, bool planar) {
    Batch to = from;
    to.planar = planar;
    if (!options.size.empty()) {
        const PixelSize size = parse_size(options.size, "--size");
        to.width = size.width, to.height = size.height;
    }
    constexpr Sample kTypes[] = {Sample::u8, Sample::s16, Sample::f32};
    if (const size_t type = parse_word(options.type, "--type", {"same", "u8", "s16", "f32"}))
        to.sample = kTypes[type - 1], to.wide = false;
    if (!options.colour.empty()) {
        to.cls = parse_colour(options.colour, "--colour");
        to.channels = LumoARRCLSnchannels(to.cls);
    }
    return to;
}

// Calls the operation for one picture after the other, so that only one of the inputs is in memory at a time.
class Caller {
public:
    explicit Caller(const Transform& options)
        : interpolation_(parse_interpolation(options.interpolation)),
          timing_{options.files.time},
          operation_(module_, "tarn::copy-transform", timing_) {
        if (interpolation_ == TARN_LANCZOS)
            usage("--interpolation", "'lanczos' is not among those of this operation", "give nearest, linear or cubic");
        if (options.range.empty()) {
            if (options.per_channel) usage("--per-channel", "there is no range", "give --range LO,HI too");
            return;
        }
        const auto ends = parse_numbers(options.range, "--range", 2);
        range_ = {options.per_channel ? TARN_RANGE_OF_EACH : TARN_RANGE_OF_ALL, float(ends[0]), float(ends[1])};
        ranged_ = true;
    }
    void operator()(const Batch& to, const LumoARRAY& dst, const Batch& from, const LumoARRAY& src) {
        const std::string given = from.describe() + " to " + to.describe();
        operation_.call<TarnCopyTransform>(given, &dst, &src, ranged_ ? &range_ : nullptr, int32_t(interpolation_));
    }
    const Timing& timing() const { return timing_; }

private:
    uint32_t interpolation_;
    TarnRANGE range_{};
    bool ranged_ = false;
    const Module module_;
    Timing timing_;
    Operation operation_;
};

// Hands each picture of the input to each(batch, array, index).
template <class Each>
void each_picture(const Transform& options, Each&& each) {
    const Files& files = options.files;
    const bool planar = parse_word(options.input_layout, "--input-layout", {"hwc", "nchw"}) == 1;
    if (is_npy_input(files.inputs[0])) {
        if (files.inputs.size() > 1)
            usage(files.inputs[1], "is one input too many", "one .npy file, which is a batch, is taken at a time");
        Tensor tensor = read_tensor(files.inputs[0]);
        const Batch batch = batch_of(tensor, files.inputs[0], planar, options.input_colour);
        for (int64_t n = 0; n < batch.count; ++n)
            each(batch, array_of(batch, tensor.bytes.data() + n * batch.picture_bytes()), n);
        return;
    }
    Shape first{};
    for (size_t i = 0; i < files.inputs.size(); ++i) {
        const std::string& name = files.inputs[i];
        if (is_npy(name)) usage(name, "can't be among pictures", "give it alone");
        bool wide = false;
        Image image = read_pixels(options, i, wide);
        if (i == 0) first = image.shape;
        if (image.shape.channels != first.channels || image.shape.sample != first.sample ||
            (options.size.empty() && (image.shape.width != first.width || image.shape.height != first.height)))
            fail(name, "is " + describe(image.shape) + ", but " + files.inputs[0] + " is " + describe(first),
                 options.size.empty() ? "give --size, or pictures of one kind" : "give pictures of one kind");
        Batch batch = batch_of(image, files.inputs.size());
        batch.wide = wide;
        batch.tags = image.shape.tags;
        each(batch, array_of(batch, image.pixels.get(), image.stride), int64_t(i));
    }
}

void to_npy(const Transform& options) {
    const bool planar = options.layout.empty() || parse_word(options.layout, "--layout", {"hwc", "nchw"}) == 1;
    OutputFile out(options.files.output);
    Caller call(options);
    Tensor result;
    each_picture(options, [&](const Batch& from, const LumoARRAY& src, int64_t n) {
        const Progress progress("transforming picture " + std::to_string(n + 1) + " of " + std::to_string(from.count));
        const Batch to = wanted(options, from, planar);
        if (n == 0) {
            result.shape = to.shape(), result.sample = to.sample;
            // Refuses what memory can't hold.
            Image::stride_for({to.width, to.height * to.count * to.channels, 1, to.sample, Alpha::none, false},
                              options.size.empty() ? options.files.inputs[0] : "--size");
            result.bytes.resize(size_t(to.count * to.picture_bytes()));
        }
        call(to, array_of(to, result.bytes.data() + n * to.picture_bytes()), from, src);
    });
    write_tensor(out, result);
    out.commit();
    print_time(options.files, call.timing());
}

void to_picture(const Transform& options) {
    const Files& files = options.files;
    if (!options.layout.empty() && parse_word(options.layout, "--layout", {"hwc", "nchw"}) == 1)
        usage("--layout", "a picture's file has no planes", "write .npy, or leave it out");
    if (options.colour == "bgr") usage("--colour", "a picture's file holds RGB", "write .npy, or give rgb");
    if (files.inputs.size() > 1)
        usage(files.inputs[1], "is one input too many for a picture", "write the batch to .npy");
    ImageOutput out(files);
    Caller call(options);
    Image result;
    Shape shape;
    each_picture(options, [&](const Batch& from, const LumoARRAY& src, int64_t) {
        if (from.count > 1)
            fail(files.inputs[0], "holds " + std::to_string(from.count) + " pictures", "write .npy, or split it");
        const Progress progress("transforming " + files.inputs[0]);
        Batch to = wanted(options, from, false);
        if (to.cls == LUMO_CLASS_BGR) to.cls = LUMO_CLASS_RGB;
        const bool alpha = to.channels == 4;
        const Shape worked{to.width, to.height, to.channels, to.sample, alpha ? Alpha::straight : Alpha::none,
                           false,    to.tags};
        shape = worked;
        if (to.wide) shape.sample = Sample::u16;
        out.check(shape);
        result = Image::make(worked, options.size.empty() ? files.inputs[0] : "--size");
        call(to, array_of(to, result.pixels.get(), result.stride), from, src);
        if (alpha) exchange_red_and_blue(result);
    });
    out.write(from_floats(std::move(result), shape));
    print_time(files, call.timing());
}

}  // namespace

Run setup_copy_transform(CLI::App& app) {
    const auto options = std::make_shared<Transform>();
    add_inputs(app, options->files, 1, 0);
    add_image_output(
        app, options->files,
        "what to write: .npy, or a picture: .png, .jpg or .tiff; - is standard output, with --format npy for an "
        "array");
    add_option(app, "--size", options->size, "width and height of the result (default: the input's)").type_name("WxH");
    add_option(app, "--interpolation", options->interpolation, "nearest, linear (default) or cubic").type_name("MODE");
    add_option(
        app, "--type", options->type,
        "elements of the result: same (default; f32 in a .npy of 16-bit pictures), u8, s16 or f32; values saturate")
        .type_name("TYPE");
    add_option(app, "--colour", options->colour,
               "colours of the result: grey, rgb, bgr or bgra, which has alpha (default: the input's)")
        .type_name("COLOUR");
    add_option(app, "--layout", options->layout, "axes of a .npy result: nchw (default) or hwc").type_name("LAYOUT");
    add_option(app, "--range", options->range,
               "stretch each channel of each picture so that its smallest value becomes LO, its largest HI; after "
               "--type, so first stretch floats of 0 to 1 and then make them u8, with --then")
        .type_name("LO,HI");
    add_flag(app, "--per-channel", options->per_channel,
             "hand the range over as bounds for each channel; the values are the same");
    add_option(app, "--input-layout", options->input_layout, "axes of a .npy input: nchw (default) or hwc")
        .type_name("LAYOUT");
    add_option(app, "--input-colour", options->input_colour,
               "colours of a .npy input (default by its channels: grey, rgb, bgra)")
        .type_name("COLOUR");
    return [options] {
        const Files& files = options->files;
        is_npy(files.output) || files.format == "npy" ? to_npy(*options) : to_picture(*options);
    };
}

}  // namespace tarn::tool
