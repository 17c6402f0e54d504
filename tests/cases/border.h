// Cases of the borders.
#pragma once

#include <algorithm>
#include <string>

#include "cases/case.h"
#include "kernels/border/border.h"

namespace tarn::cases {

// Widths of the border: more than a vector of any level, none, and between.
struct Widths {
    int left, top, right, bottom;
};
inline constexpr Widths kWidths[] = {{2, 1, 3, 2}, {0, 0, 5, 0}, {150, 2, 71, 0}};

// A border around a case's size. call(source, its size, destination, its size, corner) is the kernel; constants are null
// where the source's edge is repeated.
template <class T>
void border_form_cases(const std::string& name, int channels, bool kept, const T* constants, auto call,
                       const auto& visit) {
    const auto from = [=](const View& src, const View& dst, Widths w, Size n) {
        each_element(dst.size, channels, [&](int x, int y, int ch) {
            const int sx = std::clamp(x - w.left, 0, n.width - 1), sy = std::clamp(y - w.top, 0, n.height - 1);
            const bool outside = sx != x - w.left || sy != y - w.top;
            if (!(kept && ch == 3))
                dst.row<T>(y)[x * channels + ch] =
                    constants && outside ? constants[ch] : src.row<T>(sy)[sx * channels + ch];
        });
    };
    for (const Widths w : kWidths) {
        const std::string variant = " " + std::to_string(w.left) + ", " + std::to_string(w.top) + ", " +
                                    std::to_string(w.right) + ", " + std::to_string(w.bottom);
        const auto larger = [w](Size n) { return Size{w.left + n.width + w.right, w.top + n.height + w.bottom}; };
        // The source in the middle of the destination, or elsewhere in it.
        const auto within = [=](const View& v, Size n, bool elsewhere) {
            const int x = elsewhere ? w.right : w.left, y = elsewhere ? w.bottom : w.top;
            return View{v.data ? reinterpret_cast<uint8_t*>(v.row<T>(y) + x * channels) : nullptr, v.stride, n};
        };
        Case apart{name + variant, {in<T>(channels), kept ? inout<T>(channels) : out<T>(channels)}, {}, {}};
        apart.planes[1].size_of = larger;
        apart.run = [=](const View* v, Size n) { return call(v[0], n, v[1], larger(n), k::Offset{w.left, w.top}); };
        apart.expect = [=](const View* v, Size n) { from(v[0], v[1], w, n); };
        visit(apart);
        if (w.bottom == 0) continue;
        for (const bool elsewhere : {false, true}) {
            Case c{name + variant + (elsewhere ? " overlapping" : " in place"), {inout<T>(channels)}, {}, {}};
            c.planes[0].size_of = larger;
            c.run = [=](const View* v, Size n) {
                return call(within(v[0], n, elsewhere), n, v[0], larger(n), k::Offset{w.left, w.top});
            };
            c.expect = [=](const View* v, Size n) {
                const View src = within(v[0], n, elsewhere);
                const size_t row = size_t(v[0].stride);
                std::vector<uint8_t> before(v[0].data, v[0].data + row * size_t(v[0].size.height));
                from({before.data() + (src.data - v[0].data), v[0].stride, n}, v[0], w, n);
            };
            visit(c);
        }
    }
}

template <class T>
void border_cases_of(const char* type, k::Type kernel_type, const auto& visit) {
    static const T constants[4] = {T(0x81c3a5f7), T(0x01020304), T(0xfefdfcfb), 99};
    struct {
        const char* name;
        k::Form form;
        int channels;
    } const forms[] = {
        {"c1", k::Form::c1, 1}, {"c3", k::Form::c3, 3}, {"c4", k::Form::c4, 4}, {"c3x", k::Form::c3x, 4}};
    for (const auto& f : forms) {
        const std::string name = std::string(type) + "_" + f.name;
        const auto* replicate = k::border_replicate_kernels.find(kernel_type, f.form);
        border_form_cases<T>(
            "border_replicate_" + name, f.channels, k::kept(f.form), nullptr,
            [=](const View& s, Size n, const View& d, Size larger, k::Offset corner) {
                return (*replicate)(s.data, s.stride, n, d.data, d.stride, larger, corner);
            },
            visit);
        const auto* constant = k::border_constant_kernels.find(kernel_type, f.form);
        border_form_cases<T>(
            "border_constant_" + name, f.channels, k::kept(f.form), constants,
            [=](const View& s, Size n, const View& d, Size larger, k::Offset corner) {
                return (*constant)(s.data, s.stride, n, d.data, d.stride, larger, corner, constants);
            },
            visit);
    }
}

template <class Visit>
void border_cases(Visit&& visit) {
    border_cases_of<uint8_t>("u8", k::Type::u8, visit);
    border_cases_of<int16_t>("s16", k::Type::s16, visit);
    border_cases_of<int32_t>("s32", k::Type::s32, visit);
}

}  // namespace tarn::cases
