// Cases of the linear mappings.
#pragma once

#include <cmath>

#include "cases/convert.h"
#include "cases/heap.h"
#include "kernels/mapping/mapping.h"

namespace tarn::cases {

// The arithmetic on one value: the product rounded to float, then the sum.
template <class D, class S>
D mapped(S v, float scale, float offset) {
    const volatile float product = float(v) * scale;
    return converted<D>(float(product + offset));
}

template <class S, class D>
Case scale_case(const char* name, const k::Kernel<k::ScaleMap>& kernel, int channels, bool kept = false) {
    static const float kScale[] = {0.5f, -1.75f, 3.1415926f, 0.1f}, kOffset[] = {0.25f, 300.0f, -7.0f, 1e-3f};
    Case c{name, {in<S>(channels), kept ? inout<D>(channels) : out<D>(channels)}, {}, {}};
    c.run = [&kernel](const View* v, Size n) {
        return kernel(v[0].data, v[0].stride, v[1].data, v[1].stride, n, kScale, kOffset, heap());
    };
    c.expect = [channels, kept](const View* v, Size n) {
        each_element(n, channels, [&](int x, int y, int ch) {
            if (!(kept && ch == 3))
                v[1].row<D>(y)[x * channels + ch] =
                    mapped<D>(v[0].row<S>(y)[x * channels + ch], kScale[ch], kOffset[ch]);
        });
    };
    return c;
}

// pairs: two pixels of two channels in one of four elements.
template <class S, class D>
Case range_case(const char* name, const k::Kernel<k::RangeMap>& kernel, int channels, bool kept, bool pairs) {
    static constexpr float kLo = -10.5f, kHi = 200.0f;
    Case c{name, {in<S>(channels), kept ? inout<D>(channels) : out<D>(channels)}, {}, {}};
    c.run = [&kernel](const View* v, Size n) {
        return kernel(v[0].data, v[0].stride, v[1].data, v[1].stride, n, kLo, kHi, heap());
    };
    c.expect = [channels, kept, pairs](const View* v, Size n) {
        for (int ch = 0; ch < channels - kept; ++ch) {
            float lo = NAN, hi = NAN;
            each_element(n, channels, [&](int x, int y, int e) {
                if (e != ch && !(pairs && e % 2 == ch % 2)) return;
                lo = std::fmin(lo, float(v[0].row<S>(y)[x * channels + e]));
                hi = std::fmax(hi, float(v[0].row<S>(y)[x * channels + e]));
            });
            const bool flat = !(hi - lo > 1.1920929e-07f);
            const volatile float scale = flat ? 0 : (kHi - kLo) / (hi - lo), product = scale * lo;
            const float offset = flat ? kLo : kLo - product;
            each_element(n, channels, [&](int x, int y, int e) {
                if (e != ch) return;
                D& d = v[1].row<D>(y)[x * channels + e];
                d = flat && channels == 1 ? converted<D>(kLo)
                                          : mapped<D>(v[0].row<S>(y)[x * channels + e], scale, offset);
            });
        }
    };
    return c;
}

template <class Visit>
void mapping_cases(Visit&& visit) {
#define PAIR(S, s, D, d)                                                                         \
    visit(scale_case<S, D>("scale_" #s "_" #d "_c1", k::scale_##s##_##d##_c1, 1));               \
    visit(scale_case<S, D>("scale_" #s "_" #d "_c3", k::scale_##s##_##d##_c3, 3));               \
    visit(scale_case<S, D>("scale_" #s "_" #d "_c4", k::scale_##s##_##d##_c4, 4));               \
    visit(scale_case<S, D>("scale_" #s "_" #d "_c3x", k::scale_##s##_##d##_c3x, 4, true));       \
    visit(range_case<S, D>("range_" #s "_" #d "_c1", k::range_##s##_##d##_c1, 1, false, false)); \
    visit(range_case<S, D>("range_" #s "_" #d "_c2", k::range_##s##_##d##_c2, 4, false, true));  \
    visit(range_case<S, D>("range_" #s "_" #d "_c3", k::range_##s##_##d##_c3, 3, false, false)); \
    visit(range_case<S, D>("range_" #s "_" #d "_c4", k::range_##s##_##d##_c4, 4, false, false)); \
    visit(range_case<S, D>("range_" #s "_" #d "_c3x", k::range_##s##_##d##_c3x, 4, true, false));
    PAIR(uint8_t, u8, uint8_t, u8)
    PAIR(uint8_t, u8, int16_t, s16)
    PAIR(uint8_t, u8, float, f32)
    PAIR(int16_t, s16, uint8_t, u8)
    PAIR(int16_t, s16, int16_t, s16)
    PAIR(int16_t, s16, float, f32)
    PAIR(float, f32, uint8_t, u8)
    PAIR(float, f32, int16_t, s16)
    PAIR(float, f32, float, f32)
#undef PAIR
    // Among any floats there is mostly an infinity, which makes the range one of NaN.
    for (Case c : {range_case<float, uint8_t>("range_f32_u8_c1 finite", k::range_f32_u8_c1, 1, false, false),
                   range_case<float, int16_t>("range_f32_s16_c3 finite", k::range_f32_s16_c3, 3, false, false),
                   range_case<float, float>("range_f32_f32_c3x finite", k::range_f32_f32_c3x, 4, true, false),
                   range_case<float, float>("range_f32_f32_c2 finite", k::range_f32_f32_c2, 4, false, true)}) {
        c.values = Values::finite;
        visit(c);
    }
}

}  // namespace tarn::cases
