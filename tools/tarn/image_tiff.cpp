// TIFF by libtiff: grey and RGB, with or without alpha, samples u8, u16, s16, s32, u32 and f32; strips and tiles,
// channels together or in planes, either byte order, every compression that the library knows; grey of 1, 2 and 4 bits
// and palettes, which are expanded. Written: strips, channels together, compressed with a predictor, BigTIFF when 4 GB
// would not do.
#include <tiffio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "error.h"
#include "image.h"
#include "output.h"

namespace tarn::tool {
namespace {
thread_local char first_message[200];

void keep_message(const char*, const char* format, va_list values) {
    if (!first_message[0]) std::vsnprintf(first_message, sizeof first_message, format, values);
}
void install_handlers() {
    TIFFSetErrorHandler(keep_message);
    TIFFSetWarningHandler(nullptr);
    first_message[0] = 0;
}

struct CloseTiff {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};
using Tiff = std::unique_ptr<TIFF, CloseTiff>;

// A file in memory, as libtiff's client functions want it.
struct Source {
    std::span<const uint8_t> bytes;
    uint64_t at = 0;
};
tmsize_t source_read(thandle_t handle, void* to, tmsize_t count) {
    Source& source = *static_cast<Source*>(handle);
    if (source.at >= source.bytes.size() || count <= 0) return 0;
    const size_t got = std::min<uint64_t>(static_cast<uint64_t>(count), source.bytes.size() - source.at);
    std::memcpy(to, source.bytes.data() + source.at, got);
    source.at += got;
    return static_cast<tmsize_t>(got);
}
tmsize_t source_write(thandle_t, void*, tmsize_t) { return 0; }
toff_t source_seek(thandle_t handle, toff_t offset, int whence) {
    Source& source = *static_cast<Source*>(handle);
    source.at = whence == SEEK_SET ? offset : whence == SEEK_CUR ? source.at + offset : source.bytes.size() + offset;
    return source.at;
}
int source_close(thandle_t) { return 0; }
toff_t source_size(thandle_t handle) { return static_cast<Source*>(handle)->bytes.size(); }
int source_map(thandle_t handle, void** base, toff_t* size) {
    Source& source = *static_cast<Source*>(handle);
    *base = const_cast<uint8_t*>(source.bytes.data());
    *size = source.bytes.size();
    return 1;
}
void source_unmap(thandle_t, void*, toff_t) {}

uint16_t tag(TIFF* tiff, uint32_t which) {
    uint16_t value = 0;
    TIFFGetFieldDefaulted(tiff, which, &value);
    return value;
}

Sample sample_of(TIFF* tiff, const std::string& name) {
    const int bits = tag(tiff, TIFFTAG_BITSPERSAMPLE), format = tag(tiff, TIFFTAG_SAMPLEFORMAT);
    if (format == SAMPLEFORMAT_IEEEFP && bits == 32) return Sample::f32;
    if (format == SAMPLEFORMAT_INT && bits == 16) return Sample::s16;
    if (format == SAMPLEFORMAT_INT && bits == 32) return Sample::s32;
    if (format == SAMPLEFORMAT_UINT || format == SAMPLEFORMAT_VOID) {
        if (bits == 8) return Sample::u8;
        if (bits == 16) return Sample::u16;
        if (bits == 32) return Sample::u32;
    }
    const char* kind = format == SAMPLEFORMAT_IEEEFP ? "float"
                       : format == SAMPLEFORMAT_INT  ? "signed"
                       : format == SAMPLEFORMAT_UINT ? "unsigned"
                                                     : "complex or unknown";
    fail(name, "has " + std::to_string(bits) + "-bit " + kind + " samples, which tarn does not read",
         "convert it to 8- or 16-bit integers or 32-bit float");
}

// Whether pixels are small numbers that stand for others: a palette, or grey of less than 8 bits.
bool is_index(TIFF* tiff) {
    const int bits = tag(tiff, TIFFTAG_BITSPERSAMPLE), format = tag(tiff, TIFFTAG_SAMPLEFORMAT);
    uint16_t photometric = PHOTOMETRIC_MINISBLACK;
    TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &photometric);
    const bool small = bits == 1 || bits == 2 || bits == 4;
    if (tag(tiff, TIFFTAG_SAMPLESPERPIXEL) != 1 || (format != SAMPLEFORMAT_UINT && format != SAMPLEFORMAT_VOID))
        return false;
    return photometric == PHOTOMETRIC_PALETTE ? small || bits == 8 : small && photometric <= PHOTOMETRIC_MINISBLACK;
}

Shape shape_of(TIFF* tiff, const std::string& name) {
    Shape shape;
    uint32_t width = 0, height = 0;
    TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height);
    shape.width = width;
    shape.height = height;
    shape.channels = tag(tiff, TIFFTAG_SAMPLESPERPIXEL);
    uint16_t photometric = shape.channels >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK;
    TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &photometric);
    if (photometric == PHOTOMETRIC_YCBCR && tag(tiff, TIFFTAG_COMPRESSION) == COMPRESSION_JPEG) {
        TIFFSetField(tiff, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
        photometric = PHOTOMETRIC_RGB;
    }
    if (is_index(tiff)) {
        shape.white_is_zero = photometric == PHOTOMETRIC_MINISWHITE;
        return shape;
    }
    const bool grey = photometric == PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_MINISWHITE;
    if (!grey && photometric != PHOTOMETRIC_RGB)
        fail(name, "is a TIFF of colours other than grey or RGB (photometric " + std::to_string(photometric) + ")",
             "convert it to grey or RGB first");
    shape.sample = sample_of(tiff, name);
    shape.white_is_zero = photometric == PHOTOMETRIC_MINISWHITE;
    const bool is_unsigned = shape.sample == Sample::u8 || shape.sample == Sample::u16 || shape.sample == Sample::u32;
    if (shape.white_is_zero && !is_unsigned)
        fail(name, "counts from white in signed samples, which tarn does not read", "convert it to black-is-zero");
    const int colours = grey ? 1 : 3;
    if (shape.channels != colours && shape.channels != colours + 1)
        fail(name, "has " + std::to_string(shape.channels) + " channels, tarn reads 1 to 4", "split it first");
    if (shape.channels == colours + 1) {
        uint16_t count = 0, *kinds = nullptr;
        TIFFGetField(tiff, TIFFTAG_EXTRASAMPLES, &count, &kinds);
        const uint16_t kind = count ? kinds[0] : uint16_t(EXTRASAMPLE_UNSPECIFIED);
        shape.alpha = kind == EXTRASAMPLE_UNASSALPHA   ? Alpha::straight
                      : kind == EXTRASAMPLE_ASSOCALPHA ? Alpha::premultiplied
                                                       : Alpha::unspecified;
    }
    return shape;
}

