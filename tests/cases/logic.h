// Cases of the bitwise kernels: out of place, and in place with the destination as an operand.
#pragma once

#include <array>

#include "cases/case.h"
#include "kernels/logic/logic.h"

namespace tarn::cases {

// Twice: with a destination of its own, and with the first source as the destination. run(sources, destination, size);
// expected(element of the first source, of the last, channel).
template <class T, class Fn>
void apart_and_in_place(const Listed<Fn>& k, size_t sources, auto run, auto expected, const auto& visit) {
    for (const bool apart : {true, false}) {
        Case c{k.name + (apart ? "" : " in place"), std::vector<Plane>(sources, in<T>(k.channels)), {}, {}};
        if (apart)
            c.planes.push_back(k.template destination<T>());
        else
            c.planes[0] = inout<T>(k.channels);
        const size_t d = apart ? sources : 0;
        c.run = [=](const View* v, Size n) { return run(v, v[d], n); };
        c.expect = [=](const View* v, Size n) {
            k.each_element(n, [&](int y, int i, int ch) {
                v[d].row<T>(y)[i] = T(expected(v[0].row<T>(y)[i], v[sources - 1].row<T>(y)[i], ch));
            });
        };
        visit(c);
    }
}

void logic_of_two_cases(const char* name, const k::KernelSet<k::Binary>& kernels, auto op, const auto& visit) {
    each_kernel<uint8_t, int16_t, int32_t>(name, kernels, [&]<class T>(T, const Listed<k::Binary>& k) {
        apart_and_in_place<T>(
            k, 2,
            [k](const View* v, const View& d, Size n) {
                return k(v[1].data, v[1].stride, v[0].data, v[0].stride, d.data, d.stride, n);
            },
            [op](T a, T b, int) { return op(a, b); }, visit);
    });
}

void logic_constant_cases(const char* name, const k::KernelSet<k::WithConstant>& kernels, auto op, const auto& visit) {
    each_kernel<uint8_t, int16_t, int32_t>(name, kernels, [&]<class T>(T, const Listed<k::WithConstant>& k) {
        static const std::array<T, 4> constants = {T(0x5a0ff0a7), T(0x12345678), T(0x80000001), T(0x7ffefffe)};
        apart_and_in_place<T>(
            k, 1,
            [k](const View* v, const View& d, Size n) {
                return k(v->data, v->stride, constants.data(), d.data, d.stride, n);
            },
            [op](T a, T, int ch) { return op(a, constants[size_t(ch)]); }, visit);
    });
}

template <class Visit>
void logic_cases(Visit&& visit) {
    const auto both = [](auto a, auto b) { return a & b; };
    const auto either = [](auto a, auto b) { return a | b; };
    const auto one = [](auto a, auto b) { return a ^ b; };
    logic_of_two_cases("and", k::and_kernels, both, visit);
    logic_of_two_cases("or", k::or_kernels, either, visit);
    logic_of_two_cases("xor", k::xor_kernels, one, visit);
    logic_constant_cases("and_c", k::and_c_kernels, both, visit);
    logic_constant_cases("or_c", k::or_c_kernels, either, visit);
    logic_constant_cases("xor_c", k::xor_c_kernels, one, visit);
    each_kernel<uint8_t>("not", k::not_kernels, [&](uint8_t, const Listed<k::Unary>& k) {
        apart_and_in_place<uint8_t>(
            k, 1, [k](const View* v, const View& d, Size n) { return k(v->data, v->stride, d.data, d.stride, n); },
            [](uint8_t a, uint8_t, int) { return ~a; }, visit);
    });
}

}  // namespace tarn::cases
