// Cases of the statistics. Results are planes of one row; those of the smallest and largest value, the floats, may be
// missing.
#pragma once

#include <algorithm>
#include <cmath>

#include "cases/case.h"
#include "kernels/stats/stats.h"

namespace tarn::cases {

template <class R>
Plane results(int count) {
    return {TypeOf<R>::value, count, Role::out, [](Size) { return Size{1, 1}; }, std::is_same_v<R, float>, true};
}

template <class T>
Case minmax_case(const Listed<k::MinMax>& k) {
    Case c{k.name, {in<T>(k.channels), results<float>(k.used), results<float>(k.used)}, {}, {}};
    c.run = [k](const View* v, Size n) { return k(v[0].data, v[0].stride, n, v[1].row<float>(0), v[2].row<float>(0)); };
    c.expect = [k](const View* v, Size n) {
        float *lo = v[1].row<float>(0), *hi = v[2].row<float>(0);
        for (int ch = 0; ch < k.used; ++ch) lo[ch] = hi[ch] = NAN;  // fmin and fmax pass over NaN
        k.each_element(n, [&](int y, int i, int ch) {
            lo[ch] = std::fmin(lo[ch], float(v[0].row<T>(y)[i]));
            hi[ch] = std::fmax(hi[ch], float(v[0].row<T>(y)[i]));
        });
        for (float* zero : {lo, hi})
            for (int ch = 0; ch < k.used; ++ch) zero[ch] = zero[ch] == 0 ? 0 : zero[ch];
    };
    return c;
}

template <class T>
Case count_case(const Listed<k::CountInRange>& k) {
    // Bounds are a plane too: any values, in order or not.
    const Plane bounds{TypeOf<T>::value, k.used, Role::in, [](Size) { return Size{1, 1}; }};
    Case c{k.name, {in<T>(k.channels), bounds, bounds, results<int32_t>(k.used)}, {}, {}};
    c.run = [k](const View* v, Size n) {
        return k(v[0].data, v[0].stride, n, v[1].data, v[2].data, v[3].row<int32_t>(0));
    };
    c.expect = [k](const View* v, Size n) {
        std::fill_n(v[3].row<int32_t>(0), k.used, 0);
        k.each_element(n, [&](int y, int i, int ch) {
            const T value = v[0].row<T>(y)[i], lo = v[1].row<T>(0)[ch], hi = v[2].row<T>(0)[ch];
            v[3].row<int32_t>(0)[ch] += lo <= value && value <= hi;
        });
    };
    return c;
}

// The order of a float sum decides its last bits: the expectation adds in the same lanes. Sums of integers are exact.
template <class T>
Case plane_mean_case(const Listed<k::PlaneMean>& k) {
    Case c{k.name, {in<T>(k.channels), results<double>(k.used)}, {}, {}};
    c.run = [k](const View* v, Size n) { return k(v[0].data, v[0].stride, n, v[1].row<double>(0)); };
    c.expect = [k](const View* v, Size n) {
        double lanes[48] = {};
        k.each_element(n, [&](int y, int i, int) { lanes[i % 48] += double(v[0].row<T>(y)[i]); });
        for (int ch = 0; ch < k.used; ++ch) {
            double sum = 0;
            for (int lane = ch; lane < 48; lane += k.channels) sum += lanes[lane];
            v[1].row<double>(0)[ch] = sum / (double(n.width) * n.height);
        }
    };
    return c;
}

template <class Visit>
void stats_cases(Visit&& visit) {
    each_kernel<uint8_t, int16_t, float>("minmax", k::minmax_kernels,
                                         [&]<class T>(T, const auto& k) { visit(minmax_case<T>(k)); });
    each_kernel<uint8_t, float>("count_in_range", k::count_in_range_kernels,
                                [&]<class T>(T, const auto& k) { visit(count_case<T>(k)); });
    each_kernel<uint8_t, int16_t, float>("plane_mean", k::plane_mean_kernels,
                                         [&]<class T>(T, const auto& k) { visit(plane_mean_case<T>(k)); });
}

}  // namespace tarn::cases
