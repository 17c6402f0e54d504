// Pictures in memory, and their way from and to files.
//
// A picture owns its pixels and keeps what the file said about them, so that the output is of the same kind as the
// input. Module kernels know u8, s16, s32, u32 and f32. Unsigned 16-bit samples are kept as s16 by subtracting 32768
// (kOffset16): resampling weights add up to one, so geometry commutes with the offset and is exact; commands that look
// at values work on floats, which hold them all (as_floats, from_floats).
#ifndef TARN_TOOLS_IMAGE_H
#define TARN_TOOLS_IMAGE_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "lumo.h"

namespace tarn::tool {

enum class Sample { u8, u16, s16, s32, u32, f32 };                // what a file's samples mean
enum class Alpha { none, straight, premultiplied, unspecified };  // the last channel of 2 and 4

inline constexpr int kOffset16 = 32768;  // a u16 sample v is kept as the s16 v - kOffset16

// What goes along with a picture from file to file.
struct Tags {
    std::vector<uint8_t> profile;  // ICC; may be empty
    double across = 0, down = 0;   // pixels per inch; 0: not known
};

struct Shape {
    int64_t width = 0, height = 0;  // pixels
    int channels = 1;               // 1 grey, 2 grey and alpha, 3 RGB, 4 RGB and alpha
    Sample sample = Sample::u8;
    Alpha alpha = Alpha::none;
    bool white_is_zero = false;             // the file counts from white; pixels in memory always count from black
    std::shared_ptr<const Tags> tags = {};  // none: the file has none
};

const char* sample_name(Sample sample);   // "u8", "u16", ...
LumoELEMTYPE sample_type(Sample sample);  // type word of one channel in memory; LUMO_S16 for u16
int sample_bytes(Sample sample);
double opaque(Sample sample);              // what stands for it in alpha; 0 where that is not known
std::string describe(const Shape& shape);  // "600x400 u8, 3 channels"

struct Image {
    Shape shape;
    int32_t stride = 0;   // bytes, a multiple of 64
    int orientation = 1;  // that a file asks for, as EXIF counts them; 1 once it was followed

    // A picture whose pixels are still to be written. Throws, naming subject, when the size is not positive, a row
    // exceeds what a 32-bit stride can tell or the whole exceeds this machine's memory; all computed in 64 bits before
    // anything is allocated.
    static Image make(const Shape& shape, const std::string& subject);

    // The stride that such a picture has; throws as make does.
    static int32_t stride_for(const Shape& shape, const std::string& subject);

    int32_t width() const { return static_cast<int32_t>(shape.width); }
    int32_t height() const { return static_cast<int32_t>(shape.height); }
    bool has_alpha() const { return shape.channels == 2 || shape.channels == 4; }
    size_t row_bytes() const { return static_cast<size_t>(shape.width) * shape.channels * sample_bytes(shape.sample); }
    uint8_t* row(int64_t y) { return pixels.get() + y * stride; }
    const uint8_t* row(int64_t y) const { return pixels.get() + y * stride; }
    std::vector<uint8_t*> rows();
    LumoMAT view() const;  // valid while the picture lives

    struct Free {
        void operator()(uint8_t* memory) const { std::free(memory); }
    };
    std::unique_ptr<uint8_t[], Free> pixels;
};

// Channels first .. first + count - 1 as a picture of their own, and back.
Image take_channels(const Image& image, int first, int count);
void put_channels(Image& into, const Image& part, int first);

// Samples u16 <-> s16 with the offset, in place; other samples stay. Used by readers and writers.
void flip_offset16(uint8_t* row, size_t samples);
// White-is-zero rows of unsigned samples <-> black-is-zero, in place.
void invert(uint8_t* row, size_t samples, Sample sample);

// For commands whose result depends on the values themselves: the same values in f32 samples, those of s32 and u32
// beyond 2^24 rounded.
Image as_floats(const Image& image);
// A result that was worked out in f32 samples, as one of like's u8, u16 or s32: rounded to the nearest, ties to even,
// saturated; NaN becomes 0. One that has like's samples already is that itself.
Image from_floats(Image image, const Shape& like);

// ---- Files --------------------------------------------------------------------------------------------------------

enum class Format { png, jpeg, tiff, pnm, pfm };

struct Encoding {
    int jpeg_quality = 92;  // 1 to 100
    int jpeg_chroma = 420;  // 444, 422 or 420
    int png_effort = 6;     // 0 to 9
    enum class Tiff { none, lzw, deflate } tiff_compression = Tiff::lzw;
};

struct Close {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using InputFile = std::unique_ptr<std::FILE, Close>;
// Opens a file for reading. "-" is standard input, which can be had once; name becomes what messages call it.
InputFile open_input(std::string& name);

// The whole of a picture file; throws when its first bytes are not those of a picture, before it reads on.
std::vector<uint8_t> read_file(const std::string& path);
struct Reading {
    bool autorotate = true;  // by the file's orientation
    int page = 0;            // from 1 on; 0: the only one
};
// Reads a picture; the format is told by the content. Throws with a message that names the file. "-" is standard input.
Image read_image(const std::string& path, const Reading& reading = {});
Image decode_image(std::span<const uint8_t> bytes, const std::string& name, const Reading& reading = {});
// How many pictures a file holds, reduced copies left out; 1 where that can't be told.
int count_pages(const std::string& path);

// The format that a file name's extension stands for, if any.
std::optional<Format> format_of_name(const std::string& path);
// Throws when the format can't hold the picture's samples or alpha, naming one that can.
void check_format(const Shape& shape, Format format, const std::string& path);
class OutputFile;
void encode_image(OutputFile& out, const Image& image, Format format, const Encoding& encoding);

// The orientation in an EXIF block, 1 where it has none.
int exif_orientation(std::span<const uint8_t> bytes);
// The picture as it is to be looked at.
Image upright(Image image, int orientation);
// Keeps with the shape what there is of them.
void set_tags(Shape& shape, Tags tags);
// Those that the output can have; warns of the others.
Tags tags_to_write(const Shape& shape, Format format, const std::string& path);

// One reader and one writer for each format (image_png.cpp, image_jpeg.cpp, image_pnm.cpp, image_tiff.cpp).
Image decode_png(std::span<const uint8_t> bytes, const std::string& name);
Image decode_jpeg(std::span<const uint8_t> bytes, const std::string& name);
Image decode_pnm(std::span<const uint8_t> bytes, const std::string& name);
Image decode_tiff(std::span<const uint8_t> bytes, const std::string& name, int page);
int count_tiff_pages(std::span<const uint8_t> bytes);
void encode_png(OutputFile& out, const Image& image, const Tags& tags, int effort);
void encode_jpeg(OutputFile& out, const Image& image, const Tags& tags, const Encoding& encoding);
void encode_pnm(OutputFile& out, const Image& image);
void encode_tiff(OutputFile& out, const Image& image, const Tags& tags, Encoding::Tiff compression);
// The reader's error for a file that its library can't decode.
[[noreturn]] void damaged(const std::string& name, const char* format, const std::string& reason);

}  // namespace tarn::tool
#endif
