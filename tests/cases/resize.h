// Cases of the resizes: every kernel over sources larger and smaller than the destination, as a whole and as a region
// with pixels around it. The values are compared between levels here; against the real values in
// kernels/resize_test.cpp.
#pragma once

#include <cstdlib>

#include "cases/case.h"
#include "cases/heap.h"
#include "kernels/resize/resize.h"

namespace tarn::cases {

// How a source is made from a destination's size: the region's size as a ratio, and the pixels around it.
struct Shape {
    const char* name;
    int numerator, denominator;  // region = destination * numerator / denominator
    int left, top, right, bottom;
    k::Region region(Size dst) const {
        const auto length = [&](int64_t d) {
            return int32_t(d * numerator / denominator > 0 ? d * numerator / denominator : 1);
        };
        return {left, top, length(dst.width), length(dst.height)};
    }
    Size source(Size dst) const {
        const k::Region r = region(dst);
        return {left + r.width + right, top + r.height + bottom};
    }
};

inline const std::vector<Shape>& shapes() {
    static const std::vector<Shape> all = {
        {"twice", 1, 2, 0, 0, 0, 0},
        {"half", 2, 1, 0, 0, 0, 0},
        {"three quarters", 4, 3, 0, 0, 0, 0},
        {"up in a region", 5, 7, 3, 2, 1, 1},
        {"1/1.9 in a region", 19, 10, 1, 0, 4, 3},
        {"1/5", 5, 1, 2, 2, 0, 0},
        {"five times", 1, 5, 1, 0, 0, 1},
    };
    return all;
}

// kept: the fourth channel of the destination stays.
template <class T>
Case resize_case(const std::string& name, const k::Kernel<k::Resize>& kernel, int channels, bool kept,
                 const Shape& shape) {
    Case c{name + " " + shape.name, {in<T>(channels), kept ? inout<T>(channels) : out<T>(channels)}, {}, {}};
    c.planes[0].size_of = [shape](Size n) { return shape.source(n); };
    c.run = [&kernel, shape](const View* v, Size n) {
        return kernel(v[0].data, v[0].stride, v[0].size, shape.region(n), v[1].data, v[1].stride, n, heap());
    };
    return c;
}

template <class T, class Visit>
void resize_forms(Visit& visit, const std::string& name, const k::Kernel<k::Resize>& c1, const k::Kernel<k::Resize>& c3,
                  const k::Kernel<k::Resize>& c4, const k::Kernel<k::Resize>& c3x) {
    for (const Shape& shape : shapes()) {
        visit(resize_case<T>(name + "_c1", c1, 1, false, shape));
        visit(resize_case<T>(name + "_c3", c3, 3, false, shape));
        visit(resize_case<T>(name + "_c4", c4, 4, false, shape));
        visit(resize_case<T>(name + "_c3x", c3x, 4, true, shape));
    }
}

template <class Visit>
void resize_cases(Visit&& visit) {
#define FORMS(T, name) resize_forms<T>(visit, #name, k::name##_c1, k::name##_c3, k::name##_c4, k::name##_c3x)
    FORMS(uint8_t, resize_nearest_u8);
    FORMS(int16_t, resize_nearest_s16);
    FORMS(float, resize_nearest_f32);
    FORMS(uint8_t, resize_linear_u8);
    FORMS(int16_t, resize_linear_s16);
    FORMS(float, resize_linear_f32);
    FORMS(uint8_t, resize_cubic_u8);
    FORMS(int16_t, resize_cubic_s16);
    FORMS(float, resize_cubic_f32);
    FORMS(uint8_t, resize_lanczos_u8);
    FORMS(int16_t, resize_lanczos_s16);
    FORMS(float, resize_lanczos_f32);
#undef FORMS
}

}  // namespace tarn::cases
