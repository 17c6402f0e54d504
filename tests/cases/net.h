// Cases of the fully connected networks: the product against its order of summation written out, the activations
// against their formulas in double.
#pragma once

#include <cmath>
#include <limits>

#include "cases/case.h"
#include "cases/net_output.h"
#include "kernels/net/net.h"

namespace tarn::cases {

// step: floats from one element to the next; the planes are then `step` elements wide and the others must stay.
inline Case net_product_case(const char* name, bool with_bias, Values values, int step = 1) {
    const auto columns = [](Size n) { return n.width * 7 % 131 + 1; };
    Case c{name,
           {in<float>(step), in<float>(step), in<float>(step), step == 1 ? out<float>(1) : inout<float>(step)},
           {},
           {}};
    c.planes[0].size_of = [columns](Size n) { return Size{columns(n), n.height}; };
    c.planes[1].size_of = [columns](Size n) { return Size{columns(n), n.width}; };
    c.planes[2].size_of = [](Size n) { return Size{n.width, 1}; };
    c.planes[2].optional = true;
    c.run = [=](const View* v, Size n) {
        return k::net_product_f32(v[0].data, v[0].stride, v[1].data, v[1].stride, with_bias ? v[2].data : nullptr,
                                  v[3].data, v[3].stride, 4 * step, columns(n), n);
    };
    c.expect = [=](const View* v, Size n) {
        for (int r = 0; r < n.height; ++r)
            for (int j = 0; j < n.width; ++j) {
                const float sum = net_output(v[0].row<float>(r), v[1].row<float>(j), columns(n), step);
                v[3].row<float>(r)[j * step] = with_bias ? sum + v[2].row<float>(0)[j * step] : sum;
            }
    };
    c.values = values;
    return c;
}

// An activation of single elements; f is the formula in double. The tolerance is in units of the last place.
template <class F>
Case net_case(const char* name, const k::Kernel<k::NetActivation>& kernel, double tolerance, F f) {
    Case c{name, {inout<float>(1)}, {}, {}};
    c.run = [&kernel](const View* v, Size n) { return kernel(v[0].data, v[0].stride, 4, n); };
    c.expect = [f](const View* v, Size n) {
        each_element(n, 1, [&](int x, int y, int) { v[0].row<float>(y)[x] = float(f(double(v[0].row<float>(y)[x]))); });
    };
    c.tolerance = tolerance;
    return c;
}

// Every second float of the rows: the same as side by side, the others untouched.
inline Case net_strided_case(const char* name, const k::Kernel<k::NetActivation>& kernel) {
    Case c{name, {inout<float>(2)}, {}, {}};
    c.run = [&kernel](const View* v, Size n) { return kernel(v[0].data, v[0].stride, 8, n); };
    c.expect = [&kernel](const View* v, Size n) {
        std::vector<float> row(size_t(n.width));
        for (int y = 0; y < n.height; ++y) {
            for (int x = 0; x < n.width; ++x) row[size_t(x)] = v[0].row<float>(y)[2 * x];
            kernel(row.data(), 4 * n.width, 4, Size{n.width, 1});
            for (int x = 0; x < n.width; ++x) v[0].row<float>(y)[2 * x] = row[size_t(x)];
        }
    };
    return c;
}

inline Case net_softmax_case(const char* name, Values values) {
    Case c{name, {inout<float>(1)}, {}, {}};
    c.run = [](const View* v, Size n) { return k::net_softmax_f32(v[0].data, v[0].stride, 4, n); };
    c.expect = [](const View* v, Size n) {
        for (int y = 0; y < n.height; ++y) {
            float* p = v[0].row<float>(y);
            float m = -std::numeric_limits<float>::infinity();
            for (int x = 0; x < n.width; ++x) m = std::fmax(m, p[x]);
            double sum = 0;
            for (int x = 0; x < n.width; ++x) sum += std::exp(double(float(p[x] - m)));
            for (int x = 0; x < n.width; ++x) p[x] = float(std::exp(double(float(p[x] - m))) / sum);
        }
    };
    c.values = values;
    c.tolerance = 2;
    return c;
}

template <class Visit>
void net_cases(Visit&& visit) {
    visit(net_product_case("net_product_f32", true, Values::any));
    visit(net_product_case("net_product_f32 without bias", false, Values::finite));
    visit(net_product_case("net_product_f32 of every second float", true, Values::unit, 2));
    visit(net_case("net_exp_f32", k::net_exp_f32, 1, [](double x) { return std::exp(x); }));
    // Three roundings: of e^x, of the sum and of the quotient.
    visit(net_case("net_sigmoid_f32", k::net_sigmoid_f32, 3,
                   [](double x) { return 1 / (1 + double(float(std::exp(-x)))); }));
    visit(net_case("net_mirrored_sigmoid_f32", k::net_mirrored_sigmoid_f32, 3,
                   [](double x) { return 1 / (1 + double(float(std::exp(x)))); }));
    visit(net_case("net_rectifier_f32", k::net_rectifier_f32, 0, [](double x) { return x < 0 ? 0 : x; }));
    visit(net_case("net_leaky_rectifier_f32", k::net_leaky_rectifier_f32, 0,
                   [](double x) { return x < 0 ? double(0.01f) * x : x; }));
    visit(net_softmax_case("net_softmax_f32", Values::any));
    visit(net_softmax_case("net_softmax_f32 of finite values", Values::finite));
    visit(net_strided_case("net_exp_f32 of every second float", k::net_exp_f32));
    visit(net_strided_case("net_softmax_f32 of every second float", k::net_softmax_f32));
}

}  // namespace tarn::cases
