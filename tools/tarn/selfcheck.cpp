// Every operation at every processor level of this machine, by the commands themselves: what a command writes, prints
// or refuses must be the same to the last bit.
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "error.h"
#include "level.h"
#include "npy.h"
#include "options.h"
#include "progress.h"

namespace tarn::tool {
namespace {
namespace fs = std::filesystem;

// What is run on each picture: A and B are the picture and the same turned top to bottom, O is the output, T the turned
// size.
constexpr const char* kCalls[] = {
    "copy A -o O",
    "convert-scale A -o O --depth u8 --scale 0.37 --offset 3",
    "convert-scale A -o O --depth s16 --scale 1.5",
    "convert-scale A -o O --depth f32 --scale 0.1",
    "count-in-range A --lower 20 --upper 200",
    "cvtorigin A -o O",
    "cvtorigin-n A -o O",
    "cvtvrange-n A -o O --range 5,250",
    "cvtvrange-v A -o O --range 5,250",
    "mean A --json",
    "minmax A --json",
    "and A B -o O",
    "or A B -o O",
    "xor A B -o O",
    "not A -o O",
    "cmp A B -o O --comparison less",
    "cmp A B -o O --comparison greater-equal",
    "and-c A -o O -c 165",
    "or-c A -o O -c 90",
    "xor-c A -o O -c 60",
    "set A -o O -c 77",
    "cmp-c A -o O --comparison less-equal -c 100",
    "add-c A -o O -c 55",
    "sub-c A -o O -c 55",
    "mul-c A -o O -c 3",
    "add-n A B A -o O",
    "sub-n A B -o O",
    "mul-n A B -o O",
    "avgarith-n A B B A A -o O",
    "reshape A -o O --size T",
    "scale-resize A -o O --scale 0.61 --interpolation nearest",
    "scale-resize A -o O --scale 0.5",
    "scale-resize A -o O --scale 1.7 --interpolation linear",
    "scale-resize A -o O --scale 0.83 --interpolation cubic",
    "scale-resize A -o O --scale 1.3 --interpolation lanczos",
    "warp-affine A -o O --rotate 21 --interpolation nearest",
    "warp-affine A -o O --rotate 33 --fit --interpolation linear",
    "warp-affine A -o O --rotate -12 --scale 1.4 --interpolation cubic",
    "warp-affine A -o O --rotate 7 --interpolation lanczos",
    "warp-affine-quad A -o O --to 4,9,90,3,80,60,-6,66",
    "copy-transform A -o O --size 67x41 --interpolation cubic",
    "copy-transform A -o O --colour grey",
    "copymkb A -o O --border 7,5,11,3 --kind replicate",
    "copymkb A -o O --border 7,5,11,3 --kind constant --value 9",
    "filter A -o O --kind box --size 5x3",
    "filter A -o O --kind min --size 3x7",
    "filter A -o O --kind max --size 9x9",
    "filter A -o O --kind median --size 3x3",
    "filter A -o O --kind median --size 9x7",
    "threshold A -o O --method fixed --value 90",
    "threshold A -o O --method otsu",
    "threshold A -o O --method adaptive --size 15x15 --offset -5",
    "morph A -o O --operation open --element rect --size 5x3",
    "morph A -o O --operation gradient --element ellipse --size 7x7",
    "contour-find A --threshold 100 --format json",
    "multi-line-neuronet samples.npy --layer weights.npy,bias.npy,sigmoid --layer last.npy,softmax -o O.npy",
};

// Numbers that look random and are the same everywhere.
class Noise {
public:
    uint32_t next() { return uint32_t((state_ = state_ * 6364136223846793005u + 1442695040888963407u) >> 33); }

private:
    uint64_t state_ = 1;
};

// Ramps, blocks and noise. The width is no multiple of any vector's.
Image make_picture(Sample sample, int channels) {
    Shape shape;
    shape.width = 211;
    shape.height = 97;
    shape.channels = channels;
    shape.sample = sample;
    if (channels == 4) shape.alpha = Alpha::straight;
    Image image = Image::make(shape, "a picture");
    Noise noise;
    for (int y = 0; y < image.height(); ++y)
        for (int i = 0; i < image.width() * channels; ++i) {
            const int x = i / channels, block = (x / 16 + y / 16) % 3;
            const uint32_t random = noise.next();
            const double share = block == 0   ? (x + y) / 308.0
                                 : block == 1 ? double(random % 4096) / 4095
                                              : 0.5 + double(random % 64) / 640;  // 0 to 1
            uint8_t* at = image.row(y) + size_t(i) * size_t(sample_bytes(sample));
            const auto put = [&](auto value) { std::memcpy(at, &value, sizeof value); };
            switch (sample) {
                case Sample::u8:
                    put(uint8_t(share * 255));
                    break;
                case Sample::u16:
                    put(int16_t(share * 65535 - kOffset16));
                    break;
                case Sample::s16:
                    put(int16_t(share * 65535 - 32768));
                    break;
                case Sample::f32:
                    put(float(share * 300 - 20));
                    break;
                default:
                    put(int32_t(share * 4e9 - 2e9));
            }
        }
    return image;
}

Image turned(const Image& image) {
    Image result = Image::make(image.shape, "a picture");
    for (int y = 0; y < image.height(); ++y)
        std::memcpy(result.row(y), image.row(image.height() - 1 - y), image.row_bytes());
    return result;
}

void put_matrix(const std::string& path, int32_t rows, int32_t columns) {
    Matrix matrix{rows, columns, {}};
    Noise noise;
    for (int32_t i = 0; i < rows * columns; ++i) matrix.values.push_back(float(noise.next() % 2001) / 1000 - 1);
    OutputFile file(path);
    write_npy(file, matrix);
    file.commit();
}

void put_picture(const std::string& path, const Image& image) {
    OutputFile file(path);
    encode_image(file, image, Format::tiff, {.tiff_compression = Encoding::Tiff::none});
    file.commit();
}

// A folder that goes with its files.
class Folder {
public:
    Folder() {
        std::string name = (fs::temp_directory_path() / "tarn-selfcheck-XXXXXX").string();
        if (!mkdtemp(name.data())) fail(name, "can't be made: " + system_reason(errno), "let TMPDIR name a folder");
        path = name;
    }
    ~Folder() {
        std::error_code none;
        fs::remove_all(path, none);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    fs::path path;
};

// What a command did: its exit status, what it printed or complained of, what it wrote.
struct Outcome {
    int status = 0;
    std::string text, file;
    bool operator==(const Outcome&) const = default;
};

Outcome run_command(const std::vector<std::string>& words, const std::string& output) {
    Outcome outcome;
    std::ostringstream printed;
    std::streambuf* const before = std::cout.rdbuf(printed.rdbuf());
    outcome.status = status_of(
        [&] {
            parse_words(*find_command(words[0]), {words.begin() + 1, words.end()})();
        },
        outcome.text);
    std::cout.rdbuf(before);
    outcome.text += printed.str();
    std::ostringstream bytes;
    bytes << std::ifstream(output, std::ios::binary).rdbuf();
    outcome.file = bytes.str();
    std::error_code none;
    fs::remove(output, none);
    return outcome;
}

struct Result {
    int compared = 0, refused = 0;  // calls that were done, and that were refused by what the picture is
    std::vector<std::string> different;
};

class Check {
public:
    explicit Check(std::vector<std::string> levels) : levels_(std::move(levels)) {
        const auto path = [&](const char* name) { return (folder_.path / name).string(); };
        put_matrix(path("samples.npy"), 53, 37);
        put_matrix(path("weights.npy"), 29, 37);
        put_matrix(path("bias.npy"), 1, 29);
        put_matrix(path("last.npy"), 11, 29);
        for (const Command& command : commands())
            if (command.operation) results_[command.name];
    }

