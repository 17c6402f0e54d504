// Portable maps: PBM, PGM and PPM as text or binary, and float maps (PFM). What has another largest value than 255 or
// 65535 is spread to these, as PNG's small depths are.
#include <algorithm>
#include <bit>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "error.h"
#include "image.h"
#include "output.h"

namespace tarn::tool {
namespace {
// Words of the header, and of pixels that are text.
class Reader {
public:
    Reader(std::span<const uint8_t> bytes, const std::string& name) : bytes_(bytes), name_(name) {}

    std::string word() {
        skip_space();
        std::string text;
        while (at_ < bytes_.size() && !is_space(bytes_[at_]) && text.size() < 40) text += char(bytes_[at_++]);
        if (text.empty()) damaged(name_, "PNM", "it ends too early");
        return text;
    }
    template <class T>
    T number(T low, T high) {
        const std::string text = word();
        T value = 0;
        const auto [end, failed] = std::from_chars(text.data(), text.data() + text.size(), value);
        if (failed != std::errc() || end != text.data() + text.size() || !(value >= low && value <= high))
            damaged(name_, "PNM", "'" + text + "' is no number that can stand there");
        return value;
    }
    // A pixel of a bitmap of text; there may be no space between them.
    bool bit() {
        skip_space();
        if (at_ == bytes_.size() || (bytes_[at_] != '0' && bytes_[at_] != '1'))
            damaged(name_, "PNM", "a pixel is neither 0 nor 1");
        return bytes_[at_++] == '1';
    }
    // The single space that ends a header whose pixels are binary.
    void end_of_header() { ++at_; }
    const uint8_t* take(size_t count) {
        if (at_ > bytes_.size() || count > bytes_.size() - at_) damaged(name_, "PNM", "it ends too early");
        at_ += count;
        return bytes_.data() + at_ - count;
    }
    bool at_end() {
        skip_space();
        return at_ >= bytes_.size();
    }

private:
    static bool is_space(uint8_t c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
    void skip_space() {
        for (; at_ < bytes_.size() && (is_space(bytes_[at_]) || bytes_[at_] == '#'); ++at_)
            if (bytes_[at_] == '#')
                while (at_ + 1 < bytes_.size() && bytes_[at_] != '\n') ++at_;
    }
    std::span<const uint8_t> bytes_;
    const std::string& name_;
    size_t at_ = 0;
};

template <class T>
void swap_bytes(uint8_t* row, size_t samples) {
    for (size_t i = 0; i < samples; ++i) std::reverse(row + i * sizeof(T), row + (i + 1) * sizeof(T));
}

void read_floats(Reader& reader, Image& image, bool big) {
    for (int y = image.height() - 1; y >= 0; --y) {  // the lowest row comes first
        std::memcpy(image.row(y), reader.take(image.row_bytes()), image.row_bytes());
        if (big != (std::endian::native == std::endian::big))
            swap_bytes<float>(image.row(y), image.row_bytes() / sizeof(float));
    }
}

void read_bits(Reader& reader, Image& image, bool text) {
    for (int y = 0; y < image.height(); ++y) {
        const uint8_t* packed = text ? nullptr : reader.take((size_t(image.width()) + 7) / 8);
        for (int x = 0; x < image.width(); ++x)
            image.row(y)[x] = (text ? reader.bit() : packed[x / 8] >> (7 - x % 8) & 1) ? 0 : 255;
    }
}

void read_values(Reader& reader, Image& image, bool text, uint32_t largest) {
    const size_t samples = size_t(image.width()) * size_t(image.shape.channels);
    const bool wide = image.shape.sample == Sample::u16;
    const uint32_t full = wide ? 65535 : 255;
    for (int y = 0; y < image.height(); ++y) {
        uint8_t* row = image.row(y);
        const uint8_t* from = text ? nullptr : reader.take(image.row_bytes());
        for (size_t i = 0; i < samples; ++i) {
            uint32_t value = text   ? reader.number<uint32_t>(0, largest)
                             : wide ? uint32_t(from[2 * i]) << 8 | from[2 * i + 1]
                                    : from[i];
            value = (std::min(value, largest) * full + largest / 2) / largest;
            if (wide)
                reinterpret_cast<uint16_t*>(row)[i] = uint16_t(value);
            else
                row[i] = uint8_t(value);
        }
        if (wide) flip_offset16(row, samples);
    }
}
}  // namespace

Image decode_pnm(std::span<const uint8_t> bytes, const std::string& name) {
    Reader reader(bytes, name);
    const char kind = reader.word()[1];
    const bool floats = kind == 'F' || kind == 'f', bits = kind == '1' || kind == '4';
    Shape shape;
    shape.channels = kind == '3' || kind == '6' || kind == 'F' ? 3 : 1;
    shape.width = reader.number<int64_t>(1, INT32_MAX);
    shape.height = reader.number<int64_t>(1, INT32_MAX);
    const bool text = kind >= '1' && kind <= '3';
    double scale = 0;
    uint32_t largest = 0;
    if (floats)
        scale = reader.number<double>(-1e300, 1e300);
    else if (!bits)
        largest = reader.number<uint32_t>(1, 65535);
    if (!text) reader.end_of_header();
    shape.sample = floats ? Sample::f32 : largest > 255 ? Sample::u16 : Sample::u8;
    // A pixel takes a bit at least; text takes more.
    if (uint64_t(shape.width) * uint64_t(shape.height) / 8 > bytes.size()) damaged(name, "PNM", "it ends too early");
    Image image = Image::make(shape, name);
    if (floats)
        read_floats(reader, image, scale > 0);
    else if (bits)
        read_bits(reader, image, text);
    else
        read_values(reader, image, text, largest);
    if (!floats && !reader.at_end())
        fail(name, "holds more than its first picture, or is damaged", "split it into files of one picture");
    return image;
}

void encode_pnm(OutputFile& out, const Image& image) {
    const Shape& shape = image.shape;
    const bool floats = shape.sample == Sample::f32, wide = shape.sample == Sample::u16;
    const bool grey = shape.channels == 1;
    const std::string head = std::string(floats ? grey ? "Pf\n" : "PF\n"
                                         : grey ? "P5\n"
                                                : "P6\n") +
                             std::to_string(shape.width) + " " + std::to_string(shape.height) + "\n" +
                             (floats ? std::endian::native == std::endian::big ? "1.0\n" : "-1.0\n"
                              : wide ? "65535\n"
                                     : "255\n");
    errno = 0;
    const auto put = [&](const void* from, size_t count) {
        if (std::fwrite(from, 1, count, out.stream()) != count) out.write_failed(errno);
    };
    put(head.data(), head.size());
    std::vector<uint8_t> row(image.row_bytes());
    for (int y = 0; y < image.height(); ++y) {
        std::memcpy(row.data(), image.row(floats ? image.height() - 1 - y : y), row.size());
        if (wide) {
            flip_offset16(row.data(), row.size() / 2);
            if (std::endian::native == std::endian::little) swap_bytes<uint16_t>(row.data(), row.size() / 2);
        }
        put(row.data(), row.size());
    }
}

}  // namespace tarn::tool
