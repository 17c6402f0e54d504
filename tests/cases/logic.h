// Cases of the bitwise kernels: out of place, and in place with the destination as an operand.
#pragma once

#include <array>
#include <cstring>

#include "cases/case.h"
#include "kernels/logic/logic.h"

namespace tarn::cases {

// kept: the fourth channel of the destination stays.
template <class T, class Op>
void binary_cases(const char* name, const k::Kernel<k::Binary>& kernel, int channels, bool kept, Op op,
                  const auto& visit) {
    Case c{name, {in<T>(channels), in<T>(channels), kept ? inout<T>(channels) : out<T>(channels)}, {}, {}};
    c.run = [&kernel](const View* v, Size n) {
        return kernel(v[1].data, v[1].stride, v[0].data, v[0].stride, v[2].data, v[2].stride, n);
    };
    c.expect = [=](const View* v, Size n) {
        each_element(n, channels, [&](int x, int y, int ch) {
            const int i = x * channels + ch;
            if (!(kept && ch == 3)) v[2].row<T>(y)[i] = T(op(v[0].row<T>(y)[i], v[1].row<T>(y)[i]));
        });
    };
    visit(c);
    Case i{std::string(name) + " in place", {inout<T>(channels), in<T>(channels)}, {}, {}};
    i.run = [&kernel](const View* v, Size n) {
        return kernel(v[1].data, v[1].stride, v[0].data, v[0].stride, v[0].data, v[0].stride, n);
    };
    i.expect = [=](const View* v, Size n) {
        each_element(n, channels, [&](int x, int y, int ch) {
            T& d = v[0].row<T>(y)[x * channels + ch];
            if (!(kept && ch == 3)) d = T(op(d, v[1].row<T>(y)[x * channels + ch]));
        });
    };
    visit(i);
}

// run(src, src_stride, dst, dst_stride, size) with whatever constants it has; expected(element, channel).
template <class T, class Run, class Expected>
void unary_cases(const std::string& name, int channels, bool kept, Run run, Expected expected, const auto& visit) {
    Case c{name, {in<T>(channels), kept ? inout<T>(channels) : out<T>(channels)}, {}, {}};
    c.run = [run](const View* v, Size n) { return run(v[0].data, v[0].stride, v[1].data, v[1].stride, n); };
    c.expect = [=](const View* v, Size n) {
        each_element(n, channels, [&](int x, int y, int ch) {
            if (!(kept && ch == 3))
                v[1].row<T>(y)[x * channels + ch] = T(expected(v[0].row<T>(y)[x * channels + ch], ch));
        });
    };
    visit(c);
    Case i{name + " in place", {inout<T>(channels)}, {}, {}};
    i.run = [run](const View* v, Size n) { return run(v[0].data, v[0].stride, v[0].data, v[0].stride, n); };
    i.expect = [=](const View* v, Size n) {
        each_element(n, channels, [&](int x, int y, int ch) {
            T& d = v[0].row<T>(y)[x * channels + ch];
            if (!(kept && ch == 3)) d = T(expected(d, ch));
        });
    };
    visit(i);
}

// Four different constants of type T.
template <class T>
std::array<T, 4> logic_constants() {
    return {T(0x5a0ff0a7), T(0x12345678), T(0x80000001), T(0x7ffefffe)};
}

template <class T, class Op>
void logic_constant_cases(const char* name, const k::Kernel<k::WithConstant>& kernel, int channels, bool kept, Op op,
                          const auto& visit) {
    const auto constants = logic_constants<T>();
    unary_cases<T>(
        name, channels, kept,
        [&kernel, constants](const void* s, int32_t ss, void* d, int32_t ds, Size n) {
            return kernel(s, ss, constants.data(), d, ds, n);
        },
        [op, constants](T v, int ch) { return op(v, constants[size_t(ch)]); }, visit);
}

template <class Visit>
void logic_cases(Visit&& visit) {
    const auto both = [](auto a, auto b) { return a & b; };
    const auto either = [](auto a, auto b) { return a | b; };
    const auto one = [](auto a, auto b) { return a ^ b; };
#define TARN_LOGIC(op, fn)                                                                  \
    binary_cases<uint8_t>(#op "_u8_c1", k::op##_u8_c1, 1, false, fn, visit);                \
    binary_cases<uint8_t>(#op "_u8_c3", k::op##_u8_c3, 3, false, fn, visit);                \
    binary_cases<uint8_t>(#op "_u8_c3x", k::op##_u8_c3x, 4, true, fn, visit);               \
    binary_cases<int16_t>(#op "_s16_c1", k::op##_s16_c1, 1, false, fn, visit);              \
    binary_cases<int16_t>(#op "_s16_c3", k::op##_s16_c3, 3, false, fn, visit);              \
    binary_cases<int16_t>(#op "_s16_c3x", k::op##_s16_c3x, 4, true, fn, visit);             \
    binary_cases<int32_t>(#op "_s32_c1", k::op##_s32_c1, 1, false, fn, visit);              \
    binary_cases<int32_t>(#op "_s32_c3", k::op##_s32_c3, 3, false, fn, visit);              \
    binary_cases<int32_t>(#op "_s32_c3x", k::op##_s32_c3x, 4, true, fn, visit);             \
    logic_constant_cases<uint8_t>(#op "_c_u8_c1", k::op##_c_u8_c1, 1, false, fn, visit);    \
    logic_constant_cases<uint8_t>(#op "_c_u8_c3", k::op##_c_u8_c3, 3, false, fn, visit);    \
    logic_constant_cases<uint8_t>(#op "_c_u8_c3x", k::op##_c_u8_c3x, 4, true, fn, visit);   \
    logic_constant_cases<uint8_t>(#op "_c_u8_c4", k::op##_c_u8_c4, 4, false, fn, visit);    \
    logic_constant_cases<int16_t>(#op "_c_s16_c3x", k::op##_c_s16_c3x, 4, true, fn, visit); \
    logic_constant_cases<int32_t>(#op "_c_s32_c3x", k::op##_c_s32_c3x, 4, true, fn, visit); \
    logic_constant_cases<int16_t>(#op "_c_s16_c1", k::op##_c_s16_c1, 1, false, fn, visit);  \
    logic_constant_cases<int16_t>(#op "_c_s16_c3", k::op##_c_s16_c3, 3, false, fn, visit);  \
    logic_constant_cases<int16_t>(#op "_c_s16_c4", k::op##_c_s16_c4, 4, false, fn, visit);  \
    logic_constant_cases<int32_t>(#op "_c_s32_c1", k::op##_c_s32_c1, 1, false, fn, visit);  \
    logic_constant_cases<int32_t>(#op "_c_s32_c3", k::op##_c_s32_c3, 3, false, fn, visit);  \
    logic_constant_cases<int32_t>(#op "_c_s32_c4", k::op##_c_s32_c4, 4, false, fn, visit);
    TARN_LOGIC(and, both)
    TARN_LOGIC(or, either)
    TARN_LOGIC(xor, one)
#undef TARN_LOGIC
    const auto complement = [&](const char* name, const k::Kernel<k::Unary>& kernel, int channels, bool kept) {
        unary_cases<uint8_t>(
            name, channels, kept,
            [&kernel](const void* s, int32_t ss, void* d, int32_t ds, Size n) { return kernel(s, ss, d, ds, n); },
            [](uint8_t v, int) { return ~v; }, visit);
    };
    complement("not_u8_c1", k::not_u8_c1, 1, false);
    complement("not_u8_c3", k::not_u8_c3, 3, false);
    complement("not_u8_c3x", k::not_u8_c3x, 4, true);
}

}  // namespace tarn::cases