    void picture(const std::string& name, const Image& image) {
        put_picture((folder_.path / "a.tif").string(), image);
        put_picture((folder_.path / "b.tif").string(), turned(image));
        const std::string size = std::to_string(image.height()) + "x" + std::to_string(image.width());
        for (const char* call : kCalls) {
            std::vector<std::string> words;
            std::istringstream text(call);
            std::string output;
            for (std::string word; text >> word;) {
                const bool npy = word.find(".npy") != std::string::npos;
                if (word == "A" || word == "B") word = (folder_.path / (word == "A" ? "a.tif" : "b.tif")).string();
                if (word == "T") word = size;
                if (word == "O" || word == "O.npy") word = output = (folder_.path / (npy ? "o.npy" : "o.tif")).string();
                if (npy && output.empty()) word = in_folder(word);
                words.push_back(word);
            }
            compare(name, call, words, output);
        }
    }

    const std::map<std::string, Result>& results() const { return results_; }

private:
    // "weights.npy,bias.npy,sigmoid" with the folder before the files.
    std::string in_folder(const std::string& word) const {
        std::string all, part;
        for (std::istringstream parts(word); std::getline(parts, part, ',');)
            all += (all.empty() ? "" : ",") + (part.ends_with(".npy") ? (folder_.path / part).string() : part);
        return all;
    }

