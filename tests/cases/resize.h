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

// Every kernel at every one of the shapes.
template <class Visit>
void resize_cases(Visit&& visit, const std::vector<Shape>& shapes = cases::shapes()) {
    // Kernels of one type; and those that widen bytes.
    const auto cases_of = [&]<class From>(From, const Listed<k::Resize>& k, const cases::Plane& dst) {
        for (const Shape& shape : shapes) {
            Case c{k.name + " " + shape.name, {in<From>(k.channels), dst}, {}, {}};
            c.planes[0].size_of = [shape](Size n) { return shape.source(n); };
            c.run = [k, shape](const View* v, Size n) {
                return k(v[0].data, v[0].stride, v[0].size, shape.region(n), v[1].data, v[1].stride, n, heap());
            };
            visit(c);
        }
    };
    const auto mode = [&](const char* name, const k::KernelSet<k::Resize>& kernels) {
        each_kernel<uint8_t, int16_t, float>(name, kernels, [&]<class T>(T t, const Listed<k::Resize>& k) {
            cases_of(t, k, k.template destination<T>());
        });
    };
    const auto widening = [&](const char* name, const k::KernelSet<k::Resize>& kernels) {
        each_kernel<int16_t, float>(name, kernels, [&]<class T>(T, const Listed<k::Resize>& k) {
            cases_of(uint8_t(), k, k.template destination<T>());
        });
    };
    mode("resize_nearest", k::resize_nearest_kernels);
    mode("resize_linear", k::resize_linear_kernels);
    mode("resize_cubic", k::resize_cubic_kernels);
    mode("resize_lanczos", k::resize_lanczos_kernels);
    widening("resize_u8_linear", k::resize_u8_linear_kernels);
    widening("resize_u8_cubic", k::resize_u8_cubic_kernels);
}

}  // namespace tarn::cases
