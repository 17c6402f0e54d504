// What commands share on the command line: inputs and output, number lists, sizes and regions, printed results.
#ifndef TARN_TOOLS_OPTIONS_H
#define TARN_TOOLS_OPTIONS_H

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "call.h"
#include "command_line.h"
#include "image.h"
#include "output.h"

namespace tarn::tool {

// ---- Values: each throws (usage) with the option's name when the text is not what it says -------------------------

int64_t parse_integer(const std::string& text, const std::string& option, int64_t low, int64_t high);
double parse_number(const std::string& text, const std::string& option);
// "10,20,30"; a count of 0 takes any number of values, at least one.
std::vector<double> parse_numbers(const std::string& text, const std::string& option, size_t count = 0);
// The same of whole numbers from low to high.
std::vector<int64_t> parse_integers(const std::string& text, const std::string& option, size_t count, int64_t low,
                                    int64_t high);
// A number for each of the colour channels; the text has one for all, or one for each, else this throws (failure).
std::vector<double> parse_per_channel(const std::string& text, const std::string& option, int colours);
// The smallest and the largest number that samples hold.
struct Limits {
    double low, high;
};
Limits limits(Sample sample);
std::string number_text(double value);  // up to ten digits
// Throws (failure) when a value of such samples does not lie within the limits; other: what else the option offers.
void require_value(double value, Limits limits, Sample sample, const std::string& option,
                   const std::string& other = "");
struct PixelSize {
    int64_t width, height;
};
PixelSize parse_size(const std::string& text, const std::string& option);  // "640x480", both 1 to 2147483647
// "L,T,WxH" or "all" inside the picture; throws (failure) when it reaches beyond it. Empty text: the whole picture.
LumoRECT parse_region(const std::string& text, const std::string& option, const Image& image, const std::string& name);
// A value for each channel as operations take them, u16 with its offset: one for all colour channels or one for each,
// then one for alpha or none, which is opaque. Throws (failure) when the samples can't have them.
std::vector<float> parse_pixel(const std::string& text, const std::string& option, const Shape& shape);
// One of several words, in the order of their codes; returns the index.
size_t parse_word(const std::string& text, const std::string& option, const std::vector<std::string>& words);
// TARN_NEAREST, ... of --interpolation.
uint32_t parse_interpolation(const std::string& text);
// The samples that --depth names; none for "same".
std::optional<Sample> parse_depth(const std::string& text);

// ---- Options ------------------------------------------------------------------------------------------------------

struct Files {
    std::vector<std::string> inputs;
    std::string output;
    std::string format, quality = "92", compression = "lzw", subsampling = "420", png_effort = "6";
    std::string page;  // a number or "all"; empty: the only one
    bool autorotate = true;
    bool time = false;
    std::string out_dir, name, jobs;  // of several pictures, see batch.h
    bool resume = false;
};
// Positional IN (several where most > 1; most 0: any number), and --time.
void add_inputs(CLI::App& app, Files& files, size_t least = 1, size_t most = 1);
// -o OUT, --format, --quality and --compression for commands that write a picture; the first is returned.
Option add_image_output(CLI::App& app, Files& files,
                        const char* text = "picture to write: .png, .jpg or .tiff; - is standard output");
// -o OUT for commands that write text (SVG, JSON), optional: without it the text goes to standard output.
void add_text_output(CLI::App& app, Files& files);
void add_json(CLI::App& app, bool& json);

// ---- Input and output ---------------------------------------------------------------------------------------------

// From now on this name stands for a picture in memory, which one step of a command line leaves for the next: an output
// of that name puts it there, an input takes it away.
void keep_in_memory(const std::string& name);

// Reads input number index with progress shown.
Image read_input(const Files& files, size_t index = 0);
// The same; throws when it differs in shape from the first.
Image read_input_like(const Files& files, size_t index, const Shape& first);
// Reads all inputs of a shape.
std::vector<Image> read_equal_inputs(const Files& files);

// Throws unless the picture has samples that the command takes, see samples_of.
void require_samples(const Image& image, const std::string& name, const std::string& command,
                     const std::vector<Sample>& samples);

// The picture that a command writes. Made before any work, so that a wrong name is told first.
class ImageOutput {
public:
    explicit ImageOutput(const Files& files);
    void check(const Shape& shape) const;  // throws when the format can't hold such a picture
    void write(Image image);

private:
    std::optional<Image>* memory_;  // where a picture goes that is kept in memory, else null
    Format format_ = {};
    Encoding encoding_;
    std::optional<OutputFile> file_;
};

// Writes to the -o file, whole or not at all, or to standard output.
void write_text(const Files& files, const std::string& text);
// Prints JSON. File names need not be UTF-8, which JSON is: other bytes become U+FFFD.
void print_json(const nlohmann::ordered_json& value);
// Prints lines of "name value", underscores as spaces, or, with --json, the object itself.
void print_values(const nlohmann::ordered_json& values, bool json);
// Prints what --time asks for.
void print_time(const Files& files, const Timing& timing);

}  // namespace tarn::tool
#endif
