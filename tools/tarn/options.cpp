#include "options.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>

#include "error.h"
#include "progress.h"

namespace tarn::tool {
namespace {
std::vector<std::string> split_at(const std::string& text, char separator) {
    std::vector<std::string> parts(1);
    for (const char c : text) {
        if (c == separator)
            parts.emplace_back();
        else
            parts.back() += c;
    }
    return parts;
}

[[noreturn]] void wrong_count(const std::string& text, const std::string& option, size_t found, size_t count) {
    usage(option, "'" + text + "' holds " + std::to_string(found) + " numbers, not " + std::to_string(count),
          "separate them by commas without spaces");
}

// A value as operations take it, which is a float: one that would be cut or rounded is refused.
float pixel_value(double value, const std::string& option, Sample sample) {
    if (sample != Sample::f32) value = std::floor(value);
    require_value(value, limits(sample), sample, option);
    if (sample == Sample::u16) value -= kOffset16;
    const float taken = float(value);
    if (sample != Sample::f32 && double(taken) != value)
        fail(option, number_text(value) + " has more digits than the operation, which takes floats, can tell apart",
             "give a multiple of 128, or one between -16777216 and 16777216");
    return taken;
}
}  // namespace

int64_t parse_integer(const std::string& text, const std::string& option, int64_t low, int64_t high) {
    errno = 0;
    char* end = nullptr;
    const long long value = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || std::isspace(static_cast<unsigned char>(text[0])) || *end || errno || value < low ||
        value > high)
        usage(option,
              "'" + text + "' is not a whole number from " + std::to_string(low) + " to " + std::to_string(high),
              "give one");
    return value;
}

double parse_number(const std::string& text, const std::string& option) {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (text.empty() || std::isspace(static_cast<unsigned char>(text[0])) || *end || !std::isfinite(value))
        usage(option, "'" + text + "' is not a finite number", "give one such as 0.5");
    return value;
}

std::vector<double> parse_numbers(const std::string& text, const std::string& option, size_t count) {
    std::vector<double> values;
    for (const std::string& part : split_at(text, ',')) values.push_back(parse_number(part, option));
    if (count && values.size() != count) wrong_count(text, option, values.size(), count);
    return values;
}

std::vector<int64_t> parse_integers(const std::string& text, const std::string& option, size_t count, int64_t low,
                                    int64_t high) {
    const auto parts = split_at(text, ',');
    if (parts.size() != count) wrong_count(text, option, parts.size(), count);
    std::vector<int64_t> values;
    for (const std::string& part : parts) values.push_back(parse_integer(part, option, low, high));
    return values;
}

std::vector<double> parse_per_channel(const std::string& text, const std::string& option, int colours) {
    std::vector<double> values = parse_numbers(text, option);
    if (values.size() == 1) values.resize(size_t(colours), values[0]);
    if (values.size() != size_t(colours))
        fail(option,
             "gives " + std::to_string(values.size()) + " values for " + std::to_string(colours) + " colour channel" +
                 (colours > 1 ? "s" : ""),
             "give one value, or one for each colour channel");
    return values;
}

Limits limits(Sample sample) {
    const auto of = [](auto t) {
        using T = std::numeric_limits<decltype(t)>;
        return Limits{double(T::lowest()), double(T::max())};
    };
    switch (sample) {
        case Sample::u8:
            return of(uint8_t());
        case Sample::u16:
            return of(uint16_t());
        case Sample::s16:
            return of(int16_t());
        case Sample::s32:
            return of(int32_t());
        case Sample::u32:
            return of(uint32_t());
        case Sample::f32:
            return of(float());
    }
    return {};
}

std::string number_text(double value) {
    char text[40];
    std::snprintf(text, sizeof text, "%.10g", value);
    return text;
}

void require_value(double value, Limits limits, Sample sample, const std::string& option, const std::string& other) {
    if (value >= limits.low && value <= limits.high) return;
    fail(option, number_text(value) + " is not among the values of " + sample_name(sample) + " samples",
         "give " + number_text(limits.low) + " to " + number_text(limits.high) + other);
}

std::vector<float> parse_pixel(const std::string& text, const std::string& option, const Shape& shape) {
    const bool alpha = shape.channels == 2 || shape.channels == 4;
    const int channels = shape.channels, colours = channels - alpha;
    std::vector<double> values = parse_numbers(text, option);
    if (values.size() != size_t(channels)) {
        values = parse_per_channel(text, option, colours);
        if (alpha) {
            const double full = opaque(shape.sample);
            if (!full)
                fail(option,
                     std::string("is missing for alpha, and opaque is no known value of ") + sample_name(shape.sample) +
                         " samples",
                     "give one for each colour channel and one for alpha");
            values.push_back(full);
        }
    }
    std::vector<float> taken;
    for (const double value : values) taken.push_back(pixel_value(value, option, shape.sample));
    return taken;
}

