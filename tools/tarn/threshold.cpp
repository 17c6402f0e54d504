// tarn threshold: black and white by a value, by the histogram, or by each pixel's surroundings. Alpha stays as it is.
#include <cmath>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>

#include "batch.h"
#include "commands.h"
#include "error.h"
#include "kinds.h"
#include "options.h"
#include "progress.h"

namespace tarn::tool {
namespace {

struct Threshold {
    Files files;
    std::string method, value, size, offset, tiles, tile_weight, whole_weight;
    bool invert = false;
};
enum Method { kFixed, kOtsu, kAdaptive };

// A value of a picture as its samples are kept in memory.
float in_memory(double value, Sample sample) { return float(sample == Sample::u16 ? value - kOffset16 : value); }

// White and black of the picture's samples; floats are 1 and 0.
TarnTHRSPEC black_and_white(Sample sample, bool invert) {
    const double white = sample == Sample::f32   ? 1
                         : sample == Sample::u8  ? 255
                         : sample == Sample::u16 ? 65535
                                                 : std::numeric_limits<int16_t>::max();
    const float high = in_memory(white, sample), low = in_memory(0, sample);
    return {TARN_GREATER, TARN_ALL_CHANNELS, 0, 0, nullptr, invert ? low : high, invert ? high : low, 0, 0};
}

void refuse_with(const Threshold& options, std::initializer_list<std::pair<const char*, const std::string*>> others) {
    for (const auto& [name, text] : others)
        if (!text->empty()) usage(name, "does not go with --method " + options.method, "leave it out");
}

// What the operation is asked for; specs: one for each colour with a threshold of its own, or one for all.
struct Request {
    TarnTHROPTIONS options = {};
    std::vector<TarnTHRSPEC> specs;
};

Request by_value(const Threshold& options, const Image& image) {
    if (options.value.empty()) usage("--value", "is missing", "give the threshold: pixels above it become white");
    const Sample sample = image.shape.sample;
    const TarnTHRSPEC spec = black_and_white(sample, options.invert);
    Request request;
    for (const double v : parse_per_channel(options.value, "--value", image.shape.channels - image.has_alpha())) {
        request.specs.push_back(spec);
        request.specs.back().channel = int32_t(request.specs.size()) - 1;
        request.specs.back().value = in_memory(v, sample);
    }
    return request;
}

Request by_surroundings(const Threshold& options, const Image& image) {
    const PixelSize size = parse_size(options.size.empty() ? "15x15" : options.size, "--size");
    if (size.width < 3 || size.height < 3)
        usage("--size", "'" + options.size + "' is no neighbourhood", "give 3x3 or more");
    Request request;
    request.options.method = TARN_THRESHOLD_ADAPTIVE;
    request.options.of.adaptive = {
        int32_t((size.width - 1) / 2), int32_t((size.height - 1) / 2), int32_t(size.width), int32_t(size.height), {}};
    request.specs = {black_and_white(image.shape.sample, options.invert)};
    request.specs[0].offset = options.offset.empty() ? 0 : float(parse_number(options.offset, "--offset"));
    return request;
}

// The histogram's bounds: all values of integers, of floats those that occur.
void set_bounds(TarnTHROPTIONS& options, const Module& module, const Image& image, const std::string& name) {
    auto& o = options.of.otsu;
    o.lower = 0, o.upper = 255, o.bins = 256;
    if (image.shape.sample == Sample::u8) return;
    o.bins = 65536;
    o.lower = std::numeric_limits<int16_t>::min(), o.upper = std::numeric_limits<int16_t>::max();
    if (image.shape.sample != Sample::f32) return;
    Timing untimed;
    float smallest[3], largest[3];
    const LumoMAT src = image.view();
    Operation(module, "tarn::minmax", untimed).call<TarnMinMax>(describe(image.shape), smallest, largest, &src);
    o.lower = o.upper = smallest[0];
    for (int c = 0; c < (image.shape.channels < 3 ? 1 : 3); ++c) {
        o.lower = std::fmin(o.lower, smallest[c]);
        o.upper = std::fmax(o.upper, largest[c]);
    }
    if (!std::isfinite(o.lower) || !std::isfinite(o.upper))
        fail(name, "has no finite values to choose a threshold from", "use --method fixed");
    if (o.lower == o.upper) o.upper = std::nextafter(o.upper, std::numeric_limits<float>::max());
}

Request by_histogram(const Threshold& options, const Image& image) {
    const auto weight = [](const std::string& text, const char* option, int none) {
        return uint16_t(text.empty() ? none : parse_integer(text, option, 0, 65535));
    };
    Request request;
    request.options.method = TARN_THRESHOLD_OTSU;
    auto& o = request.options.of.otsu;
    const bool tiles = !options.tiles.empty();
    if (!tiles)
        refuse_with(options, {{"--tile-weight", &options.tile_weight}, {"--whole-weight", &options.whole_weight}});
    o.tile_weight = weight(options.tile_weight, "--tile-weight", tiles);
    o.whole_weight = weight(options.whole_weight, "--whole-weight", !tiles);
    o.whole = TARN_THRESHOLD_COMPUTE;
    if (tiles) {
        const PixelSize size = parse_size(options.tiles, "--tiles");
        if (size.width < 3 || size.height < 3)
            usage("--tiles", "'" + options.tiles + "' are too small", "give 3x3 or more");
        if (!o.tile_weight && !o.whole_weight)
            usage("--tile-weight", "is 0, and so is --whole-weight", "give one of them");
        o.width = int32_t(size.width), o.height = int32_t(size.height);
    }
    request.specs = {black_and_white(image.shape.sample, options.invert)};
    return request;
}

void run_threshold(const Threshold& options) {
    const Files& files = options.files;
    const size_t method = parse_word(options.method, "--method", {"fixed", "otsu", "adaptive"});
    if (method != kFixed) refuse_with(options, {{"--value", &options.value}});
    if (method != kAdaptive) refuse_with(options, {{"--size", &options.size}, {"--offset", &options.offset}});
    if (method != kOtsu)
        refuse_with(options, {{"--tiles", &options.tiles},
                              {"--tile-weight", &options.tile_weight},
                              {"--whole-weight", &options.whole_weight}});
    ImageOutput out(files);
    const Image source = read_input(files);
    require_samples(source, files.inputs[0], "threshold", samples_of("tarn::threshold"));
    Request request = method == kFixed  ? by_value(options, source)
                      : method == kOtsu ? by_histogram(options, source)
                                        : by_surroundings(options, source);
    out.check(source.shape);

    const Module module;
    Timing timing{files.time};
    Operation threshold(module, "tarn::threshold", timing);
    const Progress progress("thresholding " + files.inputs[0]);
    Image result = by_parts(source, source.shape, files.inputs[0], [&](Image& to, const Image& from, bool alpha) {
        if (alpha) {
            for (int64_t y = 0; y < to.shape.height; ++y) std::memcpy(to.row(y), from.row(y), from.row_bytes());
            return;
        }
        if (method == kOtsu) set_bounds(request.options, module, from, files.inputs[0]);
        LumoMAT dst = to.view();
        const LumoMAT src = from.view();
        threshold.call<TarnThreshold>(describe(from.shape), &dst, &src, static_cast<const LumoRECT*>(nullptr),
                                      &request.options, uint64_t(request.specs.size()), request.specs.data());
    });
    out.write(std::move(result));
    if (method == kOtsu && options.tiles.empty()) {
        const double level = double(request.specs[0].value) + (source.shape.sample == Sample::u16 ? kOffset16 : 0);
        const bool whole = source.shape.sample != Sample::f32;
        print_values({{"threshold", whole ? nlohmann::ordered_json(int64_t(level)) : nlohmann::ordered_json(level)}},
                     false);
    }
    print_time(files, timing);
}

}  // namespace

Run setup_threshold(CLI::App& app) {
    const auto options = std::make_shared<Threshold>();
    add_pictures(app, options->files);
    add_option(app, "--method", options->method,
               "fixed: one threshold; otsu: the one that parts the picture's values best, which is printed; "
               "adaptive: each pixel against the mean of its surroundings. Pixels above it become white, the "
               "others black")
        .required()
        .type_name("METHOD");
    add_option(app, "--value", options->value, "fixed: the threshold, one for all colour channels or one for each")
        .type_name("V[,V,V]");
    add_option(app, "--size", options->size, "adaptive: width and height of the surroundings (default: 15x15)")
        .type_name("WxH");
    add_option(app, "--offset", options->offset,
               "adaptive: added to the mean; below 0 keeps the noise of an even paper white (default: 0)")
        .type_name("D");
    add_option(app, "--tiles", options->tiles, "otsu: a threshold for each tile of this size, 3x3 at least")
        .type_name("WxH");
    add_option(app, "--tile-weight", options->tile_weight,
               "otsu: how much the tile's own threshold counts (default: 1)")
        .type_name("A");
    add_option(app, "--whole-weight", options->whole_weight,
               "otsu: how much the whole picture's counts beside it (default: 0 with tiles)")
        .type_name("B");
    add_flag(app, "--invert", options->invert, "black above the threshold, white below");
    return each_picture(options->files, [options] { run_threshold(*options); });
}

}  // namespace tarn::tool
