// Cases of the neighbourhood filters.
#pragma once

#include <algorithm>
#include <cmath>
#include <numeric>
#include <string>
#include <type_traits>
#include <vector>

#include "cases/case.h"
#include "cases/heap.h"
#include "kernels/filter/filter.h"

namespace tarn::cases {

struct Mask {
    k::Size size;
    k::Offset anchor;
};

// The source plane is what the masks cover: the region lies at the anchor in it. `value` makes a pixel's element of the
// elements under the mask, row by row.
template <class T, class Value>
Case filter_case(const char* name, const k::Kernel<k::Filter>& kernel, int channels, bool kept, Mask m, Value value) {
    Plane source = in<T>(channels);
    source.size_of = [=](Size n) { return Size{n.width + m.size.width - 1, n.height + m.size.height - 1}; };
    const std::string variant = std::to_string(m.size.width) + " x " + std::to_string(m.size.height) + " at " +
                                std::to_string(m.anchor.x) + ", " + std::to_string(m.anchor.y);
    Case c{std::string(name) + " " + variant, {source, kept ? inout<T>(channels) : out<T>(channels)}, {}, {}};
    c.run = [&kernel, channels, m](const View* v, Size n) {
        const void* corner = v[0].data ? v[0].row<T>(m.anchor.y) + m.anchor.x * channels : nullptr;
        return kernel(corner, v[0].stride, v[1].data, v[1].stride, n, m.size, m.anchor, heap());
    };
    c.expect = [=](const View* v, Size n) {
        std::vector<T> window;
        each_element(n, channels, [&](int x, int y, int ch) {
            if (kept && ch == 3) return;
            window.clear();
            for (int j = 0; j < m.size.height; ++j)
                for (int i = 0; i < m.size.width; ++i) window.push_back(v[0].row<T>(y + j)[(x + i) * channels + ch]);
            v[1].row<T>(y)[x * channels + ch] = value(window);
        });
    };
    return c;
}

// The lower of the two middle values of an even count.
struct LowerMedian {
    template <class T>
    T operator()(std::vector<T>& window) const {
        const auto middle = window.begin() + (int64_t(window.size()) - 1) / 2;
        std::nth_element(window.begin(), middle, window.end());
        return *middle;
    }
};

template <class Visit>
void median_cases(Visit&& visit) {
    const auto masks = [&](auto type, const char* name, const k::Kernel<k::Filter>& kernel, int channels, bool kept,
                           const std::vector<Mask>& list) {
        for (const Mask& m : list) visit(filter_case<decltype(type)>(name, kernel, channels, kept, m, LowerMedian{}));
    };
    // For each size that a route of its own serves, one form sees an anchor off centre; sizes without one: even sides,
    // a row, a column, masks that need larger counts or larger columns' numbers.
    const std::vector<Mask> few = {{{3, 3}, {1, 1}}, {{5, 5}, {2, 2}}, {{4, 2}, {3, 0}}, {{12, 11}, {0, 10}}};
    const std::vector<Mask> more = {{{1, 1}, {0, 0}},  {{6, 7}, {5, 0}},     {{7, 7}, {6, 1}},   {{1, 9}, {0, 8}},
                                    {{10, 1}, {2, 0}}, {{29, 30}, {14, 15}}, {{1, 260}, {0, 9}}, {{130, 2}, {0, 1}}};
#define MEDIAN(T, t)                                                    \
    masks(T{}, "median_" #t "_c1", k::median_##t##_c1, 1, false, few);  \
    masks(T{}, "median_" #t "_c1", k::median_##t##_c1, 1, false, more); \
    masks(T{}, "median_" #t "_c3", k::median_##t##_c3, 3, false, few);  \
    masks(T{}, "median_" #t "_c4", k::median_##t##_c4, 4, false, few);  \
    masks(T{}, "median_" #t "_c3x", k::median_##t##_c3x, 4, true, few);
    MEDIAN(uint8_t, u8)
    MEDIAN(int16_t, s16)
#undef MEDIAN
}

// Every kernel of a row: f(type, name, kernel, channels, kept).
#define TARN_FILTER_FORMS(op, T, t, f)                    \
    f(T{}, #op "_" #t "_c1", k::op##_##t##_c1, 1, false); \
    f(T{}, #op "_" #t "_c3", k::op##_##t##_c3, 3, false); \
    f(T{}, #op "_" #t "_c4", k::op##_##t##_c4, 4, false); \
    f(T{}, #op "_" #t "_c3x", k::op##_##t##_c3x, 4, true);

// Sums of integers are exact: the nearest mean, of two the even one.
struct Mean {
    template <class T>
    T operator()(const std::vector<T>& window) const {
        const int64_t n = int64_t(window.size());
        const int64_t twice = 2 * std::accumulate(window.begin(), window.end(), int64_t(0)) + n;
        const int64_t mean = (twice - ((twice % (2 * n)) + 2 * n) % (2 * n)) / (2 * n);
        return T(mean - (mean * 2 * n == twice && mean % 2 != 0));
    }
    float operator()(const std::vector<float>& window) const {
        return float(std::accumulate(window.begin(), window.end(), 0.0) / double(window.size()));
    }
};

// Some NaN and infinities among floats.
inline void spoil(const View& v, Size, int elements) {
    const float what[] = {NAN, INFINITY, -INFINITY};
    for (int64_t i = 5; i < int64_t(v.size.width) * v.size.height * elements; i += 211) {
        const int64_t row = int64_t(v.size.width) * elements;
        v.row<float>(i / row)[i % row] = what[i % 3];
    }
}

// masks(name, type) gives each kernel's masks.
template <class Masks, class Visit>
void box_cases(Masks masks, Visit&& visit) {
    const auto form = [&](auto type, const char* name, const k::Kernel<k::Filter>& kernel, int channels, bool kept) {
        for (const Mask& m : masks(name)) {
            Case c = filter_case<decltype(type)>(name, kernel, channels, kept, m, Mean{});
            if constexpr (std::is_same_v<decltype(type), float>) {
                c.values = Values::unit;
                c.tolerance = 1;  // the order of the sum
                c.prepare = [channels](const View* v, Size n) { spoil(v[0], n, channels); };
            }
            visit(c);
        }
    };
    TARN_FILTER_FORMS(box, uint8_t, u8, form)
    TARN_FILTER_FORMS(box, int16_t, s16, form)
    TARN_FILTER_FORMS(box, float, f32, form)
}

// Floats are ordered by their bits, and so are given as these.
template <class Masks, class Visit>
void extreme_cases(Masks masks, Visit&& visit) {
    const auto form = [&](auto type, const char* name, const k::Kernel<k::Filter>& kernel, int channels, bool kept) {
        using T = decltype(type);
        const bool least = std::string(name).starts_with("filter_min");
        const auto before = [](T a, T b) {
            if constexpr (sizeof(T) == 4) return (a < 0 ? ~a ^ INT32_MIN : a) < (b < 0 ? ~b ^ INT32_MIN : b);
            return a < b;
        };
        const auto value = [=](const std::vector<T>& window) {
            return least ? *std::min_element(window.begin(), window.end(), before)
                         : *std::max_element(window.begin(), window.end(), before);
        };
        for (const Mask& m : masks(name)) visit(filter_case<T>(name, kernel, channels, kept, m, value));
    };
    TARN_FILTER_FORMS(filter_min, uint8_t, u8, form)
    TARN_FILTER_FORMS(filter_min, int16_t, s16, form)
    TARN_FILTER_FORMS(filter_min, int32_t, f32, form)
    TARN_FILTER_FORMS(filter_max, uint8_t, u8, form)
    TARN_FILTER_FORMS(filter_max, int16_t, s16, form)
    TARN_FILTER_FORMS(filter_max, int32_t, f32, form)
}

template <class Visit>
void filter_cases(Visit&& visit) {
    // Each route of the kernels, odd and even sides, anchors off centre; the large ones at a form of each type.
    const auto masks = [](std::vector<Mask> large) {
        return [large](const std::string& name) {
            std::vector<Mask> list = {{{3, 3}, {1, 1}}, {{5, 4}, {4, 0}}};
            if (name.ends_with("u8_c1") || name.ends_with("s16_c3") || name.ends_with("f32_c3x"))
                list.insert(list.end(), large.begin(), large.end());
            return list;
        };
    };
    box_cases(masks({{{1, 1}, {0, 0}}, {{1, 9}, {0, 8}}, {{17, 2}, {3, 1}}, {{35, 33}, {17, 16}}}), visit);
    extreme_cases(masks({{{1, 1}, {0, 0}},
                         {{5, 5}, {4, 0}},
                         {{7, 7}, {2, 6}},
                         {{1, 9}, {0, 8}},
                         {{4, 1}, {1, 0}},
                         {{35, 33}, {17, 16}},
                         {{70, 2}, {69, 0}}}),
                  visit);
    median_cases(visit);
}

}  // namespace tarn::cases
