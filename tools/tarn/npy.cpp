#include "npy.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <memory>

#include "error.h"

namespace tarn::tool {
namespace {
static_assert(std::endian::native == std::endian::little, "the files' byte order is this machine's");

constexpr char kMagic[] = "\x93NUMPY";
constexpr char kRemedy[] = "save it with numpy.save(file, numpy.ascontiguousarray(a, 'float32'))";
constexpr size_t kMostHeader = 1 << 20;
constexpr size_t kFirstBytes = 1 << 24;
constexpr int64_t kMostBytes = int64_t(1) << 62;

// The text behind "'key': " in the header, a Python dictionary; empty when it is missing.
std::string entry(const std::string& header, const std::string& key) {
    for (const char quote : {'\'', '"'}) {
        const size_t at = header.find(quote + key + quote);
        if (at == std::string::npos) continue;
        const size_t colon = header.find(':', at);
        const size_t begin = colon == std::string::npos ? colon : header.find_first_not_of(" \t", colon + 1);
        if (begin != std::string::npos) return header.substr(begin);
    }
    return {};
}

// "(3, 4)", "(3,)"
std::vector<int64_t> parse_shape(const std::string& text, const std::string& path) {
    std::vector<int64_t> shape;
    const size_t end = text.find(')');
    if (text.empty() || text[0] != '(' || end == std::string::npos) fail(path, "has no shape in its header", kRemedy);
    for (size_t i = 1; i < end; ++i) {
        if (text[i] == ' ' || text[i] == ',') continue;
        int64_t n = 0;
        const size_t first = i;
        for (; i < end && text[i] >= '0' && text[i] <= '9' && n < INT64_MAX / 100; ++i) n = n * 10 + (text[i] - '0');
        if (i == first) fail(path, "has no shape in its header", kRemedy);
        shape.push_back(n);
    }
    return shape;
}

struct ElementType {
    const char* name;  // as the header has it
    Sample sample;
};
constexpr ElementType kElements[] = {
    {"|u1", Sample::u8}, {"<i2", Sample::s16}, {"<i4", Sample::s32}, {"<f4", Sample::f32}};

// Reads an array of one of these samples.
Tensor read(std::string path, std::initializer_list<Sample> samples, const char* wanted) {
    const InputFile file = open_input(path);
    const auto read_some = [&](void* to, size_t most) {
        errno = 0;
        const size_t got = std::fread(to, 1, most, file.get());
        if (got < most && std::ferror(file.get()))
            fail(path, "can't be read: " + system_reason(errno), "name a .npy file");
        return got;
    };
    const auto read = [&](void* to, size_t bytes) {
        if (read_some(to, bytes) < bytes) fail(path, "ends too early", "save it again; it may be a part of a file");
    };
    uint8_t start[8] = {};
    if (read_some(start, 8) != 8 || std::memcmp(start, kMagic, 6) != 0 || start[6] < 1 || start[6] > 3)
        fail(path, "is not a .npy file", kRemedy);
    uint32_t header_bytes = 0;
    read(&header_bytes, start[6] == 1 ? 2 : 4);
    if (header_bytes > kMostHeader) fail(path, "has a damaged header", kRemedy);
    std::string header(header_bytes, ' ');
    read(header.data(), header.size());

    const std::string type = entry(header, "descr"), order = entry(header, "fortran_order");
    if (type.empty() || order.empty()) fail(path, "has a damaged header", kRemedy);
    const auto* element = std::find_if(std::begin(kElements), std::end(kElements), [&](const ElementType& e) {
        return type.substr(1, 3) == e.name && std::find(samples.begin(), samples.end(), e.sample) != samples.end();
    });
    if (element == std::end(kElements))
        fail(path,
             "holds " + (type[0] == '[' ? "records" : "elements of type " + type.substr(0, type.find(','))) + ", not " +
                 wanted,
             kRemedy);
    if (!order.starts_with("False")) fail(path, "holds its columns one after the other (Fortran order)", kRemedy);
    Tensor tensor{parse_shape(entry(header, "shape"), path), element->sample, {}};

    int64_t needed = sample_bytes(tensor.sample);
    for (const int64_t n : tensor.shape) {
        if (n < 1) fail(path, "holds no values (" + describe(tensor.shape) + ")", "save at least one row and column");
        if (n > INT32_MAX || needed > kMostBytes / n)
            fail(path, "is too large (" + describe(tensor.shape) + ")", "split it");
        needed *= n;
    }
    // The size that the header tells is believed as far as the file has it.
    size_t there = 0;
    do {
        tensor.bytes.resize(std::min(size_t(needed), std::max(2 * there, kFirstBytes)));
        const size_t got = read_some(tensor.bytes.data() + there, tensor.bytes.size() - there);
        there += got;
        if (there < tensor.bytes.size())
            fail(path,
                 "ends too early: " + std::to_string(there) + " of " + std::to_string(needed) + " bytes of values",
                 "save it again; it may be a part of a file");
    } while (there < size_t(needed));
    if (uint8_t more; read_some(&more, 1)) fail(path, "goes on behind its values", "save it again");
    return tensor;
}

void write(OutputFile& file, const char* type, const std::vector<int64_t>& shape, const void* values, size_t bytes) {
    std::string header = std::string("{'descr': '") + type + "', 'fortran_order': False, 'shape': (";
    for (size_t i = 0; i < shape.size(); ++i) header += (i ? ", " : "") + std::to_string(shape[i]);
    header += "), }";
    // Values begin at a multiple of 64 bytes.
    header.append(63 - (10 + header.size()) % 64, ' ') += '\n';
    std::string start = std::string(kMagic) + '\1' + '\0';
    start += static_cast<char>(header.size() & 255);
    start += static_cast<char>(header.size() >> 8);
    start += header;
    std::FILE* out = file.stream();
    errno = 0;
    if (std::fwrite(start.data(), 1, start.size(), out) != start.size() || std::fwrite(values, 1, bytes, out) != bytes)
        file.write_failed(errno);
}
}  // namespace

std::string describe(const std::vector<int64_t>& shape) {
    std::string text;
    for (const int64_t n : shape) text += (text.empty() ? "" : " x ") + std::to_string(n);
    return text.empty() ? "a single value" : text;
}

LumoMAT Matrix::view() const {
    return {"", LUMO_F32 | LUMO_CHANNELS(1), columns, rows, columns * 4, const_cast<float*>(values.data())};
}

bool is_npy(const std::string& name) { return name.ends_with(".npy"); }

bool is_npy_input(const std::string& name) {
    if (name != "-") return is_npy(name);
    const int first = std::getc(stdin);
    std::ungetc(first, stdin);
    return first == uint8_t(kMagic[0]);
}

Matrix read_npy(const std::string& path) {
    const Tensor all = read(path, {Sample::f32}, "32-bit floats");
    if (all.shape.empty() || all.shape.size() > 2)
        fail(path, "holds " + describe(all.shape) + ", not a matrix", "save an array of one or two axes");
    const int64_t rows = all.shape.size() == 2 ? all.shape[0] : 1, columns = all.shape.back();
    if (columns > INT32_MAX / 4) fail(path, "is too large (" + describe(all.shape) + ")", "split it");
    Matrix matrix{int32_t(rows), int32_t(columns), {}};
    matrix.values.resize(static_cast<size_t>(rows * columns));
    std::memcpy(matrix.values.data(), all.bytes.data(), all.bytes.size());
    return matrix;
}

void write_npy(OutputFile& file, const Matrix& matrix) {
    write(file, "<f4", {matrix.rows, matrix.columns}, matrix.values.data(), 4 * matrix.values.size());
}

Tensor read_tensor(const std::string& path) {
    return read(path, {Sample::u8, Sample::s16, Sample::s32, Sample::f32}, "u8, s16, s32 or f32");
}

void write_tensor(OutputFile& file, const Tensor& tensor) {
    const auto* element = std::find_if(std::begin(kElements), std::end(kElements),
                                       [&](const ElementType& e) { return e.sample == tensor.sample; });
    write(file, element->name, tensor.shape, tensor.bytes.data(), tensor.bytes.size());
}

}  // namespace tarn::tool