[[noreturn]] void read_failed(const std::string& name) {
    damaged(name, "TIFF", first_message[0] ? first_message : "its data can't be decoded");
}

// Puts count samples of one plane into channel of the pixels at to.
void spread(uint8_t* to, int pixel_bytes, const uint8_t* from, int bytes, int64_t count) {
    for (int64_t i = 0; i < count; ++i) std::memcpy(to + i * pixel_bytes, from + i * bytes, bytes);
}

void read_strips(TIFF* tiff, Image& image, bool planar, const std::string& name) {
    const int bytes = sample_bytes(image.shape.sample), planes = planar ? image.shape.channels : 1;
    const size_t line_bytes = image.row_bytes() / planes;
    if (static_cast<uint64_t>(TIFFScanlineSize64(tiff)) != line_bytes) read_failed(name);
    std::vector<uint8_t> line(planar ? line_bytes : 0);
    for (int plane = 0; plane < planes; ++plane)
        for (int y = 0; y < image.height(); ++y) {
            uint8_t* to = planar ? line.data() : image.row(y);
            if (TIFFReadScanline(tiff, to, y, plane) != 1) read_failed(name);
            if (planar) spread(image.row(y) + plane * bytes, planes * bytes, to, bytes, image.width());
        }
}

void read_tiles(TIFF* tiff, Image& image, bool planar, const std::string& name) {
    const int bytes = sample_bytes(image.shape.sample), planes = planar ? image.shape.channels : 1;
    const int pixel_bytes = bytes * image.shape.channels, tile_pixel = planar ? bytes : pixel_bytes;
    uint32_t tile_width = 0, tile_height = 0;
    TIFFGetField(tiff, TIFFTAG_TILEWIDTH, &tile_width);
    TIFFGetField(tiff, TIFFTAG_TILELENGTH, &tile_height);
    if (!tile_width || !tile_height) read_failed(name);
    Shape tile_shape = image.shape;  // checked against the memory of the machine like any picture
    tile_shape.width = tile_width;
    tile_shape.height = tile_height;
    tile_shape.channels = tile_pixel / bytes;
    Image tile = Image::make(tile_shape, name);
    const uint64_t tile_row = uint64_t(tile_width) * tile_pixel;
    if (TIFFTileSize64(tiff) != tile_row * tile_height) read_failed(name);
    for (int plane = 0; plane < planes; ++plane)
        for (int64_t top = 0; top < image.height(); top += tile_height)
            for (int64_t left = 0; left < image.width(); left += tile_width) {
                if (TIFFReadTile(tiff, tile.pixels.get(), uint32_t(left), uint32_t(top), 0, uint16_t(plane)) < 0)
                    read_failed(name);
                const int64_t columns = std::min<int64_t>(tile_width, image.width() - left);
                const int64_t rows = std::min<int64_t>(tile_height, image.height() - top);
                for (int64_t y = 0; y < rows; ++y) {
                    uint8_t* to = image.row(top + y) + left * pixel_bytes + plane * bytes;
                    const uint8_t* from = tile.pixels.get() + y * tile_row;
                    if (planar)
                        spread(to, pixel_bytes, from, bytes, columns);
                    else
                        std::memcpy(to, from, columns * pixel_bytes);
                }
            }
}

