#include "image.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <utility>

#include "error.h"
#include "output.h"

namespace tarn::tool {
namespace {
struct SampleInfo {
    const char* name;
    LumoELEMTYPE type;
    int bytes;
};
constexpr SampleInfo kSamples[] = {{"u8", LUMO_U8, 1},   {"u16", LUMO_S16, 2}, {"s16", LUMO_S16, 2},
                                   {"s32", LUMO_S32, 4}, {"u32", LUMO_U32, 4}, {"f32", LUMO_F32, 4}};
const SampleInfo& info(Sample sample) { return kSamples[static_cast<int>(sample)]; }

constexpr const char* kSmaller = "choose a smaller size or region";

std::string human_bytes(double bytes) {
    const char* const units[] = {"bytes", "KB", "MB", "GB", "TB", "PB", "EB"};
    int unit = 0;
    for (; bytes >= 1000 && unit < 6; ++unit) bytes /= 1000;
    char text[40];
    std::snprintf(text, sizeof text, "%.3g %s", bytes, units[unit]);
    return text;
}

// Copies one channel range row by row; both sides step over whole pixels.
void copy_channels(uint8_t* to, int to_pixel, const uint8_t* from, int from_pixel, int bytes, int64_t count) {
    for (int64_t x = 0; x < count; ++x) std::memcpy(to + x * to_pixel, from + x * from_pixel, bytes);
}
}  // namespace

const char* sample_name(Sample sample) { return info(sample).name; }
LumoELEMTYPE sample_type(Sample sample) { return info(sample).type; }
int sample_bytes(Sample sample) { return info(sample).bytes; }

double opaque(Sample sample) {
    switch (sample) {
        case Sample::u8:
            return 255;
        case Sample::u16:
            return 65535;
        case Sample::s16:
            return 32767;
        case Sample::f32:
            return 1;
        default:
            return 0;
    }
}

std::string describe(const Shape& shape) {
    return std::to_string(shape.width) + "x" + std::to_string(shape.height) + " " + sample_name(shape.sample) + ", " +
           std::to_string(shape.channels) + (shape.channels == 1 ? " channel" : " channels");
}

int32_t Image::stride_for(const Shape& shape, const std::string& subject) {
    const std::string size = std::to_string(shape.width) + "x" + std::to_string(shape.height);
    if (shape.width < 1 || shape.height < 1)
        fail(subject, "a picture of " + size + " has no pixels", "give a positive size");
    if (shape.width > INT32_MAX || shape.height > INT32_MAX)
        fail(subject, size + " is too large", "width and height end at 2147483647");
    // at most 2^31 * 4 channels * 4 bytes: no overflow
    const int64_t row = shape.width * shape.channels * sample_bytes(shape.sample);
    const int64_t stride = (row + 63) / 64 * 64;
    if (stride > INT32_MAX)
        fail(subject, "a row of " + std::to_string(shape.width) + " pixels takes " + human_bytes(double(row)),
             "rows end at 2147483584 bytes; choose a smaller width");
    const int64_t total = stride * shape.height;  // below 2^62
    const int64_t memory = int64_t(sysconf(_SC_PHYS_PAGES)) * sysconf(_SC_PAGESIZE);
    if (total > memory - 64)
        fail(subject,
             size + " takes " + human_bytes(double(total)) + " of memory, this machine has " +
                 human_bytes(double(memory)),
             kSmaller);
    return static_cast<int32_t>(stride);
}

Image Image::make(const Shape& shape, const std::string& subject) {
    Image image;
    image.shape = shape;
    image.stride = stride_for(shape, subject);
    const size_t total = size_t(image.stride) * size_t(shape.height);
    void* pixels = nullptr;
    if (posix_memalign(&pixels, 64, total) != 0)
        fail(subject, "no memory for " + describe(shape) + " (" + human_bytes(double(total)) + ")", kSmaller);
    image.pixels.reset(static_cast<uint8_t*>(pixels));
    return image;
}

std::vector<uint8_t*> Image::rows() {
    std::vector<uint8_t*> all(static_cast<size_t>(shape.height));
    for (size_t y = 0; y < all.size(); ++y) all[y] = row(static_cast<int64_t>(y));
    return all;
}

LumoMAT Image::view() const {
    return {nullptr,     sample_type(shape.sample) | LUMO_CHANNELS(shape.channels), width(), height(), stride,
            pixels.get()};
}

Image take_channels(const Image& image, int first, int count) {
    Shape shape = image.shape;
    shape.channels = count;
    shape.alpha = Alpha::none;
    Image part = Image::make(shape, "channels");
    const int bytes = sample_bytes(shape.sample);
    for (int y = 0; y < image.height(); ++y)
        copy_channels(part.row(y), count * bytes, image.row(y) + first * bytes, image.shape.channels * bytes,
                      count * bytes, image.width());
    return part;
}

void put_channels(Image& into, const Image& part, int first) {
    const int bytes = sample_bytes(into.shape.sample), count = part.shape.channels;
    for (int y = 0; y < into.height(); ++y)
        copy_channels(into.row(y) + first * bytes, into.shape.channels * bytes, part.row(y), count * bytes,
                      count * bytes, into.width());
}

void flip_offset16(uint8_t* row, size_t samples) {
    // v - 32768 and its reverse are both the change of the top bit
    uint16_t* values = reinterpret_cast<uint16_t*>(row);
    for (size_t i = 0; i < samples; ++i) values[i] ^= 0x8000;
}

void invert(uint8_t* row, size_t samples, Sample sample) {
    const size_t bytes = samples * sample_bytes(sample);
    for (size_t i = 0; i < bytes; ++i) row[i] = static_cast<uint8_t>(~row[i]);
}

Image as_floats(const Image& image) {
    Shape shape = image.shape;
    shape.sample = Sample::f32;
    shape.white_is_zero = false;
    Image result = Image::make(shape, "the picture in floats");
    const int64_t samples = shape.width * shape.channels;
    for (int y = 0; y < image.height(); ++y) {
        float* to = reinterpret_cast<float*>(result.row(y));
        const auto take = [&](auto type, int offset) {
            const auto* from = reinterpret_cast<const decltype(type)*>(image.row(y));
            for (int64_t i = 0; i < samples; ++i) to[i] = static_cast<float>(from[i]) + static_cast<float>(offset);
        };
        switch (image.shape.sample) {
            case Sample::u8:
                take(uint8_t(), 0);
                break;
            case Sample::u16:
                take(int16_t(), kOffset16);
                break;
            case Sample::s16:
                take(int16_t(), 0);
                break;
            case Sample::s32:
                take(int32_t(), 0);
                break;
            case Sample::u32:
                take(uint32_t(), 0);
                break;
            case Sample::f32:
                std::memcpy(to, image.row(y), image.row_bytes());
        }
    }
    return result;
}

Image from_floats(Image image, const Shape& like) {
    if (image.shape.sample == like.sample) return image;
    Image result = Image::make(like, "the picture");
    const int64_t samples = like.width * like.channels;
    for (int y = 0; y < image.height(); ++y) {
        const float* from = reinterpret_cast<const float*>(image.row(y));
        const auto put = [&](auto type, double low, double high, double offset) {
            auto* to = reinterpret_cast<decltype(type)*>(result.row(y));
            for (int64_t i = 0; i < samples; ++i) {
                const double value = from[i] == from[i] ? static_cast<double>(from[i]) : 0;
                to[i] = static_cast<decltype(type)>(std::nearbyint(std::clamp(value, low, high)) - offset);
            }
        };
        if (like.sample == Sample::u8)
            put(uint8_t(), 0, UINT8_MAX, 0);
        else if (like.sample == Sample::u16)
            put(int16_t(), 0, UINT16_MAX, kOffset16);
        else
            put(int32_t(), INT32_MIN, INT32_MAX, 0);
    }
    return result;
}

// ---- Files --------------------------------------------------------------------------------------------------------

namespace {
enum class Content { png, jpeg, pnm, tiff, none };

// What a file is, by its first bytes.
constexpr size_t kMagicBytes = 8;
Content content_of(std::span<const uint8_t> bytes) {
    const auto begins = [&](const char* magic, size_t size) {
        return bytes.size() >= size && std::memcmp(bytes.data(), magic, size) == 0;
    };
    if (begins("\x89PNG\r\n\x1a\n", kMagicBytes)) return Content::png;
    if (begins("\xff\xd8\xff", 3)) return Content::jpeg;
    for (const char* magic : {"II*\0", "MM\0*", "II+\0", "MM\0+"})
        if (begins(magic, 4)) return Content::tiff;
    const bool map = begins("P", 1) && bytes.size() > 3 && std::strchr("123456Ff", bytes[1]) && bytes[1];
    if (map && std::isspace(bytes[2])) return Content::pnm;
    return Content::none;
}

void require_picture(std::span<const uint8_t> bytes, const std::string& name) {
    if (bytes.empty()) fail(name, "is empty", "give a PNG, JPEG, TIFF or PNM picture");
    if (content_of(bytes) == Content::none)
        fail(name, "is not a PNG, JPEG, TIFF or PNM picture", "convert it to one of these first");
}
}  // namespace

InputFile open_input(std::string& name) {
    static bool standard_input_read = false;
    if (name != "-") {
        InputFile file(std::fopen(name.c_str(), "rb"));
        if (!file) fail(name, "can't be read: " + system_reason(errno), "check the name");
        return file;
    }
    name = "standard input";
    if (std::exchange(standard_input_read, true)) fail(name, "holds one input and is asked for two", "give \"-\" once");
    return InputFile(stdin);
}

std::vector<uint8_t> read_file(const std::string& name) {
    std::string path = name;
    const InputFile file = open_input(path);
    struct stat status = {};
    if (fstat(fileno(file.get()), &status) == 0 && S_ISDIR(status.st_mode))
        fail(path, "is a folder", "name a picture in it, or give --out-dir if the command has it");
    std::vector<uint8_t> bytes(S_ISREG(status.st_mode) ? static_cast<size_t>(status.st_size) + 1 : 1 << 16);
    size_t used = 0;
    const auto read = [&](size_t most) {
        const size_t got = std::fread(bytes.data() + used, 1, most, file.get());
        if (got == 0 && std::ferror(file.get())) fail(path, "can't be read: " + system_reason(errno), "check the disk");
        used += got;
        return got;
    };
    // A device or a pipe may go on for ever.
    read(std::min(bytes.size(), kMagicBytes));
    require_picture({bytes.data(), used}, path);
    while (read(bytes.size() - used))
        if (used == bytes.size()) bytes.resize(bytes.size() * 2);
    bytes.resize(used);
    return bytes;
}

Image decode_image(std::span<const uint8_t> bytes, const std::string& name, const Reading& reading) {
    require_picture(bytes, name);
    const Content content = content_of(bytes);
    if (content != Content::tiff && reading.page > 1)
        fail(name, "holds one picture, and page " + std::to_string(reading.page) + " is asked for", "give --page 1");
    Image image = content == Content::png    ? decode_png(bytes, name)
                  : content == Content::jpeg ? decode_jpeg(bytes, name)
                  : content == Content::pnm  ? decode_pnm(bytes, name)
                                             : decode_tiff(bytes, name, reading.page);
    const int orientation = std::exchange(image.orientation, 1);
    return reading.autorotate ? upright(std::move(image), orientation) : std::move(image);
}

Image read_image(const std::string& path, const Reading& reading) {
    return decode_image(read_file(path), path == "-" ? "standard input" : path, reading);
}

int count_pages(const std::string& path) {
    int pages = 1;
    std::string failure;  // told when the picture itself is read
    status_of(
        [&] {
            const auto bytes = read_file(path);
            if (content_of(bytes) == Content::tiff) pages = count_tiff_pages(bytes);
        },
        failure);
    return pages;
}

std::optional<Format> format_of_name(const std::string& path) {
    std::string extension = std::filesystem::path(path).extension().string();
    for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (extension == ".png") return Format::png;
    if (extension == ".jpg" || extension == ".jpeg") return Format::jpeg;
    if (extension == ".tif" || extension == ".tiff") return Format::tiff;
    if (extension == ".pgm" || extension == ".ppm" || extension == ".pnm") return Format::pnm;
    if (extension == ".pfm") return Format::pfm;
    return {};
}

void check_format(const Shape& shape, Format format, const std::string& path) {
    const bool small = shape.sample == Sample::u8 || shape.sample == Sample::u16;
    const bool alpha = shape.channels == 2 || shape.channels == 4;
    if (format == Format::pnm || format == Format::pfm) {
        if (format == Format::pnm ? !small : shape.sample != Sample::f32)
            fail(path, std::string("such a map can't hold ") + sample_name(shape.sample) + " samples",
                 small                         ? "write .ppm, .png or .tiff"
                 : shape.sample == Sample::f32 ? "write .pfm or .tiff"
                                               : "write .tiff");
        if (alpha) fail(path, "such a map can't hold an alpha channel", "write .tiff");
        if (path.ends_with(shape.channels == 3 ? ".pgm" : ".ppm"))
            fail(path, shape.channels == 3 ? "is a name for grey pictures" : "is a name for pictures in colours",
                 shape.channels == 3 ? "write .ppm" : "write .pgm");
    }
    if (format == Format::png && !small)
        fail(path, std::string("PNG can't hold ") + sample_name(shape.sample) + " samples", "write .tiff");
    if (format == Format::jpeg) {
        const char* const remedy = small ? "write .png or .tiff" : "write .tiff";
        if (shape.sample != Sample::u8)
            fail(path, std::string("JPEG holds 8-bit samples, these are ") + sample_name(shape.sample), remedy);
        if (alpha) fail(path, "JPEG can't hold an alpha channel", remedy);
        if (shape.width > 65500 || shape.height > 65500) fail(path, "JPEG ends at 65500 pixels a side", remedy);
    }
}

void encode_image(OutputFile& out, const Image& image, Format format, const Encoding& encoding) {
    check_format(image.shape, format, out.path());
    const Tags tags = tags_to_write(image.shape, format, out.path());
    switch (format) {
        case Format::png:
            return encode_png(out, image, tags, encoding.png_effort);
        case Format::jpeg:
            return encode_jpeg(out, image, tags, encoding);
        case Format::tiff:
            return encode_tiff(out, image, tags, encoding.tiff_compression);
        case Format::pnm:
        case Format::pfm:
            return encode_pnm(out, image);
    }
}

void damaged(const std::string& name, const char* format, const std::string& reason) {
    fail(name, std::string("is a damaged or incomplete ") + format + " picture (" + reason + ")",
         "get a whole copy of it");
}

}  // namespace tarn::tool
