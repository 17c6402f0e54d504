// Arrays in .npy files (format versions 1 to 3): little-endian, the last axis fastest.
#ifndef TARN_TOOLS_NPY_H
#define TARN_TOOLS_NPY_H

#include <cstdint>
#include <string>
#include <vector>

#include "image.h"
#include "output.h"
#include "tarn.h"

namespace tarn::tool {

// By its name; and of an input, where standard input tells by its first byte, which stays there.
bool is_npy(const std::string& name);
bool is_npy_input(const std::string& name);

struct Matrix {
    int32_t rows = 0, columns = 0;
    std::vector<float> values;  // rows * columns
    // A view that the operations take; valid as long as the matrix.
    LumoMAT view() const;
};

// Reads a file of one axis (a single row) or two. Throws when it is no such file or holds anything but 32-bit floats in
// C order.
Matrix read_npy(const std::string& path);
void write_npy(OutputFile& file, const Matrix& matrix);

// An array of any number of axes.
struct Tensor {
    std::vector<int64_t> shape;  // at least 1 each
    Sample sample = Sample::f32;
    std::vector<uint8_t> bytes;
};
std::string describe(const std::vector<int64_t>& shape);  // "2 x 3 x 480 x 640"

// Throws when the file holds anything but u8, s16, s32 or f32 elements in C order.
Tensor read_tensor(const std::string& path);
void write_tensor(OutputFile& file, const Tensor& tensor);

}  // namespace tarn::tool
#endif
