// What operations read of their arguments: the fields of the type word, sizes, parts of a matrix.
#pragma once

#include "kernels/base/kernel.h"
#include "lumo.h"

namespace tarn::ipp {

// Element kind: 1 u8, 2 s16, 3 s32, 4 u32, 5 f32.
constexpr int kind_of(LumoELEMTYPE type) { return int(type >> 8 & 15); }
constexpr int channels_of(LumoELEMTYPE type) { return int(type >> 12 & 15); }
// Whether two words are of one kind with one number of channels.
constexpr bool same_type(LumoELEMTYPE a, LumoELEMTYPE b) { return ((a ^ b) & 0xff00) == 0; }
// Bytes of one element of a kind; 0 where there is none. Kind 4 has none here, deliberately: only copies serve it.
constexpr int element_bytes(int kind) {
    constexpr int kBytes[16] = {0, 1, 2, 4, 0, 4, 8};
    return kBytes[kind];
}
// Bytes of a pixel. Its size counts the channel codes 1 to 7 as they stand, and 8 for one.
constexpr int64_t pixel_bytes(LumoELEMTYPE type) {
    return int64_t(element_bytes(kind_of(type))) * ((channels_of(type) & 7) + (channels_of(type) >> 3));
}

constexpr k::Size size_of(const LumoMAT& mat) { return {mat.width, mat.height}; }

// Rows of two channels are processed as rows of four-element pixels of half the width, truncated: an odd last pixel is
// left, deliberately.
constexpr k::Size kernel_size(k::Size size, LumoELEMTYPE type) {
    return {channels_of(type) == 2 ? size.width / 2 : size.width, size.height};
}

// Row y of a matrix.
inline uint8_t* row_at(const LumoMAT& mat, int64_t y) { return static_cast<uint8_t*>(mat.data) + y * mat.stride; }

// The part of a matrix that a rectangle in it covers.
inline LumoMAT part_of(const LumoMAT& mat, const LumoRECT& part) {
    uint8_t* corner = row_at(mat, part.top) + part.left * pixel_bytes(mat.elemtype);
    return {mat.cls, mat.elemtype, LumoRECTwidth(&part), LumoRECTheight(&part), mat.stride, corner};
}

// Whether two arrays lie apart in memory, from their lowest pixels to their highest.
inline bool apart(const LumoMAT& a, const LumoMAT& b) {
    const auto first = [](const LumoMAT& m) { return intptr_t(row_at(m, m.stride < 0 ? m.height - 1 : 0)); };
    const auto end = [](const LumoMAT& m) {
        return intptr_t(row_at(m, m.stride < 0 ? 0 : m.height - 1)) + m.width * pixel_bytes(m.elemtype);
    };
    return end(a) <= first(b) || end(b) <= first(a);
}

// Whether a region lies in a matrix; it may be empty.
inline bool lies_in(const LumoRECT& region, const LumoMAT& src) {
    return region.left >= 0 && region.top >= 0 && region.right <= src.width && region.bottom <= src.height;
}

}  // namespace tarn::ipp
