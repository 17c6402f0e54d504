// Cases of the fills.
#pragma once

#include "cases/case.h"
#include "kernels/set/set.h"

namespace tarn::cases {

template <class T>
void set_case(const char* name, const k::Kernel<k::Fill>& kernel, int channels, bool kept, const auto& visit) {
    static const T constants[4] = {T(0x81c3a5f7), T(0x01020304), T(0xfefdfcfb), 99};
    Case c{name, {kept ? inout<T>(channels) : out<T>(channels)}, {}, {}};
    c.run = [&kernel](const View* v, Size n) { return kernel(constants, v[0].data, v[0].stride, n); };
    c.expect = [=](const View* v, Size n) {
        each_element(n, channels, [&](int x, int y, int ch) {
            if (!(kept && ch == 3)) v[0].row<T>(y)[x * channels + ch] = constants[ch];
        });
    };
    visit(c);
}

template <class T>
void masked_set_case(const char* name, const k::Kernel<k::MaskedSet>& kernel, int channels, bool kept,
                     const auto& visit) {
    static const T constants[4] = {T(0x81c3a5f7), T(0x01020304), T(0xfefdfcfb), 99};
    Case c{name, {inout<T>(channels), in<uint8_t>(1)}, {}, {}};
    // Runs without a selected pixel, and runs where every other is.
    c.prepare = [](const View* v, Size n) {
        each_element(n, 1, [&](int x, int y, int) {
            uint8_t& m = v[1].row<uint8_t>(y)[x];
            if ((x / 75 + y) % 3 == 0 || m & 1) m = 0;
        });
    };
    c.run = [&kernel](const View* v, Size n) {
        return kernel(constants, v[0].data, v[0].stride, n, v[1].data, v[1].stride);
    };
    c.expect = [=](const View* v, Size n) {
        each_element(n, channels, [&](int x, int y, int ch) {
            if (!(kept && ch == 3) && v[1].row<uint8_t>(y)[x]) v[0].row<T>(y)[x * channels + ch] = constants[ch];
        });
    };
    visit(c);
}

template <class Visit>
void set_cases(Visit&& visit) {
#define TARN_SET(type, T)                                                            \
    set_case<T>("set_" #type "_c1", k::set_##type##_c1, 1, false, visit);            \
    set_case<T>("set_" #type "_c3", k::set_##type##_c3, 3, false, visit);            \
    set_case<T>("set_" #type "_c3x", k::set_##type##_c3x, 4, true, visit);           \
    masked_set_case<T>("set_m_" #type "_c1", k::set_m_##type##_c1, 1, false, visit); \
    masked_set_case<T>("set_m_" #type "_c3", k::set_m_##type##_c3, 3, false, visit); \
    masked_set_case<T>("set_m_" #type "_c3x", k::set_m_##type##_c3x, 4, true, visit);
    TARN_SET(u8, uint8_t)
    TARN_SET(s16, int16_t)
    TARN_SET(s32, int32_t)
#undef TARN_SET
}

}  // namespace tarn::cases
