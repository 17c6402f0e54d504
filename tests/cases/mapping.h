// Cases of the linear mappings.
#pragma once

#include <cmath>

#include "cases/convert.h"
#include "cases/heap.h"
#include "kernels/mapping/mapping.h"

namespace tarn::cases {

// The arithmetic on one value: the product rounded to float, then the sum.
template <class D, class S>
D mapped(S v, float scale, float offset) {
    const volatile float product = float(v) * scale;
    return converted<D>(float(product + offset));
}

template <class S, class D>
Case scale_case(const Listed<k::ScaleMap>& k) {
    static const float kScale[] = {0.5f, -1.75f, 3.1415926f, 0.1f}, kOffset[] = {0.25f, 300.0f, -7.0f, 1e-3f};
    Case c{k.name, {in<S>(k.channels), k.template destination<D>()}, {}, {}};
    c.run = [k](const View* v, Size n) {
        return k(v[0].data, v[0].stride, v[1].data, v[1].stride, n, kScale, kOffset, heap());
    };
    c.expect = [k](const View* v, Size n) {
        k.each_element(n, [&](int y, int i, int ch) {
            v[1].row<D>(y)[i] = mapped<D>(v[0].row<S>(y)[i], kScale[ch], kOffset[ch]);
        });
    };
    return c;
}

// Of two channels a pixel's four elements are two pixels.
template <class S, class D>
Case range_case(const Listed<k::RangeMap>& k) {
    static constexpr float kLo = -10.5f, kHi = 200.0f;
    Case c{k.name, {in<S>(k.channels), k.template destination<D>()}, {}, {}};
    c.run = [k](const View* v, Size n) {
        return k(v[0].data, v[0].stride, v[1].data, v[1].stride, n, kLo, kHi, heap());
    };
    c.expect = [k, period = k.form == k::Form::c2 ? 2 : k.channels](const View* v, Size n) {
        float lo[] = {NAN, NAN, NAN, NAN}, hi[] = {NAN, NAN, NAN, NAN};
        k.each_element(n, [&](int y, int i, int) {
            lo[i % period] = std::fmin(lo[i % period], float(v[0].row<S>(y)[i]));
            hi[i % period] = std::fmax(hi[i % period], float(v[0].row<S>(y)[i]));
        });
        k.each_element(n, [&](int y, int i, int) {
            const float least = lo[i % period], most = hi[i % period];
            const bool flat = !(most - least > 1.1920929e-07f);
            const volatile float scale = flat ? 0 : (kHi - kLo) / (most - least), product = scale * least;
            const float offset = flat ? kLo : kLo - product;
            v[1].row<D>(y)[i] =
                flat && k.channels == 1 ? converted<D>(kLo) : mapped<D>(v[0].row<S>(y)[i], scale, offset);
        });
    };
    return c;
}

template <class S>
void mapping_from(const std::string& type, const k::KernelSet<k::ScaleMap>& scale,
                  const k::KernelSet<k::RangeMap>& range, const auto& visit) {
    each_kernel<uint8_t, int16_t, float>("scale_" + type, scale,
                                         [&]<class D>(D, const auto& k) { visit(scale_case<S, D>(k)); });
    each_kernel<uint8_t, int16_t, float>("range_" + type, range, [&]<class D>(D, const auto& k) {
        Case c = range_case<S, D>(k);
        visit(c);
        if (!std::is_same_v<S, float>) return;
        // Among any floats there is mostly an infinity, which makes the range one of NaN.
        c.name += " finite";
        c.values = Values::finite;
        visit(c);
    });
}

template <class Visit>
void mapping_cases(Visit&& visit) {
    mapping_from<uint8_t>("u8", k::scale_u8_kernels, k::range_u8_kernels, visit);
    mapping_from<int16_t>("s16", k::scale_s16_kernels, k::range_s16_kernels, visit);
    mapping_from<float>("f32", k::scale_f32_kernels, k::range_f32_kernels, visit);
}

}  // namespace tarn::cases
