// Cases of the thresholds and histograms. Choices: a value each, the element itself where the comparison holds, and
// where it does not; levels between the elements, at their ends and beyond them.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <iterator>

#include "cases/compare.h"
#include "kernels/threshold/threshold.h"

namespace tarn::cases {

template <class T>
struct Rule {
    using Level = std::conditional_t<std::is_same_v<T, float>, float, int32_t>;
    int32_t comparison;
    std::array<Level, 4> levels;
    std::array<T, 4> keep[2], value[2];  // by: fails, holds

    T chosen(T element, double level, int ch) const {
        const bool is = std::is_same_v<T, float> ? holds(comparison, float(element), float(level))
                                                 : holds(comparison, double(element), level);
        uint8_t v[sizeof(T)], k[sizeof(T)], e[sizeof(T)];
        std::memcpy(v, &value[is][size_t(ch)], sizeof(T));
        std::memcpy(k, &keep[is][size_t(ch)], sizeof(T));
        std::memcpy(e, &element, sizeof(T));
        for (size_t b = 0; b < sizeof(T); ++b) v[b] = uint8_t((e[b] & k[b]) | v[b]);
        std::memcpy(&element, v, sizeof(T));
        return element;
    }
    k::Thresholds record() const {
        return {comparison, levels.data(), {keep[1].data(), value[1].data()}, {keep[0].data(), value[0].data()}};
    }
};

// Every comparison with each set of levels; which choice keeps elements changes from one to the next.
template <class T>
std::vector<Rule<T>> rules(std::vector<std::array<typename Rule<T>::Level, 4>> levels) {
    T all;
    std::memset(&all, 0xff, sizeof all);
    std::vector<Rule<T>> made;
    for (const auto& level : levels)
        for (int32_t comparison = 0; comparison < 5; ++comparison) {
            Rule<T> r{comparison, level, {}, {{T(3), T(0), T(77), T(1)}, {T(111), T(120), T(5), T(9)}}};
            if (level != levels[0] && comparison % 2) continue;
            if (const size_t n = made.size() % 3)
                for (int ch = 0; ch < 4; ch += 2) r.keep[n - 1][size_t(ch)] = all, r.value[n - 1][size_t(ch)] = T();
            made.push_back(r);
        }
    return made;
}

// One case for each rule; planes: what is compared, of which the first is the destination too when in place.
template <class T, class Fn>
void threshold_rule_cases(const Listed<Fn>& k, size_t planes, const std::vector<Rule<T>>& rules, auto run, auto level,
                          const auto& visit) {
    for (size_t r = 0; r < rules.size(); ++r)
        for (const bool apart : {true, false}) {
            const Rule<T> rule = rules[r];
            if (!apart && r != 1) continue;
            Case c{k.name + kComparisonNames[rule.comparison] + " " + std::to_string(r) + (apart ? "" : " in place"),
                   std::vector<Plane>(planes, in<T>(k.channels)),
                   {},
                   {}};
            if (apart)
                c.planes.push_back(k.template destination<T>());
            else
                c.planes[0] = inout<T>(k.channels);
            const size_t d = apart ? planes : 0;
            c.run = [=](const View* v, Size n) {
                const k::Thresholds record = rule.record();
                return run(v, v[d], n, &record);
            };
            c.expect = [=](const View* v, Size n) {
                k.each_element(n, [&](int y, int i, int ch) {
                    v[d].template row<T>(y)[i] = rule.chosen(v[0].template row<T>(y)[i], level(v, y, i, rule, ch), ch);
                });
            };
            visit(c);
        }
}

template <class T>
Case histogram_case(const Listed<k::Histogram>& k, k::Bins bins, const char* variant) {
    const Plane counts{Type::u32, 2 * bins.count, Role::out, [](Size) { return Size{1, 1}; }, false, true};
    Case c{k.name + variant, {in<T>(k.channels), counts}, {}, {}};
    c.run = [=](const View* v, Size n) { return k(v->data, v->stride, n, &bins, v[1].row<uint64_t>(0)); };
    c.expect = [=](const View* v, Size n) {
        uint64_t* counted = v[1].row<uint64_t>(0);
        std::fill_n(counted, bins.count, 0);
        std::vector<double> first;  // of each interval
        const double width = double(bins.upper) - bins.lower;
        for (int b = 1; b < bins.count; ++b) first.push_back(bins.lower + b * width / bins.count);
        k.each_element(n, [&](int y, int i, int) {
            const double value = v->row<T>(y)[i];
            if (value >= bins.lower && value <= bins.upper)
                ++counted[std::upper_bound(first.begin(), first.end(), value) - first.begin()];
        });
    };
    return c;
}

template <class Visit>
void threshold_cases(Visit&& visit) {
    each_kernel<uint8_t, int16_t, float>("threshold", k::threshold_kernels, [&]<class T>(T, const auto& k) {
        const auto run = [k](const View* v, const View& d, Size n, const k::Thresholds* t) {
            return k(v->data, v->stride, d.data, d.stride, n, t);
        };
        const auto level = [](const View*, int, int, const Rule<T>& r, int ch) { return double(r.levels[size_t(ch)]); };
        if constexpr (std::is_same_v<T, float>)
            threshold_rule_cases<T>(k, 1, rules<T>({{0.25f, -0.0f, INFINITY, 1}, {NAN, -1e30f, 1e-42f, 0}}), run, level,
                                    visit);
        else if constexpr (sizeof(T) == 1)
            threshold_rule_cases<T>(k, 1,
                                    rules<T>({{127, 0, 255, 9}, {-1, 256, 1, 200}, {INT32_MIN, INT32_MAX, 254, -1}}),
                                    run, level, visit);
        else
            threshold_rule_cases<T>(k, 1, rules<T>({{127, -32768, 32767, 9}, {-32769, 32768, -1, -9}}), run, level,
                                    visit);
    });
    each_kernel<uint8_t, int16_t, float>("threshold_by", k::threshold_by_kernels, [&]<class T>(T, const auto& k) {
        const auto run = [k](const View* v, const View& d, Size n, const k::Thresholds* t) {
            return k(v[0].data, v[0].stride, v[1].data, v[1].stride, d.data, d.stride, n, t);
        };
        const auto level = [](const View* v, int y, int i, const Rule<T>& r, int ch) {
            const T reference = v[1].row<T>(y)[i];
            if constexpr (std::is_same_v<T, float>) return double(reference + r.levels[size_t(ch)]);
            return double(reference) + double(r.levels[size_t(ch)]);
        };
        if constexpr (std::is_same_v<T, float>)
            threshold_rule_cases<T>(k, 2, rules<T>({{0.25f, -0.0f, -1e30f, 2}}), run, level, visit);
        else if constexpr (sizeof(T) == 1)
            threshold_rule_cases<T>(k, 2, rules<T>({{5, 0, -7, 9}, {-255, 255, 254, -254}, {-256, 256, INT32_MIN, 1}}),
                                    run, level, visit);
        else
            threshold_rule_cases<T>(k, 2,
                                    rules<T>({{5, -40000, 40000, 1}, {-65535, 65535, 0, 9}, {-65536, 65536, -1, 0}}),
                                    run, level, visit);
    });
    each_kernel<uint8_t, int16_t, float>("histogram", k::histogram_kernels, [&]<class T>(T, const auto& k) {
        visit(histogram_case<T>(k, {0, 255, 256}, ""));
        visit(histogram_case<T>(k, {0, 255, 310}, " with values on bounds"));
        visit(histogram_case<T>(k, {-1, 1, 384}, " of fractions"));
        visit(histogram_case<T>(k, {0, 0x1p127f, 8}, " of large values"));
    });
}

}  // namespace tarn::cases
