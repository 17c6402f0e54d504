// Cases of morphology.
#pragma once

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "cases/case.h"
#include "kernels/morph/morph.h"

namespace tarn::cases {

// A structuring element: cells (i, j) that are not zero, seen from the anchor.
struct Element {
    std::string name;
    Size size;
    k::Offset anchor;
    std::vector<uint8_t> cells;
    bool at(int i, int j) const { return cells[size_t(j) * size_t(size.width) + size_t(i)]; }

    Element(std::string shape, Size n, k::Offset a) : size(n), anchor(a) {
        name = shape + " " + std::to_string(n.width) + " x " + std::to_string(n.height) + " at " + std::to_string(a.x) +
               ", " + std::to_string(a.y);
        std::mt19937 random(unsigned(n.width * 131 + n.height));
        const int cx = n.width / 2, cy = n.height / 2;
        for (int j = 0; j < n.height; ++j)
            for (int i = 0; i < n.width; ++i) {
                const double r = cy ? double(j - cy) / cy : 0;
                const long half = std::lrint(cx * std::sqrt(std::max(0.0, 1 - r * r)));
                cells.push_back(shape == "rect"      ? 1
                                : shape == "ellipse" ? std::abs(i - cx) <= half
                                : shape == "cross"   ? i == a.x || j == a.y
                                : shape == "diamond"
                                    ? std::abs(i - cx) * n.height + std::abs(j - cy) * n.width <= cx * n.height
                                : shape == "diagonal" ? i * n.height / n.width == j
                                : shape == "triangle" ? i <= j
                                : shape == "ring"     ? std::abs(std::hypot(i - cx, j - cy) - cx) < 1.5
                                : shape == "random"   ? random() % 2
                                : shape == "bars"     ? (i % 9 < 7) * 255  // runs of a length, of many rows
                                                      : 0);
            }
    }
};

// The state of an element, made by the kernels of a type and form.
inline std::vector<uint8_t> make_state(k::Type type, k::Form form, uint32_t category, Size region, const Element& e) {
    uint64_t bytes = 0;
    const int32_t stride = e.size.width;
    if ((*k::morph_size_kernels.find(type, form))(category, region, e.cells.data(), stride, e.size, &bytes)) return {};
    std::vector<uint8_t> state(bytes, 0xcd);
    (*k::morph_init_kernels.find(type, form))(state.data(), category, region, e.cells.data(), stride, e.size, e.anchor);
    return state;
}

// The state of the last call, which serves until the size changes: at every level, whichever made it.
struct State {
    k::Type type;
    k::Form form;
    uint32_t category;
    Element element;
    Size size = {};
    std::vector<uint8_t> bytes = {};
    void* of(Size n) {
        if (n.width != size.width || n.height != size.height) {
            size = n;
            bytes = make_state(type, form, category, n, element);
            if (bytes.empty()) bytes.resize(sizeof(k::MorphHeader));
        }
        return bytes.data();
    }
};

// Floats ordered by their bits, and so given as integers.
inline int32_t ordered(int32_t bits) { return bits < 0 ? bits ^ INT32_MAX : bits; }
inline uint8_t ordered(uint8_t v) { return v; }

// One of a packed plane's elements, or of the edge pixels that repeat around it.
template <class T>
T nearest(const View& v, int channels, int x, int y, int c) {
    x = std::clamp(x, 0, v.size.width - 1), y = std::clamp(y, 0, v.size.height - 1);
    return v.row<T>(y)[x * channels + c];
}

// to := the extremes of `from` under the element, reflected for dilation.
template <class T>
void morph_plainly(const Element& e, bool dilates, const View& from, const View& to, int channels) {
    each_element(from.size, channels, [&](int x, int y, int c) {
        const bool bytes = sizeof(T) == 1;
        T best = dilates ? (bytes ? 0 : int32_t(0xff800000)) : (bytes ? 255 : 0x7f800000);
        bool any = false;
        for (int j = 0; j < e.size.height; ++j)
            for (int i = 0; i < e.size.width; ++i) {
                if (!e.at(i, j)) continue;
                const int dx = i - e.anchor.x, dy = j - e.anchor.y;
                const T v = nearest<T>(from, channels, dilates ? x - dx : x + dx, dilates ? y - dy : y + dy, c);
                if (!any || (dilates ? ordered(v) > ordered(best) : ordered(v) < ordered(best))) best = v;
                any = true;
            }
        to.row<T>(y)[x * channels + c] = best;
    });
}

// The making of states: of random masks, whose plans differ from level to level by nothing.
template <class Visit>
void making_cases(Visit&& visit) {
    const auto small = [](Size n) { return Size{std::min(n.width, 40), std::min(n.height, 6)}; };
    Plane mask = in<uint8_t>(1);
    mask.size_of = small;
    const auto sparse = [](const View* v, Size) {
        each_element(v[0].size, 1, [&](int x, int y, int) { v[0].row<uint8_t>(y)[x] &= v[0].row<uint8_t>(y)[x] >> 4; });
    };
    each_kernel<uint8_t, float>("morph_size", k::morph_size_kernels, [&](auto, auto kernel) {
        Plane bytes = out<uint8_t>(8);
        bytes.size_of = [](Size) { return Size{1, 1}; };
        bytes.aligned = true;
        Case c{kernel.name, {mask, bytes}, {}, {}};
        c.run = [=](const View* v, Size n) {
            return kernel(k::kMorphAdvanced, Size{1920, 1080}, v[0].data, v[0].stride, small(n), v[1].row<uint64_t>(0));
        };
        c.prepare = sparse;
        visit(c);
    });
    each_kernel<uint8_t, float>("morph_init", k::morph_init_kernels, [&](auto, auto kernel) {
        Plane state = inout<uint8_t>(1);
        state.size_of = [](Size) { return Size{8192, 1}; };
        Case c{kernel.name, {mask, state}, {}, {}};
        c.run = [=](const View* v, Size n) {
            return kernel(v[1].data, k::kMorphAdvanced, Size{1920, 1080}, v[0].data, v[0].stride, small(n),
                          k::Offset{0, 0});
        };
        c.prepare = sparse;
        visit(c);
    });
}

// elements(name) gives each kernel's elements.
template <class Elements, class Visit>
void morph_cases(Elements elements, Visit&& visit) {
    const auto type_of = [](auto t) { return sizeof t == 1 ? k::Type::u8 : k::Type::f32; };

    const auto single = [&](const char* op, const k::KernelSet<k::Morph>& set, bool dilates) {
        each_kernel<uint8_t, float>(op, set, [&](auto t, auto kernel) {
            using T = std::conditional_t<sizeof t == 1, uint8_t, int32_t>;
            for (const Element& e : elements(kernel.name)) {
                Case c{kernel.name + " " + e.name, {in<T>(kernel.channels), out<T>(kernel.channels)}, {}, {}};
                const auto state = std::make_shared<State>(State{type_of(t), kernel.form, k::kMorphBasic, e});
                c.run = [=](const View* v, Size n) {
                    return kernel(v[0].data, v[0].stride, v[1].data, v[1].stride, n, k::kMorphReplicate, state->of(n));
                };
                c.expect = [=](const View* v, Size) { morph_plainly<T>(e, dilates, v[0], v[1], kernel.channels); };
                visit(c);
            }
        });
    };
    single("erode", k::erode_kernels, false);
    single("dilate", k::dilate_kernels, true);
}

template <class Visit>
void morph_cases(Visit&& visit) {
    making_cases(visit);
    const std::vector<Element> few = {
        {"rect", {3, 3}, {1, 1}}, {"ellipse", {7, 7}, {3, 3}}, {"random", {6, 4}, {5, 0}}};
    // Rises of every kind, in registers and in rings; runs of one, two and more windows, of which some have no tables.
    const std::vector<Element> more = {
        {"rect", {1, 1}, {0, 0}},       {"rect", {5, 14}, {4, 0}},      {"rect", {2, 45}, {1, 30}},
        {"rect", {100, 1}, {3, 0}},     {"ellipse", {15, 15}, {7, 7}},  {"ellipse", {12, 10}, {6, 5}},
        {"ellipse", {31, 31}, {2, 29}}, {"cross", {15, 15}, {7, 7}},    {"cross", {3, 20}, {1, 4}},
        {"diamond", {9, 9}, {4, 4}},    {"diagonal", {13, 13}, {6, 6}}, {"triangle", {9, 9}, {0, 8}},
        {"ring", {17, 17}, {8, 8}},     {"random", {11, 11}, {5, 5}},   {"bars", {16, 12}, {8, 6}},
        {"empty", {3, 3}, {1, 1}},      {"random", {150, 3}, {149, 1}}};
    const auto elements = [&](const std::string& name) {
        std::vector<Element> list = few;
        if (name.ends_with("u8_c1") || name.ends_with("f32_c3")) list.insert(list.end(), more.begin(), more.end());
        return list;
    };
    morph_cases(elements, visit);
}

}  // namespace tarn::cases
