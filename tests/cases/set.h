// Cases of the fills.
#pragma once

#include "cases/case.h"
#include "kernels/set/set.h"

namespace tarn::cases {

template <class T>
constexpr T kFill[4] = {T(0x81c3a5f7), T(0x01020304), T(0xfefdfcfb), 99};

template <class Visit>
void set_cases(Visit&& visit) {
    each_kernel<uint8_t, int16_t, int32_t>("set", k::set_kernels, [&]<class T>(T, const Listed<k::Fill>& k) {
        Case c{k.name, {k.template destination<T>()}, {}, {}};
        c.run = [k](const View* v, Size n) { return k(kFill<T>, v[0].data, v[0].stride, n); };
        c.expect = [k](const View* v, Size n) {
            k.each_element(n, [&](int y, int i, int ch) { v[0].row<T>(y)[i] = kFill<T>[ch]; });
        };
        visit(c);
    });
    each_kernel<uint8_t, int16_t, int32_t>("set_m", k::set_m_kernels, [&]<class T>(T, const Listed<k::MaskedSet>& k) {
        Case c{k.name, {inout<T>(k.channels), in<uint8_t>(1)}, {}, {}};
        // Runs without a selected pixel, and runs where every other is.
        c.prepare = [](const View* v, Size n) {
            each_element(n, 1, [&](int x, int y, int) {
                uint8_t& m = v[1].row<uint8_t>(y)[x];
                if ((x / 75 + y) % 3 == 0 || m & 1) m = 0;
            });
        };
        c.run = [k](const View* v, Size n) { return k(kFill<T>, v[0].data, v[0].stride, n, v[1].data, v[1].stride); };
        c.expect = [k](const View* v, Size n) {
            k.each_element(n, [&](int y, int i, int ch) {
                if (v[1].row<uint8_t>(y)[i / k.channels]) v[0].row<T>(y)[i] = kFill<T>[ch];
            });
        };
        visit(c);
    });
}

}  // namespace tarn::cases
