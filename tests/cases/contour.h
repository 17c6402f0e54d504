// Cases of the contour kernels.
#pragma once

#include "cases/case.h"
#include "kernels/contour/contour.h"

namespace tarn::cases {

// Rows of bits are planes of pairs of u32, low half first.
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

inline Case find_stretches_case(const char* name, bool diagonal) {
    static_assert(sizeof(k::Stretch) == 12);
    Plane bits = in<uint32_t>(2), stretches = inout<uint32_t>(3), count = out<int32_t>(1);
    bits.size_of = [](Size n) { return Size{(n.width + 63) / 64, 1}; };
    stretches.size_of = [](Size n) { return Size{n.width, 1}; };
    count.size_of = [](Size) { return Size{1, 1}; };
    stretches.aligned = count.aligned = true;
    Case c{name, {bits, bits, stretches, count}, {}, {}};
    c.one_row = true;
    c.run = [diagonal](const View* v, Size n) {
        return k::find_stretches(v[0].data, v[1].data, n.width, int32_t(diagonal), v[2].row<k::Stretch>(0),
                                 v[3].row<int32_t>(0));
    };
    c.expect = [diagonal](const View* v, Size n) {
        const auto pixel = [&](int row, int x) {
            return x >= 0 && x < n.width && (v[row].row<uint32_t>(0)[x / 32] >> (x % 32) & 1);
        };
        int32_t found = 0;
        k::Stretch s = {};
        for (int x = 0; x <= n.width; ++x) {
            const bool left = pixel(0, x - 1) != pixel(1, x - 1), right = pixel(0, x) != pixel(1, x);
            const bool up = pixel(0, x - 1) != pixel(0, x), down = pixel(1, x - 1) != pixel(1, x);
            const bool turns = (left || right) && (up || down);
            // Four edges: parted, the set pixel's own two edges go together; joined, the other pixel's.
            const bool four = turns && left && right;
            const bool end_up = four ? pixel(0, x - 1) != diagonal : up, start_up = four ? !end_up : up;
            if (turns && left) {
                s.x[1] = x;
                s.up[1] = end_up;
                v[2].row<k::Stretch>(0)[found++] = s;
            }
            if (turns && right) s = {{x, 0}, {start_up, 0}, pixel(0, x), 0};
        }
        *v[3].row<int32_t>(0) = found;
    };
    return c;
}

template <class Visit>
void contour_cases(Visit&& visit) {
    visit(binarise_case("binarise_u8_c1 nonzero", 1));
    visit(binarise_case("binarise_u8_c1 zero", 0));
    visit(find_stretches_case("find_stretches parted", false));
    visit(find_stretches_case("find_stretches joined", true));
}

}  // namespace tarn::cases
