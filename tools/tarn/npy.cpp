#include "npy.h"

#include <bit>
#include <cerrno>
#include <cstring>
#include <memory>

#include "error.h"

namespace tarn::tool {
namespace {
static_assert(std::endian::native == std::endian::little, "the files' byte order is this machine's");

constexpr char kRemedy[] = "save it with numpy.save(file, numpy.ascontiguousarray(a, 'float32'))";
constexpr size_t kMostHeader = 1 << 20;

struct Close {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

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
        for (; i < end && text[i] >= '0' && text[i] <= '9' && n <= INT32_MAX; ++i) n = n * 10 + (text[i] - '0');
        if (i == first) fail(path, "has no shape in its header", kRemedy);
        shape.push_back(n);
    }
    return shape;
}

std::string describe(const std::vector<int64_t>& shape) {
    std::string text;
    for (const int64_t n : shape) text += (text.empty() ? "" : " x ") + std::to_string(n);
    return text.empty() ? "a single value" : text;
}
}  // namespace

LumoMAT Matrix::view() const {
    return {"", LUMO_F32 | LUMO_CHANNELS(1), columns, rows, columns * 4, const_cast<float*>(values.data())};
}

Matrix read_npy(const std::string& path) {
    const std::unique_ptr<std::FILE, Close> file(std::fopen(path.c_str(), "rb"));
    if (!file) fail(path, "can't be read: " + system_reason(errno), "name a .npy file");
    const auto read = [&](void* to, size_t bytes) {
        errno = 0;
        if (std::fread(to, 1, bytes, file.get()) == bytes) return;
        if (std::ferror(file.get())) fail(path, "can't be read: " + system_reason(errno), "name a .npy file");
        fail(path, "ends too early", "save it again; it may be a part of a file");
    };
    uint8_t start[8] = {};
    if (std::fread(start, 1, 8, file.get()) != 8 || std::memcmp(start, "\x93NUMPY", 6) != 0 || start[6] < 1 ||
        start[6] > 3)
        fail(path, "is not a .npy file", kRemedy);
    uint32_t header_bytes = 0;
    read(&header_bytes, start[6] == 1 ? 2 : 4);
    if (header_bytes > kMostHeader) fail(path, "has a damaged header", kRemedy);
    std::string header(header_bytes, ' ');
    read(header.data(), header.size());

    const std::string type = entry(header, "descr"), order = entry(header, "fortran_order");
    if (type.empty() || order.empty()) fail(path, "has a damaged header", kRemedy);
    if (type.substr(1, 3) != "<f4")
        fail(path,
             "holds " + (type[0] == '[' ? "records" : "elements of type " + type.substr(0, type.find(','))) +
                 ", not 32-bit floats",
             kRemedy);
    if (!order.starts_with("False")) fail(path, "holds its columns one after the other (Fortran order)", kRemedy);
    const std::vector<int64_t> shape = parse_shape(entry(header, "shape"), path);
    if (shape.empty() || shape.size() > 2)
        fail(path, "holds " + describe(shape) + ", not a matrix", "save an array of one or two axes");
    const int64_t rows = shape.size() == 2 ? shape[0] : 1, columns = shape.back();
    if (rows < 1 || columns < 1)
        fail(path, "holds no values (" + describe(shape) + ")", "save at least one row and column");
    if (rows > INT32_MAX || columns > INT32_MAX / 4) fail(path, "is too large (" + describe(shape) + ")", "split it");

    // The size that the header tells is believed only when the file has it.
    const long begin = std::ftell(file.get());
    if (begin < 0) fail(path, "is no regular file", "save it to a file first");
    std::fseek(file.get(), 0, SEEK_END);
    const int64_t there = std::ftell(file.get()) - begin, needed = rows * columns * 4;
    std::fseek(file.get(), begin, SEEK_SET);
    if (there < needed)
        fail(path, "ends too early: " + std::to_string(there) + " of " + std::to_string(needed) + " bytes of values",
             "save it again; it may be a part of a file");
    if (there > needed)
        fail(path, "has " + std::to_string(there - needed) + " bytes behind its values", "save it again");
    Matrix matrix{int32_t(rows), int32_t(columns), {}};
    matrix.values.resize(static_cast<size_t>(rows * columns));
    read(matrix.values.data(), static_cast<size_t>(needed));
    return matrix;
}

void write_npy(OutputFile& file, const Matrix& matrix) {
    std::string header = "{'descr': '<f4', 'fortran_order': False, 'shape': (" + std::to_string(matrix.rows) + ", " +
                         std::to_string(matrix.columns) + "), }";
    // Values begin at a multiple of 64 bytes.
    header.append(63 - (10 + header.size()) % 64, ' ') += '\n';
    std::string start("\x93NUMPY\x01\x00", 8);
    start += static_cast<char>(header.size() & 255);
    start += static_cast<char>(header.size() >> 8);
    start += header;
    std::FILE* out = file.stream();
    errno = 0;
    if (std::fwrite(start.data(), 1, start.size(), out) != start.size() ||
        std::fwrite(matrix.values.data(), 4, matrix.values.size(), out) != matrix.values.size())
        file.write_failed(errno);
}

}  // namespace tarn::tool
