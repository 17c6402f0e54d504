// Cases of the mirrors.
#pragma once

#include <algorithm>

#include "cases/case.h"
#include "kernels/mirror/mirror.h"

namespace tarn::cases {

// T: an element of the kernel's size; a wider one counts as several.
template <class T>
Case mirror_case(const Listed<k::Mirror>& k, int elements) {
    Case c{k.name, {inout<T>(elements)}, {}, {}};
    c.run = [k](const View* v, Size n) { return k(v[0].data, v[0].stride, n, 0); };
    c.expect = [elements](const View* v, Size n) {
        for (int y = 0; y < n.height / 2; ++y)
            std::swap_ranges(v[0].row<T>(y), v[0].row<T>(y) + n.width * elements, v[0].row<T>(n.height - 1 - y));
    };
    return c;
}

template <class Visit>
void mirror_cases(Visit&& visit) {
    each_kernel<uint8_t, int16_t, int32_t, int64_t>("mirror", k::mirror_kernels, [&]<class T>(T, const auto& k) {
        if constexpr (sizeof(T) == 8)
            visit(mirror_case<int32_t>(k, 2 * k.channels));
        else
            visit(mirror_case<T>(k, k.channels));
    });
}

}  // namespace tarn::cases
