// Cases of the plane conversions.
#pragma once

#include <cmath>
#include <limits>

#include "cases/case.h"
#include "kernels/convert/convert.h"

namespace tarn::cases {

// What one element becomes, by way of double, which holds every value of every type.
template <class D, class S>
D converted(S v) {
    if constexpr (std::is_floating_point_v<D>) {
        return D(v);
    } else {
        const double lo = std::numeric_limits<D>::min(), hi = std::numeric_limits<D>::max();
        const double d = std::nearbyint(double(v));
        return std::isnan(d) || d < lo ? std::numeric_limits<D>::min() : d > hi ? std::numeric_limits<D>::max() : D(d);
    }
}

// kept: the fourth channel of the destination stays.
template <class S, class D>
Case convert_case(const char* name, const k::Kernel<k::Unary>& kernel, int channels, bool kept = false) {
    Case c{name, {in<S>(channels), kept ? inout<D>(channels) : out<D>(channels)}, {}, {}};
    c.run = [&kernel](const View* v, Size n) { return kernel(v[0].data, v[0].stride, v[1].data, v[1].stride, n); };
    c.expect = [channels, kept](const View* v, Size n) {
        each_element(n, channels, [&](int x, int y, int ch) {
            if (!(kept && ch == 3)) v[1].row<D>(y)[x * channels + ch] = converted<D>(v[0].row<S>(y)[x * channels + ch]);
        });
    };
    return c;
}

template <class Visit>
void convert_cases(Visit&& visit) {
#define CONVERT(S, s, D, d)                                                              \
    visit(convert_case<S, D>("convert_" #s "_" #d "_c1", k::convert_##s##_##d##_c1, 1)); \
    visit(convert_case<S, D>("convert_" #s "_" #d "_c3", k::convert_##s##_##d##_c3, 3)); \
    visit(convert_case<S, D>("convert_" #s "_" #d "_c4", k::convert_##s##_##d##_c4, 4)); \
    visit(convert_case<S, D>("convert_" #s "_" #d "_c3x", k::convert_##s##_##d##_c3x, 4, true));
    CONVERT(uint8_t, u8, int16_t, s16)
    CONVERT(uint8_t, u8, int32_t, s32)
    CONVERT(uint8_t, u8, float, f32)
    CONVERT(int16_t, s16, uint8_t, u8)
    CONVERT(int16_t, s16, int32_t, s32)
    CONVERT(int16_t, s16, float, f32)
    CONVERT(int32_t, s32, uint8_t, u8)
    CONVERT(int32_t, s32, int16_t, s16)
    CONVERT(int32_t, s32, float, f32)
    CONVERT(float, f32, uint8_t, u8)
    CONVERT(float, f32, int16_t, s16)
    CONVERT(float, f32, int32_t, s32)
#undef CONVERT
}

}  // namespace tarn::cases
