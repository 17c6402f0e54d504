// Cases of arithmetic: constants in place, folds of lists of several lengths (the last longer than a group of planes),
// means.
#pragma once

#include <array>
#include <cmath>
#include <limits>
#include <numeric>

#include "cases/case.h"
#include "kernels/arith/arith.h"

namespace tarn::cases {

struct Add {
    double operator()(double a, double b) const { return a + b; }
};
struct Sub {
    double operator()(double a, double b) const { return a - b; }
};
struct Mul {
    double operator()(double a, double b) const { return a * b; }
};

// One step: integers exact (in double) and saturated; of floats the one rounding of the exact double result, which is
// the float operation's.
template <class T, class Op>
T arith_step(Op op, T a, T b) {
    const double r = op(double(a), double(b));
    if constexpr (std::is_same_v<T, float>)
        return float(r);
    else
        return T(std::min(std::max(r, double(std::numeric_limits<T>::min())), double(std::numeric_limits<T>::max())));
}

// Constants of the channels, a set per variant. Of floats also those that a sum with zero or a product with one would
// change, each in each channel.
template <class T>
std::vector<std::array<T, 3>> arith_constants() {
    if constexpr (std::is_same_v<T, float>) {
        constexpr float infinity = std::numeric_limits<float>::infinity();
        constexpr float least = std::numeric_limits<float>::denorm_min();
        return {{3.25f, 200, -1.5f}, {-0.0f, infinity, least}, {infinity, least, -0.0f}, {-least, -0.0f, -infinity}};
    } else {
        return {{3, 200, T(-1)}};
    }
}

template <class T>
void constant_cases(const Listed<k::WithConstantInPlace>& k, auto op, const auto& visit) {
    int variant = 0;
    for (const std::array<T, 3>& constants : arith_constants<T>()) {
        Case c{k.name + (variant ? " with constants " + std::to_string(variant) : ""), {inout<T>(k.channels)}, {}, {}};
        ++variant;
        c.run = [k, constants](const View* v, Size n) { return k(constants.data(), v[0].data, v[0].stride, n); };
        c.expect = [=](const View* v, Size n) {
            k.each_element(n, [&](int y, int i, int ch) {
                T& d = v[0].row<T>(y)[i];
                d = arith_step(op, d, constants[size_t(ch)]);
            });
        };
        visit(c);
    }
}

// The first `count` views of v as a list of planes.
struct ViewList {
    ViewList(const View* v, int count) : sources{at, v, count} {}
    static k::Source at(const void* list, int32_t i) {
        const View& v = static_cast<const View*>(list)[i];
        return {v.data, v.stride};
    }
    k::Sources sources;
};

// run(list, destination, size); expected(the sources' elements).
template <class T, class Fn>
void list_cases(const Listed<Fn>& k, auto run, auto expected, const auto& visit) {
    for (const int count : {1, 2, 3, 4, 6}) {
        Case c{k.name + " of " + std::to_string(count), std::vector<Plane>(size_t(count), in<T>(k.channels)), {}, {}};
        c.planes.push_back(k.template destination<T>());
        c.run = [=](const View* v, Size n) {
            const ViewList list(v, count);
            return run(list.sources, v[count], n);
        };
        c.expect = [=](const View* v, Size n) {
            std::vector<T> elements(static_cast<size_t>(count));
            k.each_element(n, [&](int y, int i, int) {
                for (int s = 0; s < count; ++s) elements[size_t(s)] = v[s].row<T>(y)[i];
                v[count].row<T>(y)[i] = expected(elements);
            });
        };
        visit(c);
    }
}

template <class T>
T folded(auto op, const std::vector<T>& elements) {
    T r = elements[0];
    for (size_t i = 1; i < elements.size(); ++i) r = arith_step(op, r, elements[i]);
    return r;
}

// The mean of 8 bits is of the exact sum, that of others of the saturated one.
template <class T>
T mean(const std::vector<T>& elements) {
    const auto count = elements.size();
    if constexpr (std::is_same_v<T, float>) return folded(Add{}, elements) / float(count);
    double sum = double(folded(Add{}, elements));
    if constexpr (std::is_same_v<T, uint8_t>) sum = std::accumulate(elements.begin(), elements.end(), 0.0);
    return T(std::nearbyint(sum / double(count)));
}

template <class Visit>
void arith_cases(Visit&& visit) {
    const auto operation = [&](const std::string& op, const auto& with_constant, const auto& of_lists, auto step) {
        each_kernel<uint8_t, int16_t, float>(op + "_c", with_constant,
                                             [&]<class T>(T, const auto& k) { constant_cases<T>(k, step, visit); });
        each_kernel<uint8_t, int16_t, float>(op + "_n", of_lists, [&]<class T>(T, const auto& k) {
            list_cases<T>(
                k, [k](const k::Sources& s, const View& d, Size n) { return k(&s, d.data, d.stride, n); },
                [step](const std::vector<T>& elements) { return folded(step, elements); }, visit);
        });
    };
    operation("add", k::add_c_kernels, k::add_n_kernels, Add{});
    operation("sub", k::sub_c_kernels, k::sub_n_kernels, Sub{});
    operation("mul", k::mul_c_kernels, k::mul_n_kernels, Mul{});
    each_kernel<uint8_t, int16_t, float>("avg_n", k::avg_n_kernels, [&]<class T>(T, const auto& k) {
        list_cases<T>(
            k,
            [k](const k::Sources& s, const View& d, Size n) {
                alignas(64) static uint8_t scratch[k::kAverageScratch];
                return k(&s, s.count, d.data, d.stride, n, scratch);
            },
            mean<T>, visit);
    });
}

}  // namespace tarn::cases