// Rows of packed numbers of 1, 2 or 4 bits, a byte each in memory.
void read_packed(TIFF* tiff, Image& image, int bits, const std::string& name) {
    if (TIFFIsTiled(tiff))
        fail(name, "has tiles of " + std::to_string(bits) + "-bit samples, which tarn does not read",
             "store it in strips");
    std::vector<uint8_t> line((size_t(image.width()) * size_t(bits) + 7) / 8);
    if (static_cast<uint64_t>(TIFFScanlineSize64(tiff)) != line.size()) read_failed(name);
    for (int y = 0; y < image.height(); ++y) {
        if (TIFFReadScanline(tiff, line.data(), uint32_t(y), 0) != 1) read_failed(name);
        for (int64_t x = 0; x < image.width(); ++x) {
            const int64_t first = x * bits;
            image.row(y)[x] = uint8_t(line[size_t(first / 8)] >> (8 - bits - first % 8) & ((1 << bits) - 1));
        }
    }
}

// The pixels that numbers of so many bits stand for.
Image expand(TIFF* tiff, Image numbers, int bits, const std::string& name) {
    uint16_t* colours[3] = {};
    if (!TIFFGetField(tiff, TIFFTAG_COLORMAP, &colours[0], &colours[1], &colours[2])) {
        for (int y = 0; y < numbers.height(); ++y)
            for (int x = 0; x < numbers.width(); ++x)
                numbers.row(y)[x] = uint8_t(numbers.row(y)[x] * 255 / ((1 << bits) - 1));
        return numbers;
    }
    Shape shape = numbers.shape;
    shape.channels = 3;
    Image image = Image::make(shape, name);
    image.orientation = numbers.orientation;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            for (int c = 0; c < 3; ++c) image.row(y)[3 * x + c] = uint8_t(colours[c][numbers.row(y)[x]] >> 8);
    return image;
}

