// Cases of the plane copies.
#pragma once

#include <utility>

#include "cases/case.h"
#include "kernels/copy/copy.h"

namespace tarn::cases {

// Into another plane from all of one, or from a part of a wider one, whose rows lie further apart than the
// destination's.
template <class T>
Case copy_case(const Listed<k::Unary>& k, bool of_a_part) {
    Case c{k.name + (of_a_part ? " of a part" : ""), {in<T>(k.channels), k.template destination<T>()}, {}, {}};
    if (of_a_part) c.planes[0].size_of = [](Size n) { return Size{n.width + 5, n.height}; };
    c.run = [k](const View* v, Size n) { return k(v[0].data, v[0].stride, v[1].data, v[1].stride, n); };
    c.expect = [k](const View* v, Size n) {
        k.each_element(n, [&](int y, int i, int) { v[1].row<T>(y)[i] = v[0].row<T>(y)[i]; });
    };
    return c;
}

// Within one plane, by three pixels and a row, to higher places or to lower ones.
template <class T>
Case copy_within_case(const Listed<k::Unary>& k, bool lower) {
    Case c{k.name + (lower ? " to lower places" : " to higher places"), {inout<T>(k.channels)}, {}, {}};
    c.planes[0].size_of = [](Size n) { return Size{n.width + 3, n.height + 1}; };
    const auto ends = [=](const View& v) {
        uint8_t *first = v.data, *other = first ? reinterpret_cast<uint8_t*>(v.row<T>(1) + 3 * k.channels) : nullptr;
        return lower ? std::pair{other, first} : std::pair{first, other};
    };
    c.run = [=](const View* v, Size n) {
        const auto [src, dst] = ends(v[0]);
        return k(src, v[0].stride, dst, v[0].stride, n);
    };
    c.expect = [=](const View* v, Size n) {
        const auto [src, dst] = ends(v[0]);
        std::vector<uint8_t> before(v[0].data, v[0].data + size_t(v[0].stride) * size_t(n.height + 1));
        const View from{before.data() + (src - v[0].data), v[0].stride, n}, to{dst, v[0].stride, n};
        k.each_element(n, [&](int y, int i, int) { to.row<T>(y)[i] = from.row<T>(y)[i]; });
    };
    return c;
}

template <class Visit>
void copy_cases(Visit&& visit) {
    each_kernel<uint8_t, int16_t, int32_t>("copy", k::copy_kernels, [&]<class T>(T, const Listed<k::Unary>& k) {
        for (const bool part : {false, true}) visit(copy_case<T>(k, part));
        for (const bool lower : {false, true}) visit(copy_within_case<T>(k, lower));
    });
}

}  // namespace tarn::cases
