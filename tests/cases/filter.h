// Cases of the neighbourhood filters.
#pragma once

#include <algorithm>
#include <string>
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
    // For each size that a route of its own serves, one form sees an anchor off centre; sizes without one: even sides, a row,
    // a column.
    const std::vector<Mask> few = {{{3, 3}, {1, 1}}, {{5, 5}, {2, 2}}, {{4, 2}, {3, 0}}, {{12, 11}, {0, 10}}};
    const std::vector<Mask> more = {{{1, 1}, {0, 0}},  {{7, 7}, {6, 1}},     {{1, 9}, {0, 8}},
                                    {{10, 1}, {2, 0}}, {{29, 30}, {14, 15}}, {{1, 260}, {0, 9}}};
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

template <class Visit>
void filter_cases(Visit&& visit) {
    median_cases(visit);
}

}  // namespace tarn::cases