constexpr double kInch = 2.54;  // centimetres

Tags tags_of(TIFF* tiff) {
    Tags tags;
    uint32_t size = 0;
    void* data = nullptr;
    float across = 0, down = 0;
    if (TIFFGetField(tiff, TIFFTAG_ICCPROFILE, &size, &data) && data)
        tags.profile.assign(static_cast<uint8_t*>(data), static_cast<uint8_t*>(data) + size);
    const uint16_t unit = tag(tiff, TIFFTAG_RESOLUTIONUNIT);
    if (unit != RESUNIT_NONE && TIFFGetField(tiff, TIFFTAG_XRESOLUTION, &across) &&
        TIFFGetField(tiff, TIFFTAG_YRESOLUTION, &down)) {
        tags.across = across * (unit == RESUNIT_CENTIMETER ? kInch : 1);
        tags.down = down * (unit == RESUNIT_CENTIMETER ? kInch : 1);
    }
    return tags;
}

// The numbers of the directories that hold pictures of their own, not reduced copies of others.
std::vector<tdir_t> pages_of(TIFF* tiff) {
    std::vector<tdir_t> pages;
    do {
        uint32_t kind = 0;
        TIFFGetField(tiff, TIFFTAG_SUBFILETYPE, &kind);
        if (!(kind & FILETYPE_REDUCEDIMAGE)) pages.push_back(TIFFCurrentDirectory(tiff));
    } while (TIFFReadDirectory(tiff));
    if (pages.empty()) pages.push_back(0);
    return pages;
}

Tiff open_source(Source& source) {
    return Tiff(TIFFClientOpen("picture", "r", &source, source_read, source_write, source_seek, source_close,
                               source_size, source_map, source_unmap));
}

// Between the file's samples and those in memory; its own reverse. Alpha is no colour and stays when colours are
// inverted.
void file_samples(uint8_t* row, const Shape& shape) {
    const size_t samples = static_cast<size_t>(shape.width) * shape.channels;
    const int bytes = sample_bytes(shape.sample);
    if (shape.sample == Sample::u16) flip_offset16(row, samples);
    if (shape.white_is_zero)
        for (int64_t x = 0; x < shape.width; ++x) invert(row + x * shape.channels * bytes, 1, shape.sample);
}

void write_tags(TIFF* tiff, const Shape& shape, const Tags& tags, Encoding::Tiff compression) {
    const bool grey = shape.channels <= 2;
    const int bits = 8 * sample_bytes(shape.sample);
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(shape.width));
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(shape.height));
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, shape.channels);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, bits);
    const bool is_signed = shape.sample == Sample::s16 || shape.sample == Sample::s32,
               is_float = shape.sample == Sample::f32;
    TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT,
                 is_float    ? SAMPLEFORMAT_IEEEFP
                 : is_signed ? SAMPLEFORMAT_INT
                             : SAMPLEFORMAT_UINT);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC,
                 !grey                 ? PHOTOMETRIC_RGB
                 : shape.white_is_zero ? PHOTOMETRIC_MINISWHITE
                                       : PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    if (shape.channels == 2 || shape.channels == 4) {
        const uint16_t kind = shape.alpha == Alpha::premultiplied ? EXTRASAMPLE_ASSOCALPHA
                              : shape.alpha == Alpha::unspecified ? EXTRASAMPLE_UNSPECIFIED
                                                                  : EXTRASAMPLE_UNASSALPHA;
        TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, &kind);
    }
    constexpr int kCompressions[] = {COMPRESSION_NONE, COMPRESSION_LZW, COMPRESSION_ADOBE_DEFLATE};
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, kCompressions[static_cast<int>(compression)]);
    if (compression != Encoding::Tiff::none)
        TIFFSetField(tiff, TIFFTAG_PREDICTOR, is_float ? PREDICTOR_FLOATINGPOINT : PREDICTOR_HORIZONTAL);
    if (!tags.profile.empty())
        TIFFSetField(tiff, TIFFTAG_ICCPROFILE, static_cast<uint32_t>(tags.profile.size()), tags.profile.data());
    if (tags.across > 0) {
        TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
        TIFFSetField(tiff, TIFFTAG_XRESOLUTION, tags.across);
        TIFFSetField(tiff, TIFFTAG_YRESOLUTION, tags.down);
    }
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tiff, 0));
}
}  // namespace

