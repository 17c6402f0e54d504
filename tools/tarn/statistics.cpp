// Commands of the statistics: a small table, a row a colour channel. Alpha is passed over.
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "error.h"
#include "kinds.h"
#include "options.h"

namespace tarn::tool {
namespace {

struct Options {
    Files files;
    bool json = false;
    std::string lower, upper;
};

const char* channel_name(int channels, int channel) {
    constexpr const char* kColours[] = {"red", "green", "blue"};
    return channels == 1 ? "grey" : kColours[channel];
}

// The colour channels of the input, with samples that the operation takes: for others it would end the process.
Image colours_of(const Files& files, const std::string& command, const std::vector<Sample>& brought = {Sample::u16}) {
    Image image = read_input(files);
    require_samples(image, files.inputs[0], command, samples_of("tarn::" + command, "", brought));
    return image.has_alpha() ? take_channels(image, 0, image.shape.channels - 1) : std::move(image);
}

// One value a channel.
struct Column {
    std::string name;
    bool whole;  // integers
    std::vector<double> values;
};

void print_table(const Options& options, const Image& image, const std::vector<Column>& columns) {
    const int channels = image.shape.channels;
    if (options.json) {
        nlohmann::ordered_json all = nlohmann::ordered_json::array();
        for (int c = 0; c < channels; ++c) {
            nlohmann::ordered_json row{{"channel", channel_name(channels, c)}};
            for (const Column& column : columns) {
                const double value = column.values[static_cast<size_t>(c)];
                if (column.whole)
                    row[column.name] = static_cast<int64_t>(value);
                else
                    row[column.name] = value;
            }
            all.push_back(row);
        }
        print_json(all);
        return;
    }
    std::cout << "channel";
    for (const Column& column : columns) std::cout << "  " << std::setw(14) << column.name;
    for (int c = 0; c < channels; ++c) {
        std::cout << "\n" << std::left << std::setw(7) << channel_name(channels, c) << std::right;
        for (const Column& column : columns)
            std::cout << "  " << std::setw(14) << std::setprecision(9) << column.values[static_cast<size_t>(c)];
    }
    std::cout << "\n";
}

// Kernels see u16 samples less 32768.
std::vector<double> values_of(const float* values, const Image& image) {
    std::vector<double> all;
    for (int c = 0; c < image.shape.channels; ++c)
        all.push_back(double(values[c]) + (image.shape.sample == Sample::u16 ? kOffset16 : 0));
    return all;
}

void run_minmax(const Options& options) {
    const Image image = colours_of(options.files, "minmax");
    const Module module;
    Timing timing{options.files.time};
    const LumoMAT src = image.view();
    float smallest[3], largest[3];
    Operation(module, "tarn::minmax", timing).call<TarnMinMax>(describe(image.shape), smallest, largest, &src);
    const bool whole = image.shape.sample != Sample::f32;
    print_table(options, image,
                {{"min", whole, values_of(smallest, image)}, {"max", whole, values_of(largest, image)}});
    print_time(options.files, timing);
}

void run_mean(const Options& options) {
    const Image image = colours_of(options.files, "mean");
    const Module module;
    Timing timing{options.files.time};
    const LumoMAT src = image.view();
    float means[3];
    Operation(module, "tarn::mean", timing).call<TarnMean>(describe(image.shape), means, &src);
    print_table(options, image, {{"mean", false, values_of(means, image)}});
    print_time(options.files, timing);
}

// A bound for each channel, one for all of them, or none.
std::vector<float> bounds(const std::string& text, const std::string& option, const Image& image) {
    if (text.empty()) return {};
    std::vector<float> all;
    for (const double v : parse_per_channel(text, option, image.shape.channels)) {
        if (image.shape.sample == Sample::u8 && !(v >= 0 && v < 256))
            fail(option, "is not within the values of u8 samples, and would wrap around", "give 0 to 255");
        all.push_back(static_cast<float>(v));
    }
    return all;
}

void run_count(const Options& options) {
    Image image = colours_of(options.files, "count-in-range", {Sample::u16, Sample::s16});
    if (image.shape.sample == Sample::u16 || image.shape.sample == Sample::s16) image = as_floats(image);
    const auto lower = bounds(options.lower, "--lower", image), upper = bounds(options.upper, "--upper", image);
    const Module module;
    Timing timing{options.files.time};
    const LumoMAT src = image.view();
    int32_t counts[3];
    Operation(module, "tarn::count-in-range", timing)
        .call<TarnCountInRange>(describe(image.shape), counts, &src, lower.empty() ? nullptr : lower.data(),
                                upper.empty() ? nullptr : upper.data());
    std::vector<double> in, share;
    for (int c = 0; c < image.shape.channels; ++c) {
        in.push_back(counts[c]);
        share.push_back(counts[c] / (double(image.shape.width) * double(image.shape.height)));
    }
    print_table(options, image, {{"count", true, in}, {"share", false, share}});
    print_time(options.files, timing);
}

std::shared_ptr<Options> add_common(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    add_inputs(app, options->files);
    add_json(app, options->json);
    return options;
}

}  // namespace

Run setup_minmax(CLI::App& app) {
    const auto options = add_common(app);
    return [options] { run_minmax(*options); };
}

Run setup_mean(CLI::App& app) {
    const auto options = add_common(app);
    return [options] { run_mean(*options); };
}

Run setup_count_in_range(CLI::App& app) {
    const auto options = add_common(app);
    add_option(app, "--lower", options->lower,
               "smallest value that counts, one for all channels or one for each "
               "(default: the smallest there is)")
        .type_name("V[,V,V]");
    add_option(app, "--upper", options->upper, "largest value that counts (default: the largest there is)")
        .type_name("V[,V,V]");
    return [options] { run_count(*options); };
}

}  // namespace tarn::tool
