// For kernel sources only: planes as loops see them.
#pragma once

#include "kernels/base/body.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Row y of a plane. Offsets in 64 bits: an image may be larger than 2 GiB, and rows may go upwards.
template <class T>
inline T* row(void* data, int32_t stride, int64_t y) {
    return reinterpret_cast<T*>(static_cast<uint8_t*>(data) + y * stride);
}
template <class T>
inline const T* row(const void* data, int32_t stride, int64_t y) {
    return reinterpret_cast<const T*>(static_cast<const uint8_t*>(data) + y * stride);
}

template <class T, Form kForm>
constexpr int64_t kPixelBytes = channels(kForm) * int64_t(sizeof(T));

// Rows of so many pixels. Planes without padding are one long row.
struct Rows {
    int64_t count, pixels;
};

// One plane's part in the rows of several: the bytes from row to row, and of a pixel.
struct Pitch {
    int32_t stride;
    int64_t pixel_bytes;
};

inline bool is_packed(Size size, Pitch p) { return p.stride == size.width * p.pixel_bytes; }
inline Rows separate_rows(Size size) { return {size.height, size.width}; }
inline Rows joined_rows(Size size) { return {1, int64_t(size.width) * size.height}; }

// The rows of planes of one size, joined where no plane has padding.
template <class... Pitches>
inline Rows rows_of(Size size, Pitch first, Pitches... others) {
    return is_packed(size, first) && (... && is_packed(size, others)) ? joined_rows(size) : separate_rows(size);
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
