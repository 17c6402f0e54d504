// Cases of the comparisons. Planes of random elements are rarely equal: the tests' first operand takes most of its
// elements from the second.
#pragma once

#include "cases/case.h"
#include "kernels/compare/compare.h"

namespace tarn::cases {

template <class T>
bool holds(int32_t comparison, T a, T b) {
    switch (comparison) {
        case k::kLess:
            return a < b;
        case k::kLessEqual:
            return a <= b;
        case k::kEqual:
            return a == b;
        case k::kGreaterEqual:
            return a >= b;
        default:
            return a > b;
    }
}
inline const char* const kComparisonNames[] = {" less", " less or equal", " equal", " greater or equal", " greater"};

// compared: how many of a pixel's channels are.
template <class T>
void compare_case(const char* name, const k::Kernel<k::Compare>& kernel, int channels, int compared,
                  const auto& visit) {
    for (int32_t comparison = 0; comparison < 5; ++comparison) {
        Case c{name + std::string(kComparisonNames[comparison]),
               {in<T>(channels), in<T>(channels), out<uint8_t>(1)},
               {},
               {}};
        c.prepare = [channels](const View* v, Size n) {
            each_element(n, channels, [&](int x, int y, int ch) {
                if ((x * 7 + y * 3 + x * x) % 4 < 3 || (ch == 1 && x % 3))
                    v[0].row<T>(y)[x * channels + ch] = v[1].row<T>(y)[x * channels + ch];
            });
        };
        c.run = [&kernel, comparison](const View* v, Size n) {
            return kernel(v[0].data, v[0].stride, v[1].data, v[1].stride, v[2].data, v[2].stride, n, comparison);
        };
        c.expect = [=](const View* v, Size n) {
            each_element(n, 1, [&](int x, int y, int) {
                bool all = true;
                for (int ch = 0; ch < compared; ++ch)
                    all &= holds(comparison, v[0].row<T>(y)[x * channels + ch], v[1].row<T>(y)[x * channels + ch]);
                v[2].row<uint8_t>(y)[x] = all ? 255 : 0;
            });
        };
        visit(c);
    }
}

template <class T>
void compare_constant_case(const char* name, const k::Kernel<k::CompareConstant>& kernel, int channels,
                           const auto& visit) {
    static const T constants[3] = {T(127), T(2), T(-0.0)};
    const int compared = channels == 1 ? 1 : 3;
    for (int32_t comparison = 0; comparison < 5; ++comparison) {
        Case c{name + std::string(kComparisonNames[comparison]), {in<T>(channels), out<uint8_t>(1)}, {}, {}};
        c.run = [&kernel, comparison](const View* v, Size n) {
            return kernel(v[0].data, v[0].stride, constants, v[1].data, v[1].stride, n, comparison);
        };
        c.expect = [=](const View* v, Size n) {
            each_element(n, 1, [&](int x, int y, int) {
                bool all = true;
                for (int ch = 0; ch < compared; ++ch)
                    all &= holds(comparison, v[0].row<T>(y)[x * channels + ch], constants[ch]);
                v[1].row<uint8_t>(y)[x] = all ? 255 : 0;
            });
        };
        visit(c);
    }
}

template <class Visit>
void compare_cases(Visit&& visit) {
#define TARN_COMPARE(type, T)                                                       \
    compare_case<T>("cmp_" #type "_c1", k::cmp_##type##_c1, 1, 1, visit);           \
    compare_case<T>("cmp_" #type "_c3", k::cmp_##type##_c3, 3, 3, visit);           \
    compare_case<T>("cmp_" #type "_c4", k::cmp_##type##_c4, 4, 4, visit);           \
    compare_case<T>("cmp_" #type "_c3x", k::cmp_##type##_c3x, 4, 3, visit);         \
    compare_constant_case<T>("cmp_c_" #type "_c1", k::cmp_c_##type##_c1, 1, visit); \
    compare_constant_case<T>("cmp_c_" #type "_c3", k::cmp_c_##type##_c3, 3, visit); \
    compare_constant_case<T>("cmp_c_" #type "_c3x", k::cmp_c_##type##_c3x, 4, visit);
    TARN_COMPARE(u8, uint8_t)
    TARN_COMPARE(s16, int16_t)
    TARN_COMPARE(f32, float)
#undef TARN_COMPARE
}

}  // namespace tarn::cases
