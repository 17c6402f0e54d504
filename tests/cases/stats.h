// Cases of the statistics. Results are planes of one row; those of the smallest and largest value, the floats, may be
// missing.
#pragma once

#include <cmath>
#include <limits>

#include "cases/case.h"
#include "kernels/stats/stats.h"

namespace tarn::cases {

template <class R>
Plane results(int count) {
    return {TypeOf<R>::value, count, Role::out, [](Size) { return Size{1, 1}; }, std::is_same_v<R, float>, true};
}

template <class T>
Case minmax_case(const char* name, const k::Kernel<k::MinMax>& kernel, int channels, int results_count) {
    Case c{name, {in<T>(channels), results<float>(results_count), results<float>(results_count)}, {}, {}};
    c.run = [&kernel](const View* v, Size n) {
        return kernel(v[0].data, v[0].stride, n, v[1].row<float>(0), v[2].row<float>(0));
    };
    c.expect = [channels, results_count](const View* v, Size n) {
        for (int ch = 0; ch < results_count; ++ch) {
            float lo = NAN, hi = NAN;  // fmin and fmax pass over NaN
            each_element(n, channels, [&](int x, int y, int e) {
                if (e != ch) return;
                const float value = float(v[0].row<T>(y)[x * channels + e]);
                lo = std::fmin(lo, value);
                hi = std::fmax(hi, value);
            });
            v[1].row<float>(0)[ch] = lo == 0 ? 0 : lo;
            v[2].row<float>(0)[ch] = hi == 0 ? 0 : hi;
        }
    };
    return c;
}

template <class T>
Case count_case(const char* name, const k::Kernel<k::CountInRange>& kernel, int channels, int results_count) {
    // Bounds are a plane too: any values, in order or not.
    const Plane bounds{TypeOf<T>::value, results_count, Role::in, [](Size) { return Size{1, 1}; }};
    Case c{name, {in<T>(channels), bounds, bounds, results<int32_t>(results_count)}, {}, {}};
    c.run = [&kernel](const View* v, Size n) {
        return kernel(v[0].data, v[0].stride, n, v[1].data, v[2].data, v[3].row<int32_t>(0));
    };
    c.expect = [channels, results_count](const View* v, Size n) {
        for (int ch = 0; ch < results_count; ++ch) {
            const T lo = v[1].row<T>(0)[ch], hi = v[2].row<T>(0)[ch];
            int32_t count = 0;
            each_element(n, channels, [&](int x, int y, int e) {
                const T value = v[0].row<T>(y)[x * channels + e];
                count += e == ch && lo <= value && value <= hi;
            });
            v[3].row<int32_t>(0)[ch] = count;
        }
    };
    return c;
}

template <class T>
Case plane_mean_case(const char* name, const k::Kernel<k::PlaneMean>& kernel, int channels, int results_count) {
    Case c{name, {in<T>(channels), results<double>(results_count)}, {}, {}};
    c.run = [&kernel](const View* v, Size n) { return kernel(v[0].data, v[0].stride, n, v[1].row<double>(0)); };
    c.expect = [channels, results_count](const View* v, Size n) {
        for (int ch = 0; ch < results_count; ++ch) {
            long double sum = 0;
            each_element(n, channels, [&](int x, int y, int e) {
                if (e == ch) sum += v[0].row<T>(y)[x * channels + e];
            });
            v[1].row<double>(0)[ch] = double(sum) / (double(n.width) * n.height);
        }
    };
    return c;
}
// The order of a float sum decides its last bits: the expectation adds in the same lanes.
inline Case plane_mean_floats_case(const char* name, const k::Kernel<k::PlaneMean>& kernel, int channels,
                                   int results_count) {
    Case c = plane_mean_case<float>(name, kernel, channels, results_count);
    c.expect = [channels, results_count](const View* v, Size n) {
        std::vector<double> lanes(48);
        for (int y = 0; y < n.height; ++y)
            for (int i = 0; i < n.width * channels; ++i) lanes[size_t(i % 48)] += v[0].row<float>(y)[i];
        for (int ch = 0; ch < results_count; ++ch) {
            double sum = 0;
            for (int lane = ch; lane < 48; lane += channels) sum += lanes[size_t(lane)];
            v[1].row<double>(0)[ch] = sum / (double(n.width) * n.height);
        }
    };
    return c;
}

template <class Visit>
void stats_cases(Visit&& visit) {
#define MINMAX(T, t)                                                     \
    visit(minmax_case<T>("minmax_" #t "_c1", k::minmax_##t##_c1, 1, 1)); \
    visit(minmax_case<T>("minmax_" #t "_c3", k::minmax_##t##_c3, 3, 3)); \
    visit(minmax_case<T>("minmax_" #t "_c4", k::minmax_##t##_c4, 4, 4)); \
    visit(minmax_case<T>("minmax_" #t "_c3x", k::minmax_##t##_c3x, 4, 3));
    MINMAX(uint8_t, u8)
    MINMAX(int16_t, s16)
    MINMAX(float, f32)
#undef MINMAX
    visit(count_case<uint8_t>("count_in_range_u8_c1", k::count_in_range_u8_c1, 1, 1));
    visit(count_case<uint8_t>("count_in_range_u8_c3", k::count_in_range_u8_c3, 3, 3));
    visit(count_case<uint8_t>("count_in_range_u8_c3x", k::count_in_range_u8_c3x, 4, 3));
    visit(count_case<float>("count_in_range_f32_c1", k::count_in_range_f32_c1, 1, 1));
    visit(count_case<float>("count_in_range_f32_c3", k::count_in_range_f32_c3, 3, 3));
    visit(count_case<float>("count_in_range_f32_c3x", k::count_in_range_f32_c3x, 4, 3));
    visit(plane_mean_case<uint8_t>("plane_mean_u8_c1", k::plane_mean_u8_c1, 1, 1));
    visit(plane_mean_case<uint8_t>("plane_mean_u8_c3", k::plane_mean_u8_c3, 3, 3));
    visit(plane_mean_case<uint8_t>("plane_mean_u8_c3x", k::plane_mean_u8_c3x, 4, 3));
    visit(plane_mean_case<int16_t>("plane_mean_s16_c1", k::plane_mean_s16_c1, 1, 1));
    visit(plane_mean_case<int16_t>("plane_mean_s16_c3", k::plane_mean_s16_c3, 3, 3));
    visit(plane_mean_case<int16_t>("plane_mean_s16_c3x", k::plane_mean_s16_c3x, 4, 3));
    visit(plane_mean_floats_case("plane_mean_f32_c1", k::plane_mean_f32_c1, 1, 1));
    visit(plane_mean_floats_case("plane_mean_f32_c3", k::plane_mean_f32_c3, 3, 3));
    visit(plane_mean_floats_case("plane_mean_f32_c3x", k::plane_mean_f32_c3x, 4, 3));
}

}  // namespace tarn::cases