PixelSize parse_size(const std::string& text, const std::string& option) {
    const auto parts = split_at(text, 'x');
    if (parts.size() != 2) usage(option, "'" + text + "' is not a size", "give WIDTHxHEIGHT such as 640x480");
    return {parse_integer(parts[0], option, 1, INT32_MAX), parse_integer(parts[1], option, 1, INT32_MAX)};
}

LumoRECT parse_region(const std::string& text, const std::string& option, const Image& image, const std::string& name) {
    if (text.empty()) return {0, 0, image.width(), image.height()};
    const auto parts = split_at(text, ',');
    if (parts.size() != 3)
        usage(option, "'" + text + "' is not a region", "give LEFT,TOP,WIDTHxHEIGHT such as 10,20,300x200");
    const int64_t left = parse_integer(parts[0], option, INT32_MIN, INT32_MAX);
    const int64_t top = parse_integer(parts[1], option, INT32_MIN, INT32_MAX);
    const PixelSize size = parse_size(parts[2], option);
    if (left < 0 || top < 0 || left + size.width > image.width() || top + size.height > image.height())
        fail(option,
             text + " reaches outside " + name + ", which is " + std::to_string(image.width()) + "x" +
                 std::to_string(image.height()),
             "choose a region inside it");
    return {int32_t(left), int32_t(top), int32_t(left + size.width), int32_t(top + size.height)};
}

size_t parse_word(const std::string& text, const std::string& option, const std::vector<std::string>& words) {
    std::string all;
    for (size_t i = 0; i < words.size(); ++i) {
        if (words[i] == text) return i;
        all += (i ? i + 1 == words.size() ? " or " : ", " : "") + words[i];
    }
    usage(option, "'" + text + "' is not known", "give " + all);
}

uint32_t parse_interpolation(const std::string& text) {
    return TARN_NEAREST + uint32_t(parse_word(text, "--interpolation", {"nearest", "linear", "cubic", "lanczos"}));
}

std::optional<Sample> parse_depth(const std::string& text) {
    constexpr std::optional<Sample> kDepths[] = {{}, Sample::u8, Sample::u16, Sample::s16, Sample::f32};
    return kDepths[parse_word(text, "--depth", {"same", "u8", "u16", "s16", "f32"})];
}

void add_inputs(CLI::App& app, Files& files, size_t least, size_t most) {
    add_option(app, "IN", files.inputs,
               std::string(most == 1 ? "picture" : "pictures") +
                   " to read (PNG, JPEG, TIFF, PNM or PFM, told by content); - is standard input")
        .required()
        .type_name("")
        .expected(least, most);
    add_option(app, "--page", files.page, "which picture of a TIFF of several, from 1 on; all with --out-dir")
        .type_name("N");
    add_flag(app, "--autorotate,!--no-autorotate", files.autorotate,
             "turn pictures as their orientation tag says (default); --no-autorotate takes them as they are stored");
    add_flag(app, "--time", files.time, "print the milliseconds of the operation's call, best of several repeats");
}

Option add_image_output(CLI::App& app, Files& files, const char* text) {
    const Option output = add_option(app, "-o,--output", files.output, text).required().type_name("OUT");
    add_option(app, "--format", files.format,
               "of the picture, where its name does not tell: png, jpeg, tiff, pnm or pfm")
        .type_name("FORMAT");
    add_option(app, "--quality", files.quality, "JPEG quality, 1 to 100 (default 92)").type_name("N");
    add_option(app, "--subsampling", files.subsampling, "of JPEG's colours: 444 (none), 422 or 420 (default)")
        .type_name("KIND");
    add_option(app, "--compression", files.compression, "of TIFF: none, lzw (default) or deflate").type_name("KIND");
    add_option(app, "--effort", files.png_effort, "in compressing PNG, 0 (none) to 9 (smallest; default 6)")
        .type_name("N");
    return output;
}

void add_text_output(CLI::App& app, Files& files) {
    add_option(app, "-o,--output", files.output, "file to write (default: standard output)").type_name("OUT");
}

void add_json(CLI::App& app, bool& json) { add_flag(app, "--json", json, "print JSON"); }

namespace {
std::map<std::string, std::optional<Image>> in_memory;

std::optional<Image>* memory_of(const std::string& name) {
    const auto found = in_memory.find(name);
    return found == in_memory.end() ? nullptr : &found->second;
}
}  // namespace

void keep_in_memory(const std::string& name) { in_memory[name]; }

