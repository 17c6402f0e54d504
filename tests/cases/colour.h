// Cases of colours and layouts.
#pragma once

#include "cases/case.h"
#include "kernels/colour/colour.h"

namespace tarn::cases {

// Grey by long division; of floats in the told order.
inline float grey_of(float r, float g, float b) {
    const float red = 0.299f * r, green = 0.587f * g, blue = 0.114f * b;
    return (red + green) + blue;
}
inline int grey_of(int r, int g, int b) {
    const int64_t sum = 299 * int64_t(r) + 587 * int64_t(g) + 114 * int64_t(b);
    const int64_t below = (sum - (sum % 1000 + 1000) % 1000) / 1000, rest = sum - below * 1000;
    return int(rest > 500 || (rest == 500 && below % 2) ? below + 1 : below);
}

// dst's pixels of `to` elements by fn(source pixel, destination pixel) of the source's, which have `from`.
template <class T, class Fn>
Case pixels_case(const Listed<k::Unary>& k, int from, int to, Fn fn) {
    Case c{k.name, {in<T>(from), out<T>(to)}, {}, {}};
    c.run = [k](const View* v, Size n) { return k(v[0].data, v[0].stride, v[1].data, v[1].stride, n); };
    c.expect = [=](const View* v, Size n) {
        each_element(n, 1, [&](int x, int y, int) { fn(v[0].row<T>(y) + from * x, v[1].row<T>(y) + to * x); });
    };
    return c;
}

// The same in one plane, whose pixel fn reads from a copy.
template <class T, class Fn>
Case in_place_case(const Listed<k::Unary>& k, int elements, Fn fn) {
    Case c{k.name + " in place", {inout<T>(elements)}, {}, {}};
    c.run = [k](const View* v, Size n) { return k(v[0].data, v[0].stride, v[0].data, v[0].stride, n); };
    c.expect = [=](const View* v, Size n) {
        each_element(n, 1, [&](int x, int y, int) {
            T* pixel = v[0].row<T>(y) + elements * x;
            const std::vector<T> before(pixel, pixel + elements);
            fn(before.data(), pixel);
        });
    };
    return c;
}

// Pixels in plane 0, their channels in the others.
template <class T>
Case interleave_case(const Listed<k::Interleave>& k) {
    Case c{k.name, {out<T>(k.channels)}, {}, {}};
    for (int i = 0; i < k.channels; ++i) c.planes.push_back(in<T>(1));
    c.run = [k](const View* v, Size n) {
        const void* const planes[] = {v[1].data, v[2].data, v[3].data, k.channels > 3 ? v[4].data : nullptr};
        return k(planes, v[1].stride, v[0].data, v[0].stride, n);
    };
    c.expect = [k](const View* v, Size n) {
        each_element(n, k.channels,
                     [&](int x, int y, int i) { v[0].row<T>(y)[k.channels * x + i] = v[1 + i].row<T>(y)[x]; });
    };
    return c;
}
template <class T>
Case deinterleave_case(const Listed<k::Deinterleave>& k) {
    Case c{k.name, {in<T>(k.channels)}, {}, {}};
    for (int i = 0; i < k.channels; ++i) c.planes.push_back(out<T>(1));
    c.run = [k](const View* v, Size n) {
        void* const planes[] = {v[1].data, v[2].data, v[3].data, k.channels > 3 ? v[4].data : nullptr};
        return k(v[0].data, v[0].stride, planes, v[1].stride, n);
    };
    c.expect = [k](const View* v, Size n) {
        each_element(n, k.channels,
                     [&](int x, int y, int i) { v[1 + i].row<T>(y)[x] = v[0].row<T>(y)[k.channels * x + i]; });
    };
    return c;
}

template <class Visit>
void colour_cases(Visit&& visit) {
    each_kernel<uint8_t, int16_t, int32_t>(
        "grey_to_three", k::grey_to_three_kernels, [&]<class T>(T, const Listed<k::Unary>& k) {
            visit(pixels_case<T>(k, 1, 3, [](const T* s, T* d) { d[0] = d[1] = d[2] = *s; }));
        });
    each_kernel<uint8_t, int16_t, uint16_t, float>(
        "rgb_to_grey", k::rgb_to_grey_kernels, [&]<class T>(T, const Listed<k::Unary>& k) {
            visit(pixels_case<T>(k, 3, 1, [](const T* s, T* d) { *d = T(grey_of(s[0], s[1], s[2])); }));
        });
    each_kernel<uint8_t, int16_t, uint16_t, float>(
        "bgr_to_grey", k::bgr_to_grey_kernels, [&]<class T>(T, const Listed<k::Unary>& k) {
            visit(pixels_case<T>(k, 3, 1, [](const T* s, T* d) { *d = T(grey_of(s[2], s[1], s[0])); }));
        });
    each_kernel<uint8_t, int16_t, int32_t>(
        "reverse_channels", k::reverse_channels_kernels, [&]<class T>(T, const Listed<k::Unary>& k) {
            const auto reverse = [](const T* s, T* d) { d[0] = s[2], d[1] = s[1], d[2] = s[0]; };
            visit(pixels_case<T>(k, 3, 3, reverse));
            visit(in_place_case<T>(k, 3, reverse));
        });
    each_kernel<uint8_t>("three_to_four", k::three_to_four_kernels, [&]<class T>(T, const Listed<k::Unary>& k) {
        visit(pixels_case<T>(k, 3, 4, [](const T* s, T* d) { d[0] = s[0], d[1] = s[1], d[2] = s[2], d[3] = 255; }));
    });
    each_kernel<uint8_t>("four_to_three", k::four_to_three_kernels, [&]<class T>(T, const Listed<k::Unary>& k) {
        visit(pixels_case<T>(k, 4, 3, [](const T* s, T* d) { d[0] = s[0], d[1] = s[1], d[2] = s[2]; }));
    });
    each_kernel<uint8_t, int16_t, int32_t>(
        "interleave", k::interleave_kernels,
        [&]<class T>(T, const Listed<k::Interleave>& k) { visit(interleave_case<T>(k)); });
    each_kernel<uint8_t, int16_t, int32_t>(
        "deinterleave", k::deinterleave_kernels,
        [&]<class T>(T, const Listed<k::Deinterleave>& k) { visit(deinterleave_case<T>(k)); });
}

}  // namespace tarn::cases
