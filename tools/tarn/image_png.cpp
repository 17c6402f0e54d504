// PNG by libpng. Palettes, transparent colours and samples below 8 bits are expanded; interlaced files are read too.
//
// libpng reports errors by longjmp: what runs under setjmp here holds no object with a destructor, and exceptions are
// thrown only after it has returned.
#include <png.h>

#include <bit>
#include <cerrno>
#include <csetjmp>
#include <cstring>

#include "error.h"
#include "image.h"
#include "output.h"

namespace tarn::tool {
namespace {
struct Message {
    char text[200] = "";
};

void on_error(png_structp png, png_const_charp text) {
    std::snprintf(static_cast<Message*>(png_get_error_ptr(png))->text, sizeof Message::text, "%s", text);
    longjmp(png_jmpbuf(png), 1);
}
void on_warning(png_structp, png_const_charp) {}

struct Reader {
    png_structp png;
    png_infop info = nullptr;
    std::span<const uint8_t> rest;
    explicit Reader(std::span<const uint8_t> bytes, Message* message)
        : png(png_create_read_struct(PNG_LIBPNG_VER_STRING, message, on_error, on_warning)), rest(bytes) {
        if (png) info = png_create_info_struct(png);
    }
    ~Reader() { png_destroy_read_struct(&png, &info, nullptr); }
};

void take(png_structp png, png_bytep to, size_t count) {
    Reader& reader = *static_cast<Reader*>(png_get_io_ptr(png));
    if (count > reader.rest.size()) png_error(png, "the file ends too early");
    std::memcpy(to, reader.rest.data(), count);
    reader.rest = reader.rest.subspan(count);
}

bool read_header(Reader& reader) {
    png_structp png = reader.png;
    if (setjmp(png_jmpbuf(png))) return false;
    png_set_read_fn(png, &reader, take);
    png_set_user_limits(png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);  // the memory check that follows is the limit
    png_set_benign_errors(png, 1);
    png_set_crc_action(png, PNG_CRC_ERROR_QUIT, PNG_CRC_WARN_DISCARD);
    png_read_info(png, reader.info);
    return true;
}

// What the picture will be once palettes, transparent colours and small samples are expanded.
Shape expanded_shape(const Reader& reader) {
    const int colour = png_get_color_type(reader.png, reader.info);
    const bool alpha = colour & PNG_COLOR_MASK_ALPHA || png_get_valid(reader.png, reader.info, PNG_INFO_tRNS);
    Shape shape;
    shape.width = png_get_image_width(reader.png, reader.info);
    shape.height = png_get_image_height(reader.png, reader.info);
    shape.channels = (colour & PNG_COLOR_MASK_COLOR ? 3 : 1) + alpha;
    shape.sample = png_get_bit_depth(reader.png, reader.info) == 16 ? Sample::u16 : Sample::u8;
    if (alpha) shape.alpha = Alpha::straight;
    return shape;
}

constexpr double kInch = 0.0254;  // metres

Tags tags_of(const Reader& reader, int* orientation) {
    Tags tags;
    png_charp name = nullptr;
    png_bytep data = nullptr;
    png_uint_32 size = 0, across = 0, down = 0;
    int kind = 0;
    if (png_get_iCCP(reader.png, reader.info, &name, &kind, &data, &size)) tags.profile.assign(data, data + size);
    if (png_get_pHYs(reader.png, reader.info, &across, &down, &kind) && kind == PNG_RESOLUTION_METER) {
        tags.across = across * kInch;
        tags.down = down * kInch;
    }
    if (png_get_eXIf_1(reader.png, reader.info, &size, &data)) *orientation = exif_orientation({data, size});
    return tags;
}

// Makes libpng's row buffers, as wide as the header claims: only after the size was found to be possible.
bool start_rows(Reader& reader) {
    png_structp png = reader.png;
    if (setjmp(png_jmpbuf(png))) return false;
    png_set_expand(png);
    if (std::endian::native == std::endian::little) png_set_swap(png);
    png_set_interlace_handling(png);
    png_read_update_info(png, reader.info);
    return true;
}

bool read_rows(Reader& reader, png_bytepp rows) {
    if (setjmp(png_jmpbuf(reader.png))) return false;
    png_read_image(reader.png, rows);
    png_read_end(reader.png, nullptr);
    return true;
}

struct Writer {
    png_structp png;
    png_infop info = nullptr;
    explicit Writer(Message* message)
        : png(png_create_write_struct(PNG_LIBPNG_VER_STRING, message, on_error, on_warning)) {
        if (png) info = png_create_info_struct(png);
    }
    ~Writer() { png_destroy_write_struct(&png, &info); }
};

bool write_header(Writer& writer, std::FILE* file, const Image& image, const Tags& tags, int effort) {
    constexpr int kColour[] = {PNG_COLOR_TYPE_GRAY, PNG_COLOR_TYPE_GRAY_ALPHA, PNG_COLOR_TYPE_RGB,
                               PNG_COLOR_TYPE_RGB_ALPHA};
    png_structp png = writer.png;
    if (setjmp(png_jmpbuf(png))) return false;
    png_init_io(png, file);
    png_set_user_limits(png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
    png_set_IHDR(png, writer.info, image.width(), image.height(), 8 * sample_bytes(image.shape.sample),
                 kColour[image.shape.channels - 1], PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_set_compression_level(png, effort);
    png_set_benign_errors(png, 1);
    if (!tags.profile.empty())
        png_set_iCCP(png, writer.info, "profile", PNG_COMPRESSION_TYPE_BASE, tags.profile.data(),
                     static_cast<png_uint_32>(tags.profile.size()));
    if (tags.across > 0)
        png_set_pHYs(png, writer.info, static_cast<png_uint_32>(tags.across / kInch + 0.5),
                     static_cast<png_uint_32>(tags.down / kInch + 0.5), PNG_RESOLUTION_METER);
    png_write_info(png, writer.info);
    if (std::endian::native == std::endian::little) png_set_swap(png);
    return true;
}

bool write_row(Writer& writer, const uint8_t* row) {
    if (setjmp(png_jmpbuf(writer.png))) return false;
    png_write_row(writer.png, row);
    return true;
}

bool write_end(Writer& writer) {
    if (setjmp(png_jmpbuf(writer.png))) return false;
    png_write_end(writer.png, nullptr);
    return true;
}
}  // namespace

Image decode_png(std::span<const uint8_t> bytes, const std::string& name) {
    Message message;
    Reader reader(bytes, &message);
    if (!reader.info) fail(name, "no memory to read it");
    if (!read_header(reader)) damaged(name, "PNG", message.text);
    Shape shape = expanded_shape(reader);
    int orientation = 1;
    set_tags(shape, tags_of(reader, &orientation));
    Image image = Image::make(shape, name);
    image.orientation = orientation;
    if (!start_rows(reader)) damaged(name, "PNG", message.text);
    if (png_get_rowbytes(reader.png, reader.info) != image.row_bytes()) damaged(name, "PNG", "its row size is odd");
    std::vector<uint8_t*> rows = image.rows();
    if (!read_rows(reader, rows.data())) damaged(name, "PNG", message.text);
    if (shape.sample == Sample::u16)
        for (uint8_t* row : rows) flip_offset16(row, static_cast<size_t>(shape.width) * shape.channels);
    return image;
}

void encode_png(OutputFile& out, const Image& image, const Tags& tags, int effort) {
    Message message;
    Writer writer(&message);
    if (!writer.info) fail(out.path(), "no memory to write it");
    errno = 0;
    const auto failed = [&] {
        if (errno) out.write_failed(errno);
        fail(out.path(), std::string("can't be written as PNG: ") + message.text, "write .tiff");
    };
    if (!write_header(writer, out.stream(), image, tags, effort)) failed();
    std::vector<uint8_t> plain(image.row_bytes());
    for (int y = 0; y < image.height(); ++y) {
        const uint8_t* row = image.row(y);
        if (image.shape.sample == Sample::u16) {
            std::memcpy(plain.data(), row, plain.size());
            flip_offset16(plain.data(), plain.size() / 2);
            row = plain.data();
        }
        if (!write_row(writer, row)) failed();
    }
    if (!write_end(writer)) failed();
}

}  // namespace tarn::tool
