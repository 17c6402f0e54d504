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

// Rows of so many pixels. Planes without padding are one long row.
struct Rows {
    int64_t count;
    union {
        int64_t pixels;
        int64_t length;  // transition
    };
};
template <class... Strides>
inline Rows rows_of(Size size, int64_t elements, int64_t element_bytes, Strides... strides) {  // transition
    const bool packed = (... && (strides == elements * element_bytes));
    return packed ? Rows{1, {elements * size.height}} : Rows{size.height, {elements}};
}

// One plane's part in the rows of several: the bytes from row to row, and of a pixel.
struct Pitch {
    int32_t stride;
    int64_t pixel_bytes;
};

// The rows of planes of one size, joined where no plane has padding.
template <class... Pitches>
inline Rows rows_of(Size size, Pitch first, Pitches... others) {
    const auto packed_plane = [&](Pitch p) { return p.stride == size.width * p.pixel_bytes; };
    const bool packed = packed_plane(first) && (... && packed_plane(others));
    return packed ? Rows{1, {int64_t(size.width) * size.height}} : Rows{size.height, {size.width}};
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