int count_tiff_pages(std::span<const uint8_t> bytes) {
    install_handlers();
    Source source{bytes};
    const Tiff tiff = open_source(source);
    return tiff ? static_cast<int>(pages_of(tiff.get()).size()) : 1;
}

Image decode_tiff(std::span<const uint8_t> bytes, const std::string& name, int page) {
    install_handlers();
    Source source{bytes};
    const Tiff tiff = open_source(source);
    if (!tiff) read_failed(name);
    const std::vector<tdir_t> pages = pages_of(tiff.get());
    if (!page && pages.size() > 1)
        fail(name, "holds " + std::to_string(pages.size()) + " pictures",
             "choose one with --page 1 to " + std::to_string(pages.size()) + ", or --page all and --out-dir");
    if (page > static_cast<int>(pages.size()))
        fail(name, "has no page " + std::to_string(page), "give --page 1 to " + std::to_string(pages.size()));
    first_message[0] = 0;
    if (!TIFFSetDirectory(tiff.get(), pages[page ? static_cast<size_t>(page) - 1 : 0])) read_failed(name);
    const bool planar = tag(tiff.get(), TIFFTAG_PLANARCONFIG) == PLANARCONFIG_SEPARATE;
    Shape shape = shape_of(tiff.get(), name);
    set_tags(shape, tags_of(tiff.get()));
    Image image = Image::make(shape, name);
    image.orientation = tag(tiff.get(), TIFFTAG_ORIENTATION);
    const bool index = is_index(tiff.get());
    const int bits = tag(tiff.get(), TIFFTAG_BITSPERSAMPLE);
    if (index && bits < 8)
        read_packed(tiff.get(), image, bits, name);
    else if (TIFFIsTiled(tiff.get()))
        read_tiles(tiff.get(), image, planar, name);
    else
        read_strips(tiff.get(), image, planar, name);
    if (index) image = expand(tiff.get(), std::move(image), bits, name);
    for (int y = 0; y < image.height(); ++y) file_samples(image.row(y), image.shape);
    return image;
}

void encode_tiff(OutputFile& out, const Image& image, const Tags& tags, Encoding::Tiff compression) {
    install_handlers();
    const auto failed = [&] {
        if (errno) out.write_failed(errno);
        fail(out.path(), std::string("can't be written as TIFF: ") + first_message, "write .png");
    };
    errno = 0;
    // LZW can grow incompressible data by half
    const bool big = uint64_t(image.row_bytes()) * image.shape.height > UINT32_MAX / 2;
    const int file = dup(fileno(out.stream()));  // closed with the TIFF
    Tiff tiff(file < 0 ? nullptr : TIFFFdOpen(file, "picture", big ? "w8" : "w"));
    if (!tiff) failed();
    write_tags(tiff.get(), image.shape, tags, compression);
    std::vector<uint8_t> row(image.row_bytes());  // a copy: encoding predictors and byte swaps work in place
    for (int y = 0; y < image.height(); ++y) {
        std::memcpy(row.data(), image.row(y), row.size());
        file_samples(row.data(), image.shape);
        if (TIFFWriteScanline(tiff.get(), row.data(), y, 0) != 1) failed();
    }
    if (!TIFFFlush(tiff.get())) failed();
    tiff.reset();
    if (first_message[0]) failed();
}

}  // namespace tarn::tool
