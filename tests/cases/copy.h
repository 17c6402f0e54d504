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

// From a wider plane, whose rows lie further apart than the destination's.
template <class T>
Case copy_of_a_part_case(const char* name, const k::Kernel<k::Unary>& kernel, int channels, bool kept = false) {
    Case c = copy_case<T>(name, kernel, channels, kept);
    c.name += " of a part";
    c.planes[0].size_of = [](Size n) { return Size{n.width + 5, n.height}; };
    return c;
}

// Within one plane, by three pixels and a row, to higher places or to lower ones.
template <class T>
Case copy_within_case(const char* name, const k::Kernel<k::Unary>& kernel, int channels, bool kept, bool lower) {
    Case c{name + std::string(lower ? " to lower places" : " to higher places"), {inout<T>(channels)}, {}, {}};
    c.planes[0].size_of = [](Size n) { return Size{n.width + 3, n.height + 1}; };
    const auto ends = [=](const View& v) {
        uint8_t *first = v.data, *other = first ? reinterpret_cast<uint8_t*>(v.row<T>(1) + 3 * channels) : nullptr;
        return lower ? std::pair{other, first} : std::pair{first, other};
    };
    c.run = [&kernel, ends](const View* v, Size n) {
        const auto [src, dst] = ends(v[0]);
        return kernel(src, v[0].stride, dst, v[0].stride, n);
    };
    c.expect = [=](const View* v, Size n) {
        const auto [src, dst] = ends(v[0]);
        const size_t plane = size_t(v[0].stride) * size_t(n.height + 1);
        const std::vector<uint8_t> before(v[0].data, v[0].data + plane);
        const View from{const_cast<uint8_t*>(before.data()) + (src - v[0].data), v[0].stride, n};
        const View to{dst, v[0].stride, n};
        each_element(n, channels, [&](int x, int y, int ch) {
            if (!(kept && ch == 3)) to.row<T>(y)[x * channels + ch] = from.row<T>(y)[x * channels + ch];
        });
    };
    return c;
}

template <class T>
void copy_form_cases(const char* name, const k::Kernel<k::Unary>& kernel, int channels, bool kept, const auto& visit) {
    visit(copy_case<T>(name, kernel, channels, kept));
    visit(copy_of_a_part_case<T>(name, kernel, channels, kept));
    for (const bool lower : {false, true}) visit(copy_within_case<T>(name, kernel, channels, kept, lower));
}

template <class Visit>
void copy_cases(Visit&& visit) {
#define TARN_COPY(type, T)                                                         \
    copy_form_cases<T>("copy_" #type "_c1", k::copy_##type##_c1, 1, false, visit); \
    copy_form_cases<T>("copy_" #type "_c3", k::copy_##type##_c3, 3, false, visit); \
    copy_form_cases<T>("copy_" #type "_c4", k::copy_##type##_c4, 4, false, visit); \
    copy_form_cases<T>("copy_" #type "_c3x", k::copy_##type##_c3x, 4, true, visit);
    TARN_COPY(u8, uint8_t)
    TARN_COPY(s16, int16_t)
    TARN_COPY(s32, int32_t)
#undef TARN_COPY
}

}  // namespace tarn::cases