    void compare(const std::string& name, const char* call, const std::vector<std::string>& words,
                 const std::string& output) {
        Result& result = results_[words[0]];
        Outcome first;
        for (size_t i = 0; i < levels_.size(); ++i) {
            want_level(levels_[i]);
            const Outcome outcome = run_command(words, output);
            if (i == 0)
                first = outcome;
            else if (!(outcome == first))
                result.different.push_back(levels_[i] + " is not " + levels_[0] + " on " + name + ": " + call);
        }
        ++(first.status == 0 ? result.compared : result.refused);
    }

    std::vector<std::string> levels_;
    Folder folder_;
    std::map<std::string, Result> results_;
};

struct Options {
    std::vector<std::string> inputs;
    bool json = false;
};

void run_selfcheck(const Options& options) {
    std::vector<std::string> levels;
    {
        want_level("");
        unsetenv("TARN_LEVEL");
        const Module module;
        levels = levels_of(module.host());
    }
    if (levels.empty())
        fail("tarn-ipp.so", "has no symbol table, so that its level can't be set", "take it as the build made it");
    Progress::silence();
    Check check(levels);
    for (const std::string& input : options.inputs) check.picture(input, read_image(input));
    if (options.inputs.empty())
        for (const auto& [sample, channels] : std::initializer_list<std::pair<Sample, int>>{{Sample::u8, 1},
                                                                                            {Sample::u8, 3},
                                                                                            {Sample::u8, 4},
                                                                                            {Sample::u16, 3},
                                                                                            {Sample::s16, 1},
                                                                                            {Sample::s16, 4},
                                                                                            {Sample::s32, 3},
                                                                                            {Sample::f32, 1},
                                                                                            {Sample::f32, 3},
                                                                                            {Sample::f32, 4}}) {
            const Image image = make_picture(sample, channels);
            check.picture(describe(image.shape), image);
        }

    size_t different = 0;
    nlohmann::ordered_json told{{"levels", levels}, {"commands", nlohmann::ordered_json::object()}};
    std::string all;
    for (const std::string& level : levels) all += " " + level;
    if (!options.json) std::cout << "levels:" << all << "\n";
    for (const auto& [command, result] : check.results()) {
        different += result.different.size();
        told["commands"][command] = {
            {"compared", result.compared}, {"refused", result.refused}, {"different", result.different}};
        if (options.json) continue;
        char line[80];
        std::snprintf(line, sizeof line, "%-20s %3d calls ", command.c_str(), result.compared);
        std::cout << line << (result.different.empty() ? "the same bits" : "DIFFERENT") << "\n";
        for (const std::string& text : result.different) std::cout << "    " << text << "\n";
    }
    if (options.json) print_json(told);
    if (different)
        fail("selfcheck", std::to_string(different) + " results depend on the level", "please report what was printed");
}
}  // namespace

Run setup_selfcheck(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    add_option(app, "IN", options->inputs, "pictures to try it on (default: made ones of every kind)")
        .type_name("")
        .expected(0, 0);
    add_json(app, options->json);
    return [options] { run_selfcheck(*options); };
}

}  // namespace tarn::tool