Image read_input(const Files& files, size_t index) {
    if (std::optional<Image>* memory = memory_of(files.inputs.at(index))) {
        if (!files.page.empty()) usage("--page", "is of a file", "give it to the first step");
        Image image = std::move(memory->value());
        memory->reset();
        return image;
    }
    const Progress progress("reading " + files.inputs.at(index));
    Reading reading{files.autorotate};
    if (files.page == "all") usage("--page", "'all' needs a folder for the results", "give --out-dir, or a number");
    if (!files.page.empty()) reading.page = static_cast<int>(parse_integer(files.page, "--page", 1, 65535));
    return read_image(files.inputs[index], reading);
}

Image read_input_like(const Files& files, size_t index, const Shape& first) {
    Image image = read_input(files, index);
    const std::string wanted = describe(first), given = describe(image.shape);
    if (given != wanted)
        fail(files.inputs[index], "is " + given + " but " + files.inputs[0] + " is " + wanted,
             "give pictures of one kind");
    return image;
}

std::vector<Image> read_equal_inputs(const Files& files) {
    std::vector<Image> images;
    images.push_back(read_input(files));
    while (images.size() < files.inputs.size())
        images.push_back(read_input_like(files, images.size(), images[0].shape));
    return images;
}

void require_samples(const Image& image, const std::string& name, const std::string& command,
                     const std::vector<Sample>& samples) {
    std::string all;
    for (size_t i = 0; i < samples.size(); ++i) {
        if (samples[i] == image.shape.sample) return;
        all += (i ? i + 1 == samples.size() ? " and " : ", " : "") + std::string(sample_name(samples[i]));
    }
    fail(name, std::string("has ") + sample_name(image.shape.sample) + " samples; " + command + " takes " + all,
         std::string("convert the picture first with tarn convert-scale --depth ") + sample_name(samples.back()));
}

namespace {
Format output_format(const Files& files) {
    if (files.output.empty()) usage("--output", "is missing", "name the picture to write");
    if (!files.format.empty())
        return static_cast<Format>(parse_word(files.format, "--format", {"png", "jpeg", "tiff", "pnm", "pfm"}));
    if (files.output == "-")
        usage("--format", "is missing, and standard output has no name", "give png, jpeg, tiff, pnm or pfm");
    if (const auto format = format_of_name(files.output)) return *format;
    const std::string extension = std::filesystem::path(files.output).extension().string();
    usage(files.output, extension.empty() ? "has no extension to tell the format by" : "unknown extension " + extension,
          "write .png, .jpg or .tiff, or give --format");
}
}  // namespace

constexpr int kChroma[] = {444, 422, 420};

ImageOutput::ImageOutput(const Files& files)
    : memory_(memory_of(files.output)),
      encoding_{
          static_cast<int>(parse_integer(files.quality, "--quality", 1, 100)),
          kChroma[parse_word(files.subsampling, "--subsampling", {"444", "422", "420"})],
          static_cast<int>(parse_integer(files.png_effort, "--effort", 0, 9)),
          static_cast<Encoding::Tiff>(parse_word(files.compression, "--compression", {"none", "lzw", "deflate"}))} {
    if (memory_) return;
    format_ = output_format(files);
    file_.emplace(files.output);
}

void ImageOutput::check(const Shape& shape) const {
    if (file_) check_format(shape, format_, file_->path());
}

void ImageOutput::write(Image image) {
    if (memory_) {
        *memory_ = std::move(image);
        return;
    }
    const Progress progress("writing " + file_->path());
    encode_image(*file_, image, format_, encoding_);
    file_->commit();
}

void write_text(const Files& files, const std::string& text) {
    if (files.output.empty() || files.output == "-") {
        std::cout << text;
        return;
    }
    OutputFile file(files.output);
    errno = 0;
    if (std::fwrite(text.data(), 1, text.size(), file.stream()) != text.size()) file.write_failed(errno);
    file.commit();
}

void print_json(const nlohmann::ordered_json& value) {
    std::cout << value.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << "\n";
}

void print_values(const nlohmann::ordered_json& values, bool json) {
    if (json) return print_json(values);
    size_t widest = 0;
    for (const auto& [name, value] : values.items()) widest = std::max(widest, name.size());
    for (const auto& [name, value] : values.items()) {
        std::string title = name;
        std::replace(title.begin(), title.end(), '_', ' ');
        std::cout << title << std::string(widest + 2 - name.size(), ' ')
                  << (value.is_string() ? value.get<std::string>() : value.dump()) << "\n";
    }
}

void print_time(const Files& files, const Timing& timing) {
    if (!files.time) return;
    char text[40];
    std::snprintf(text, sizeof text, "%.4f ms", timing.milliseconds);
    std::cout << text << "\n";
}

}  // namespace tarn::tool
