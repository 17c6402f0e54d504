// Matrices of 32-bit floats in .npy files (format versions 1 to 3): row after row, little-endian.
#ifndef TARN_TOOLS_NPY_H
#define TARN_TOOLS_NPY_H

#include <cstdint>
#include <string>
#include <vector>

#include "output.h"
#include "tarn.h"

namespace tarn::tool {

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

}  // namespace tarn::tool
#endif
