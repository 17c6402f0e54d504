// Cases of the plane copies.
#pragma once

#include <cstring>

#include "cases/case.h"
#include "kernels/copy/copy.h"

namespace tarn::cases {

// kept: the fourth channel of the destination stays.
template <class T>
Case copy_case(const char* name, const k::Kernel<k::Unary>& kernel, int channels, bool kept = false) {
    Case c{name, {in<T>(channels), kept ? inout<T>(channels) : out<T>(channels)}, {}, {}};
    c.run = [&kernel](const View* v, Size n) { return kernel(v[0].data, v[0].stride, v[1].data, v[1].stride, n); };
    c.expect = [channels, kept](const View* v, Size n) {
        each_element(n, channels, [&](int x, int y, int ch) {
            if (!(kept && ch == 3)) v[1].row<T>(y)[x * channels + ch] = v[0].row<T>(y)[x * channels + ch];
        });
    };
    return c;
}

template <class Visit>
void copy_cases(Visit&& visit) {
    visit(copy_case<uint8_t>("copy_u8_c1", k::copy_u8_c1, 1));
    visit(copy_case<uint8_t>("copy_u8_c3", k::copy_u8_c3, 3));
    visit(copy_case<uint8_t>("copy_u8_c4", k::copy_u8_c4, 4));
    visit(copy_case<uint8_t>("copy_u8_c3x", k::copy_u8_c3x, 4, true));
    visit(copy_case<int16_t>("copy_s16_c1", k::copy_s16_c1, 1));
    visit(copy_case<int16_t>("copy_s16_c3", k::copy_s16_c3, 3));
    visit(copy_case<int16_t>("copy_s16_c4", k::copy_s16_c4, 4));
    visit(copy_case<int16_t>("copy_s16_c3x", k::copy_s16_c3x, 4, true));
    visit(copy_case<int32_t>("copy_s32_c1", k::copy_s32_c1, 1));
    visit(copy_case<int32_t>("copy_s32_c3", k::copy_s32_c3, 3));
    visit(copy_case<int32_t>("copy_s32_c4", k::copy_s32_c4, 4));
    visit(copy_case<int32_t>("copy_s32_c3x", k::copy_s32_c3x, 4, true));
}

}  // namespace tarn::cases
