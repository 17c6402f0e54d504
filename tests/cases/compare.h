// Cases of the comparisons. Planes of random elements are rarely equal: the tests' first operand takes most of its
// elements from the second.
#pragma once

#include <utility>

#include "cases/case.h"
#include "kernels/compare/compare.h"

namespace tarn::cases {

template <class T>
bool holds(int32_t comparison, T a, T b) {
    return comparison == k::kLess           ? a < b
           : comparison == k::kLessEqual    ? a <= b
           : comparison == k::kEqual        ? a == b
           : comparison == k::kGreaterEqual ? a >= b
                                            : a > b;
}
inline const char* const kComparisonNames[] = {" less", " less or equal", " equal", " greater or equal", " greater"};

// One case for each comparison. planes: what is compared, without the result; run(planes, result, size, comparison);
// operands(planes, row, element, channel): what is compared with what.
template <class T, class Fn>
void comparison_cases(const Listed<Fn>& k, size_t planes, auto prepare, auto run, auto operands, const auto& visit) {
    for (int32_t comparison = 0; comparison < 5; ++comparison) {
        Case c{k.name + kComparisonNames[comparison], std::vector<Plane>(planes, in<T>(k.channels)), {}, {}};
        c.planes.push_back(out<uint8_t>(1));
        c.prepare = prepare;
        c.run = [=](const View* v, Size n) { return run(v, v[planes], n, comparison); };
        c.expect = [=](const View* v, Size n) {
            each_element(n, 1, [&](int x, int y, int) { v[planes].row<uint8_t>(y)[x] = 255; });
            k.each_element(n, [&](int y, int i, int ch) {
                const auto [a, b] = operands(v, y, i, ch);
                if (!holds(comparison, a, b)) v[planes].row<uint8_t>(y)[i / k.channels] = 0;
            });
        };
        visit(c);
    }
}

template <class Visit>
void compare_cases(Visit&& visit) {
    each_kernel<uint8_t, int16_t, float>("cmp", k::cmp_kernels, [&]<class T>(T, const Listed<k::Compare>& k) {
        comparison_cases<T>(
            k, 2,
            [k](const View* v, Size n) {
                each_element(n, k.channels, [&](int x, int y, int ch) {
                    const int i = x * k.channels + ch;
                    if ((x * 7 + y * 3 + x * x) % 4 < 3 || (ch == 1 && x % 3)) v[0].row<T>(y)[i] = v[1].row<T>(y)[i];
                });
            },
            [k](const View* v, const View& d, Size n, int32_t comparison) {
                return k(v[0].data, v[0].stride, v[1].data, v[1].stride, d.data, d.stride, n, comparison);
            },
            [](const View* v, int y, int i, int) {
                return std::pair{v[0].row<T>(y)[i], v[1].row<T>(y)[i]};
            },
            visit);
    });
    each_kernel<uint8_t, int16_t, float>("cmp_c", k::cmp_c_kernels, [&]<class T>(T, const auto& k) {
        static const T constants[3] = {T(127), T(2), T(-0.0)};
        comparison_cases<T>(
            k, 1, nullptr,
            [k](const View* v, const View& d, Size n, int32_t comparison) {
                return k(v->data, v->stride, constants, d.data, d.stride, n, comparison);
            },
            [](const View* v, int y, int i, int ch) {
                return std::pair{v->row<T>(y)[i], constants[ch]};
            },
            visit);
    });
}

}  // namespace tarn::cases
