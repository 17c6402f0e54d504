// JPEG by libjpeg: 8-bit grey and RGB. A warning that means lost picture data (a truncated file) is an error here; the
// library itself would fill the rest with grey.
//
// libjpeg reports errors by longjmp: what runs under setjmp here holds no object with a destructor.
#include <cstdio>

#include <jpeglib.h>

#include <jerror.h>

#include <cerrno>
#include <csetjmp>
#include <cstdlib>
#include <cstring>

#include "error.h"
#include "image.h"
#include "output.h"

namespace tarn::tool {
namespace {
struct Errors {
    jpeg_error_mgr base;
    jmp_buf back;
    char text[JMSG_LENGTH_MAX] = "";
};

void on_error(j_common_ptr jpeg) {
    Errors& errors = *reinterpret_cast<Errors*>(jpeg->err);
    jpeg->err->format_message(jpeg, errors.text);
    longjmp(errors.back, 1);
}

void on_message(j_common_ptr jpeg, int level) {
    if (level >= 0) return;  // trace
    const int code = jpeg->err->msg_code;
    const bool harmless = code == JWRN_JFIF_MAJOR || code == JWRN_EXTRANEOUS_DATA || code == JWRN_ADOBE_XFORM ||
                          code == JWRN_TOO_MUCH_DATA || code == JWRN_BOGUS_ICC;
    if (!harmless) on_error(jpeg);
}

void set_errors(Errors& errors) {
    jpeg_std_error(&errors.base);
    errors.base.error_exit = on_error;
    errors.base.emit_message = on_message;
}

constexpr int kExif = JPEG_APP0 + 1, kProfile = JPEG_APP0 + 2;

struct Reader {
    jpeg_decompress_struct jpeg = {};
    Errors errors;
    Reader() {
        set_errors(errors);
        jpeg.err = &errors.base;
    }
    ~Reader() {
        jpeg_destroy_decompress(&jpeg);
        std::free(profile);
    }
    JOCTET* profile = nullptr;
    unsigned profile_bytes = 0;
};

bool read_header(Reader& reader, std::span<const uint8_t> bytes) {
    if (setjmp(reader.errors.back)) return false;
    jpeg_create_decompress(&reader.jpeg);
    jpeg_mem_src(&reader.jpeg, bytes.data(), static_cast<unsigned long>(bytes.size()));
    for (const int marker : {kExif, kProfile}) jpeg_save_markers(&reader.jpeg, marker, 0xffff);
    jpeg_read_header(&reader.jpeg, TRUE);
    jpeg_read_icc_profile(&reader.jpeg, &reader.profile, &reader.profile_bytes);
    return true;
}

int orientation_of(const Reader& reader) {
    constexpr char kHead[] = "Exif\0";  // and the zero that ends it
    for (const jpeg_marker_struct* m = reader.jpeg.marker_list; m; m = m->next)
        if (m->marker == kExif && m->data_length > sizeof kHead && std::memcmp(m->data, kHead, sizeof kHead) == 0)
            return exif_orientation({m->data + sizeof kHead, m->data_length - sizeof kHead});
    return 1;
}

constexpr double kInch = 2.54;  // centimetres

Tags tags_of(const Reader& reader) {
    Tags tags;
    if (reader.profile) tags.profile.assign(reader.profile, reader.profile + reader.profile_bytes);
    const double unit = reader.jpeg.density_unit == 1 ? 1 : reader.jpeg.density_unit == 2 ? kInch : 0;
    tags.across = reader.jpeg.X_density * unit;
    tags.down = reader.jpeg.Y_density * unit;
    return tags;
}

bool read_rows(Reader& reader, uint8_t** rows) {
    if (setjmp(reader.errors.back)) return false;
    jpeg_start_decompress(&reader.jpeg);
    while (reader.jpeg.output_scanline < reader.jpeg.output_height)
        jpeg_read_scanlines(&reader.jpeg, rows + reader.jpeg.output_scanline,
                            reader.jpeg.output_height - reader.jpeg.output_scanline);
    jpeg_finish_decompress(&reader.jpeg);
    return true;
}

struct Writer {
    jpeg_compress_struct jpeg = {};
    Errors errors;
    Writer() {
        set_errors(errors);
        jpeg.err = &errors.base;
    }
    ~Writer() { jpeg_destroy_compress(&jpeg); }
};

bool write_rows(Writer& writer, std::FILE* file, const Shape& shape, uint8_t** rows, const Tags& tags,
                const Encoding& encoding) {
    jpeg_compress_struct& jpeg = writer.jpeg;
    if (setjmp(writer.errors.back)) return false;
    jpeg_create_compress(&jpeg);
    jpeg_stdio_dest(&jpeg, file);
    jpeg.image_width = static_cast<JDIMENSION>(shape.width);
    jpeg.image_height = static_cast<JDIMENSION>(shape.height);
    jpeg.input_components = shape.channels;
    jpeg.in_color_space = shape.channels == 1 ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_set_defaults(&jpeg);
    jpeg_set_quality(&jpeg, encoding.jpeg_quality, TRUE);
    jpeg.comp_info[0].h_samp_factor = shape.channels == 3 && encoding.jpeg_chroma != 444 ? 2 : 1;
    jpeg.comp_info[0].v_samp_factor = shape.channels == 3 && encoding.jpeg_chroma == 420 ? 2 : 1;
    if (tags.across > 0 && tags.across < UINT16_MAX && tags.down < UINT16_MAX) {
        jpeg.density_unit = 1;
        jpeg.X_density = static_cast<UINT16>(tags.across + 0.5);
        jpeg.Y_density = static_cast<UINT16>(tags.down + 0.5);
    }
    jpeg_start_compress(&jpeg, TRUE);
    if (!tags.profile.empty())
        jpeg_write_icc_profile(&jpeg, tags.profile.data(), static_cast<unsigned>(tags.profile.size()));
    while (jpeg.next_scanline < jpeg.image_height)
        jpeg_write_scanlines(&jpeg, rows + jpeg.next_scanline, jpeg.image_height - jpeg.next_scanline);
    jpeg_finish_compress(&jpeg);
    return true;
}
}  // namespace

Image decode_jpeg(std::span<const uint8_t> bytes, const std::string& name) {
    Reader reader;
    if (!read_header(reader, bytes)) damaged(name, "JPEG", reader.errors.text);
    Shape shape;
    shape.width = reader.jpeg.image_width;
    shape.height = reader.jpeg.image_height;
    switch (reader.jpeg.jpeg_color_space) {
        case JCS_GRAYSCALE:
            shape.channels = 1;
            reader.jpeg.out_color_space = JCS_GRAYSCALE;
            break;
        case JCS_YCbCr:
        case JCS_RGB:
            shape.channels = 3;
            reader.jpeg.out_color_space = JCS_RGB;
            break;
        case JCS_CMYK:
        case JCS_YCCK:
            fail(name, "is a CMYK JPEG, which tarn does not read", "convert it to RGB first");
        default:
            fail(name, "is a JPEG of an unknown colour space", "convert it to RGB first");
    }
    set_tags(shape, tags_of(reader));
    Image image = Image::make(shape, name);
    image.orientation = orientation_of(reader);
    std::vector<uint8_t*> rows = image.rows();
    if (!read_rows(reader, rows.data())) damaged(name, "JPEG", reader.errors.text);
    return image;
}

void encode_jpeg(OutputFile& out, const Image& image, const Tags& tags, const Encoding& encoding) {
    Writer writer;
    std::vector<uint8_t*> rows =
        const_cast<Image&>(image).rows();  // the library's rows are not const; it does not write them
    errno = 0;
    if (write_rows(writer, out.stream(), image.shape, rows.data(), tags, encoding)) return;
    if (errno) out.write_failed(errno);
    fail(out.path(), std::string("can't be written as JPEG: ") + writer.errors.text, "write .png or .tiff");
}

}  // namespace tarn::tool
