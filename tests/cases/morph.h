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

// Floats by their bits, as integers of the same order; and back.
inline int32_t ordered(int32_t bits) { return bits < 0 ? bits ^ INT32_MAX : bits; }
inline uint8_t ordered(uint8_t v) { return v; }

// to := the extremes of `from` under the element, reflected for dilation; both packed. Cell by cell, over an image with
// edge pixels repeated around it.
template <class T>
void morph_plainly(const Element& e, bool dilates, const View& from, const View& to, int channels) {
    const Size n = from.size, reach = e.size;
    const int pitch = (n.width + 2 * reach.width) * channels;
    std::vector<T> wide;
    for (int y = -reach.height; y < n.height + reach.height; ++y)
        for (int x = -reach.width; x < n.width + reach.width; ++x)
            for (int c = 0; c < channels; ++c)
                wide.push_back(
                    ordered(from.row<T>(std::clamp(y, 0, n.height - 1))[std::clamp(x, 0, n.width - 1) * channels + c]));
    const T infinity = ordered(sizeof(T) == 1 ? T(255) : T(0x7f800000));
    const T least = sizeof(T) == 1 ? 0 : ordered(T(0xff800000));
    std::vector<T> best(size_t(n.width * channels));
    for (int y = 0; y < n.height; ++y) {
        bool any = false;
        for (int j = 0; j < e.size.height; ++j)
            for (int i = 0; i < e.size.width; ++i) {
                if (!e.at(i, j)) continue;
                const int side = dilates ? -1 : 1, dx = side * (i - e.anchor.x), dy = side * (j - e.anchor.y);
                const T* row = &wide[size_t((y + reach.height + dy) * pitch + (reach.width + dx) * channels)];
                if (!any) best.assign(row, row + best.size());
                for (size_t x = 0; x < best.size(); ++x)
                    best[x] = dilates ? std::max(best[x], row[x]) : std::min(best[x], row[x]);
                any = true;
            }
        for (size_t x = 0; x < best.size(); ++x) to.row<T>(y)[x] = ordered(any ? best[x] : dilates ? least : infinity);
    }
}

// The operations, by what they are made of.
enum class Op { erode, dilate, open, close, tophat, blackhat, gradient };

template <class T>
void compose_plainly(Op op, const Element& e, const View& from, const View& to, int channels) {
    using Bits = std::conditional_t<sizeof(T) == 1, uint8_t, int32_t>;
    const auto step = [&](bool dilates, const View& a, const View& b) {
        morph_plainly<Bits>(e, dilates, a, b, channels);
    };
    std::vector<uint8_t> memory(size_t(from.size.height) * size_t(from.stride));
    const View between{memory.data(), from.stride, from.size};
    const bool closes = op == Op::close || op == Op::blackhat;
    if (op == Op::erode || op == Op::dilate) return step(op == Op::dilate, from, to);
    if (op == Op::gradient) {
        step(false, from, between);
        step(true, from, to);
    } else {
        step(closes, from, between);
        step(!closes, between, to);
    }
    const auto less = [](T a, T b) { return sizeof(T) == 1 && a < b ? T(0) : T(a - b); };
    each_element(from.size, channels, [&](int x, int y, int c) {
        T &result = to.row<T>(y)[x * channels + c], source = from.row<T>(y)[x * channels + c];
        if (op == Op::tophat) result = less(source, result);
        if (op == Op::blackhat) result = less(result, source);
        if (op == Op::gradient) result = less(result, between.row<T>(y)[x * channels + c]);
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
    const auto operation = [&](const char* name, const k::KernelSet<k::Morph>& set, Op op) {
        each_kernel<uint8_t, float>(name, set, [&]<class T>(T, auto kernel) {
            for (const Element& e : elements(kernel.name)) {
                Case c{kernel.name + " " + e.name, {in<T>(kernel.channels), out<T>(kernel.channels)}, {}, {}};
                const auto state = std::make_shared<State>(
                    State{sizeof(T) == 1 ? k::Type::u8 : k::Type::f32, kernel.form,
                          op == Op::erode || op == Op::dilate ? k::kMorphBasic : k::kMorphAdvanced, e});
                c.run = [=](const View* v, Size n) {
                    return kernel(v[0].data, v[0].stride, v[1].data, v[1].stride, n, k::kMorphReplicate, state->of(n));
                };
                c.expect = [=](const View* v, Size) { compose_plainly<T>(op, e, v[0], v[1], kernel.channels); };
                visit(c);
            }
        });
    };
    operation("erode", k::erode_kernels, Op::erode);
    operation("dilate", k::dilate_kernels, Op::dilate);
    operation("morph_open", k::morph_open_kernels, Op::open);
    operation("morph_close", k::morph_close_kernels, Op::close);
    operation("tophat", k::tophat_kernels, Op::tophat);
    operation("blackhat", k::blackhat_kernels, Op::blackhat);
    operation("gradient", k::gradient_kernels, Op::gradient);
}

template <class Visit>
void morph_cases(Visit&& visit) {
    making_cases(visit);
    // Rises of every kind, in registers and in rings; runs of one, two and more windows, of which some have no tables.
    const std::vector<Element> all = {
        {"ellipse", {7, 7}, {3, 3}},   {"random", {6, 4}, {5, 0}},     {"rect", {1, 1}, {0, 0}},
        {"rect", {5, 14}, {4, 0}},     {"rect", {2, 45}, {1, 30}},     {"rect", {100, 1}, {3, 0}},
        {"ellipse", {12, 10}, {6, 5}}, {"ellipse", {31, 31}, {2, 29}}, {"cross", {15, 15}, {7, 7}},
        {"cross", {3, 20}, {1, 4}},    {"diagonal", {13, 13}, {6, 6}}, {"triangle", {9, 9}, {0, 8}},
        {"ring", {17, 17}, {8, 8}},    {"random", {11, 11}, {5, 5}},   {"bars", {16, 12}, {8, 6}},
        {"empty", {3, 3}, {1, 1}},     {"random", {150, 3}, {149, 1}}};
    const auto elements = [&](const std::string& name) {
        const bool many = name == "erode_u8_c1" || name == "dilate_f32_c1", pairs = name == "morph_open_u8_c3";
        return std::vector(all.begin(), all.begin() + (many                   ? long(all.size())
                                                       : pairs                ? 5
                                                       : name.ends_with("c1") ? 2
                                                                              : 1));
    };
    morph_cases(elements, visit);
}

}  // namespace tarn::cases
