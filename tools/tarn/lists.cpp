// Commands of the operations on lists of pictures. A long list is worked off by groups, each folded into what those
// before it have made, as the operations themselves go through a list: the result is that of one call with all of them,
// and memory does not grow with the list.
#include <algorithm>
#include <string_view>

#include "commands.h"
#include "elementwise.h"
#include "error.h"
#include "options.h"

namespace tarn::tool {
namespace {
constexpr int64_t kGroupBytes = int64_t(256) << 20;
constexpr std::string_view kMean = "avgarith-n";

// As many as floats hold the sum of, with the nearest float of the quotient on the right side of every half.
size_t most_of_exact_mean(Sample sample) {
    return sample == Sample::u16 ? 256 : sample == Sample::u8 ? 65535 : size_t(INT32_MAX);
}

int64_t bytes_of(const Image& image) { return int64_t(image.stride) * image.shape.height; }

// A picture that changes no sum: adding -0 leaves even -0 as it is.
Image nothing_like(const Shape& shape) {
    Image image = Image::make(shape, "nothing");
    for (uint8_t* row : image.rows())
        if (shape.sample == Sample::f32)
            std::fill_n(reinterpret_cast<float*>(row), shape.width * shape.channels, -0.0f);
        else
            std::fill_n(row, image.row_bytes(), uint8_t(0));
    return image;
}

// The operation over these and then as many times nothing as make them `count`.
Image call_list(Operation& operation, const std::vector<Image>& images, size_t count) {
    const Shape& shape = images[0].shape;
    Image result = Image::make(shape, "the result");
    const Image nothing = count > images.size() ? nothing_like(shape) : Image();
    std::vector<LumoMAT> views;
    for (const Image& image : images) views.push_back(image.view());
    views.push_back(nothing.view());
    std::vector<const LumoMAT*> list;
    for (size_t i = 0; i < count; ++i) list.push_back(&views[std::min(i, images.size())]);
    LumoMAT dst = result.view();
    operation.call<TarnArithN>(describe(shape), &dst, int32_t(count), list.data());
    return result;
}

void run_list(const Files& files, const std::string& name) {
    ImageOutput out(files);
    Image image = read_input(files);
    const Shape given = image.shape;
    out.check(given);
    const bool mean = name == kMean;
    const size_t count = files.inputs.size(), most = mean ? most_of_exact_mean(given.sample) : size_t(INT32_MAX);
    if (count > most)
        fail(files.inputs[most],
             std::string("is one picture too many: the mean of ") + sample_name(given.sample) +
                 " pictures is exact up to " + std::to_string(most),
             "take the mean of means of as many pictures each");
    // Bytes that are folded would saturate where the mean's sum does not.
    const bool long_list = int64_t(count) * bytes_of(image) > kGroupBytes;
    const bool in_floats = long_list && mean && given.sample == Sample::u8;
    const Module module;
    Timing timing{files.time};
    Operation operation(module, "tarn::" + name, timing), fold(module, mean ? "tarn::add-n" : "tarn::" + name, timing);

    const int colours = image.shape.channels - image.has_alpha();
    const Image alpha = image.has_alpha() ? take_channels(image, colours, 1) : Image();
    std::vector<Image> group;
    int64_t held = 0;
    for (size_t i = 0; i < count; ++i) {
        if (i) image = read_input_like(files, i, given);
        if (alpha.pixels) image = take_channels(image, 0, colours);
        image = take_samples(std::move(image), files.inputs[i], {name.c_str(), Wide::value});
        if (in_floats) image = as_floats(image);
        held += bytes_of(image);
        group.push_back(std::move(image));
        if (held <= kGroupBytes || group.size() < 2 || i + 1 == count) continue;
        Image folded = call_list(fold, group, group.size());
        group.clear();
        group.push_back(std::move(folded));
        held = bytes_of(group[0]);
    }
    // The mean divides by the length of its list: what was folded is made up for.
    Image result = call_list(operation, group, mean ? count : group.size());
    if (!alpha.pixels) {
        result = from_floats(std::move(result), given);
    } else {
        Shape shape = given;
        shape.channels = colours;
        Image whole = Image::make(given, files.output);
        put_channels(whole, from_floats(std::move(result), shape), 0);
        put_channels(whole, alpha, colours);
        result = std::move(whole);
    }
    out.write(std::move(result));
    print_time(files, timing);
}

Run setup_list(CLI::App& app, const char* name) {
    const auto files = std::make_shared<Files>();
    add_inputs(app, *files, 1, 0);
    add_image_output(app, *files);
    return [files, name] { run_list(*files, name); };
}
}  // namespace

Run setup_add_n(CLI::App& app) { return setup_list(app, "add-n"); }
Run setup_sub_n(CLI::App& app) { return setup_list(app, "sub-n"); }
Run setup_mul_n(CLI::App& app) { return setup_list(app, "mul-n"); }
Run setup_avgarith_n(CLI::App& app) { return setup_list(app, kMean.data()); }

}  // namespace tarn::tool
