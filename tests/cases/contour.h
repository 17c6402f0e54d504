// Cases of the contour kernels.
#pragma once

#include <cstring>

#include "cases/case.h"
#include "kernels/contour.h"

namespace tarn::cases {

// A row of bits as a plane: pairs of u32, low half first.
inline Size bit_row(Size n) { return {(n.width + 63) / 64, 1}; }
inline bool bit(const View& row, int x) {
    return x >= 0 && row.row<uint32_t>(0)[x / 32] >> (x % 32) & 1;
}

inline Case binarise_case(const char* name, int value) {
    Plane bits = out<uint32_t>(2);
    bits.size_of = [](Size n) { return Size{(n.width + 63) / 64, n.height}; };
    Case c{name, {in<uint8_t>(1), bits}, {}, {}};
    c.run = [value](const View* v, Size n) {
        return k::binarise_u8_c1(v[0].data, v[0].stride, v[1].data, v[1].stride, n, value);
    };
    c.expect = [value](const View* v, Size n) {
        each_element(v[1].size, 2, [&](int x, int y, int half) {
            uint32_t word = 0;
            for (int i = 0, px = 64 * x + 32 * half; i < 32 && px < n.width; ++i, ++px)
                word |= uint32_t((v[0].row<uint8_t>(y)[px] > 0) == (value != 0)) << i;
            v[1].row<uint32_t>(y)[2 * x + half] = word;
        });
    };
    return c;
}

inline Case find_corners_case() {
    Plane bits = in<uint32_t>(2), corners = inout<uint32_t>(2), count = out<int32_t>(2);
    bits.size_of = bit_row;
    corners.size_of = [](Size n) { return Size{n.width + 1, 1}; };
    count.size_of = [](Size) { return Size{1, 1}; };
    Case c{"find_corners", {bits, bits, corners, count}, {}, {}};
    c.run = [](const View* v, Size n) {
        int64_t count;
        const Status status = k::find_corners(v[0].data, v[1].data, n.width, v[2].row<k::Corner>(0), &count);
        memcpy(v[3].data, &count, sizeof count);
        return status;
    };
    c.expect = [](const View* v, Size n) {
        int64_t found = 0;
        for (int x = 0; x <= n.width; ++x) {
            const auto pixel = [&](int row, int at) { return at < n.width && bit(v[row], at); };
            const bool up = pixel(0, x - 1) != pixel(0, x), down = pixel(1, x - 1) != pixel(1, x);
            const bool left = pixel(0, x - 1) != pixel(1, x - 1), right = pixel(0, x) != pixel(1, x);
            if ((up || down) && (left || right))
                v[2].row<k::Corner>(0)[found++] = {x, up * k::kEdgeUp | left * k::kEdgeLeft | right * k::kEdgeRight |
                                                          pixel(0, x) * k::kAboveSet};
        }
        memcpy(v[3].data, &found, sizeof found);
    };
    return c;
}

template <class Visit>
void contour_cases(Visit&& visit) {
    visit(binarise_case("binarise_u8_c1 nonzero", 1));
    visit(binarise_case("binarise_u8_c1 zero", 0));
    visit(find_corners_case());
}

}  // namespace tarn::cases
