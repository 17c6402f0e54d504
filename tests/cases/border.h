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

// A border around a case's size. The kernel takes more after source, its size, destination, its size and corner;
// constants are null where the source's edge is repeated.
template <class T, class Fn, class... More>
void border_kernel_cases(const Listed<Fn>& k, const T* constants, const auto& visit, More... more) {
    const int channels = k.channels;
    const auto call = [=](const View& s, Size n, const View& d, Size larger, k::Offset corner) {
        return k(s.data, s.stride, n, d.data, d.stride, larger, corner, more...);
    };
    const auto from = [=](const View& src, const View& dst, Widths w, Size n) {
        k.each_element(dst.size, [&](int y, int i, int ch) {
            const int x = i / channels - w.left, sx = std::clamp(x, 0, n.width - 1),
                      sy = std::clamp(y - w.top, 0, n.height - 1);
            const bool outside = sx != x || sy != y - w.top;
            dst.row<T>(y)[i] = constants && outside ? constants[ch] : src.row<T>(sy)[sx * channels + ch];
        });
    };
    for (const Widths w : kWidths) {
        std::string variant;
        for (const int side : {w.left, w.top, w.right, w.bottom}) variant.append(1, ' ').append(std::to_string(side));
        const auto larger = [w](Size n) { return Size{w.left + n.width + w.right, w.top + n.height + w.bottom}; };
        // The source in the middle of the destination, or elsewhere in it.
        const auto within = [=](const View& v, Size n, bool elsewhere) {
            const int x = elsewhere ? w.right : w.left, y = elsewhere ? w.bottom : w.top;
            return View{v.data ? reinterpret_cast<uint8_t*>(v.row<T>(y) + x * channels) : nullptr, v.stride, n};
        };
        Case apart{k.name + variant, {in<T>(channels), k.template destination<T>()}, {}, {}};
        apart.planes[1].size_of = larger;
        apart.run = [=](const View* v, Size n) { return call(v[0], n, v[1], larger(n), k::Offset{w.left, w.top}); };
        apart.expect = [=](const View* v, Size n) { from(v[0], v[1], w, n); };
        visit(apart);
        if (w.bottom == 0) continue;
        for (const bool elsewhere : {false, true}) {
            Case c{k.name + variant + (elsewhere ? " overlapping" : " in place"), {inout<T>(channels)}, {}, {}};
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

template <class Visit>
void border_cases(Visit&& visit) {
    each_kernel<uint8_t, int16_t, int32_t>(
        "border_replicate", k::border_replicate_kernels,
        [&]<class T>(T, const auto& k) { border_kernel_cases<T>(k, nullptr, visit); });
    each_kernel<uint8_t, int16_t, int32_t>(
        "border_constant", k::border_constant_kernels, [&]<class T>(T, const auto& k) {
            static const T constants[4] = {T(0x81c3a5f7), T(0x01020304), T(0xfefdfcfb), 99};
            border_kernel_cases<T>(k, constants, visit, constants);
        });
}

}  // namespace tarn::cases
