// Cases of the plane conversions.
#pragma once

#include <cmath>
#include <limits>

#include "cases/case.h"
#include "kernels/convert/convert.h"

namespace tarn::cases {

// What one element becomes, by way of double, which holds every value of every type.
template <class D, class S>
D converted(S v) {
    if constexpr (std::is_floating_point_v<D>) {
        return D(v);
    } else {
        const double lo = std::numeric_limits<D>::min(), hi = std::numeric_limits<D>::max();
        const double d = std::nearbyint(double(v));
        return std::isnan(d) || d < lo ? std::numeric_limits<D>::min() : d > hi ? std::numeric_limits<D>::max() : D(d);
    }
}

// From one type of element to the types Ds.
template <class S, class... Ds>
void convert_from(const char* op, const k::KernelSet<k::Unary>& kernels, const auto& visit) {
    each_kernel<Ds...>(op, kernels, [&]<class D>(D, const Listed<k::Unary>& k) {
        Case c{k.name, {in<S>(k.channels), k.template destination<D>()}, {}, {}};
        c.run = [k](const View* v, Size n) { return k(v[0].data, v[0].stride, v[1].data, v[1].stride, n); };
        c.expect = [k](const View* v, Size n) {
            k.each_element(n, [&](int y, int i, int) { v[1].row<D>(y)[i] = converted<D>(v[0].row<S>(y)[i]); });
        };
        visit(c);
    });
}

template <class Visit>
void convert_cases(Visit&& visit) {
    convert_from<uint8_t, int16_t, int32_t, float>("convert_u8", k::convert_u8_kernels, visit);
    convert_from<int16_t, uint8_t, int32_t, float>("convert_s16", k::convert_s16_kernels, visit);
    convert_from<int32_t, uint8_t, int16_t, float>("convert_s32", k::convert_s32_kernels, visit);
    convert_from<float, uint8_t, int16_t, int32_t>("convert_f32", k::convert_f32_kernels, visit);
}

}  // namespace tarn::cases
