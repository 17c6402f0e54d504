// Cases of arithmetic: constants in place, folds of lists of several lengths (the last longer than a group of planes),
// means.
#pragma once

#include <array>
#include <cmath>
#include <limits>

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

template <class T, class Op>
void constant_case(const char* name, const k::Kernel<k::WithConstantInPlace>& kernel, int channels, Op op,
                   const auto& visit) {
    int variant = 0;
    for (const std::array<T, 3>& constants : arith_constants<T>()) {
        Case c{name + (variant ? " with constants " + std::to_string(variant) : ""), {inout<T>(channels)}, {}, {}};
        ++variant;
        c.run = [&kernel, constants](const View* v, Size n) {
            return kernel(constants.data(), v[0].data, v[0].stride, n);
        };
        c.expect = [=](const View* v, Size n) {
            each_element(n, channels, [&](int x, int y, int ch) {
                T& d = v[0].row<T>(y)[x * channels + ch];
                if (ch < 3) d = arith_step(op, d, constants[size_t(ch)]);
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

inline std::vector<Plane> list_planes(int count, Plane source, Plane dst) {
    std::vector<Plane> planes(size_t(count), source);
    planes.push_back(dst);
    return planes;
}

template <class T, class Op>
void fold_case(const char* name, const k::Kernel<k::Fold>& kernel, int channels, bool kept, Op op, const auto& visit) {
    for (const int count : {1, 2, 3, 4, 6}) {
        Case c{std::string(name) + " of " + std::to_string(count),
               list_planes(count, in<T>(channels), kept ? inout<T>(channels) : out<T>(channels)),
               {},
               {}};
        c.run = [&kernel, count](const View* v, Size n) {
            const ViewList list(v, count);
            return kernel(&list.sources, v[count].data, v[count].stride, n);
        };
        c.expect = [=](const View* v, Size n) {
            each_element(n, channels, [&](int x, int y, int ch) {
                const int e = x * channels + ch;
                T r = v[0].row<T>(y)[e];
                for (int i = 1; i < count; ++i) r = arith_step(op, r, v[i].row<T>(y)[e]);
                if (!(kept && ch == 3)) v[count].row<T>(y)[e] = r;
            });
        };
        visit(c);
    }
}

template <class T>
void average_case(const char* name, const k::Kernel<k::Average>& kernel, int channels, bool kept, const auto& visit) {
    for (const int count : {1, 2, 3, 4, 6}) {
        Case c{std::string(name) + " of " + std::to_string(count),
               list_planes(count, in<T>(channels), kept ? inout<T>(channels) : out<T>(channels)),
               {},
               {}};
        c.run = [&kernel, count](const View* v, Size n) {
            alignas(64) static uint8_t scratch[k::kAverageScratch];
            const ViewList list(v, count);
            return kernel(&list.sources, count, v[count].data, v[count].stride, n, scratch);
        };
        c.expect = [=](const View* v, Size n) {
            each_element(n, channels, [&](int x, int y, int ch) {
                const int e = x * channels + ch;
                if constexpr (std::is_same_v<T, uint8_t>) {
                    double sum = 0;
                    for (int i = 0; i < count; ++i) sum += v[i].row<T>(y)[e];
                    if (!(kept && ch == 3)) v[count].row<T>(y)[e] = T(std::nearbyint(sum / count));
                } else {
                    T sum = v[0].row<T>(y)[e];
                    for (int i = 1; i < count; ++i) sum = arith_step(Add{}, sum, v[i].row<T>(y)[e]);
                    const double mean = double(sum) / count;
                    if (!(kept && ch == 3))
                        v[count].row<T>(y)[e] =
                            std::is_same_v<T, float> ? T(float(sum) / float(count)) : T(std::nearbyint(mean));
                }
            });
        };
        visit(c);
    }
}

template <class Visit>
void arith_cases(Visit&& visit) {
#define TARN_ARITH(op, Op, type, T)                                                    \
    constant_case<T>(#op "_c_" #type "_c1", k::op##_c_##type##_c1, 1, Op{}, visit);    \
    constant_case<T>(#op "_c_" #type "_c3", k::op##_c_##type##_c3, 3, Op{}, visit);    \
    constant_case<T>(#op "_c_" #type "_c3x", k::op##_c_##type##_c3x, 4, Op{}, visit);  \
    fold_case<T>(#op "_n_" #type "_c1", k::op##_n_##type##_c1, 1, false, Op{}, visit); \
    fold_case<T>(#op "_n_" #type "_c3", k::op##_n_##type##_c3, 3, false, Op{}, visit); \
    fold_case<T>(#op "_n_" #type "_c3x", k::op##_n_##type##_c3x, 4, true, Op{}, visit);
#define TARN_TYPES(op, Op) \
    TARN_ARITH(op, Op, u8, uint8_t) TARN_ARITH(op, Op, s16, int16_t) TARN_ARITH(op, Op, f32, float)
    TARN_TYPES(add, Add)
    TARN_TYPES(sub, Sub)
    TARN_TYPES(mul, Mul)
#undef TARN_TYPES
#undef TARN_ARITH
#define TARN_AVERAGE(type, T)                                                     \
    average_case<T>("avg_n_" #type "_c1", k::avg_n_##type##_c1, 1, false, visit); \
    average_case<T>("avg_n_" #type "_c3", k::avg_n_##type##_c3, 3, false, visit); \
    average_case<T>("avg_n_" #type "_c3x", k::avg_n_##type##_c3x, 4, true, visit);
    TARN_AVERAGE(u8, uint8_t)
    TARN_AVERAGE(s16, int16_t)
    TARN_AVERAGE(f32, float)
#undef TARN_AVERAGE
}

}  // namespace tarn::cases
