// Cases of the mirrors.
#pragma once

#include <cstring>

#include "cases/case.h"
#include "kernels/mirror/mirror.h"

namespace tarn::cases {

// T: an element of the kernel's size; a wider one counts as several.
template <class T>
Case mirror_case(const char* name, const k::Kernel<k::Mirror>& kernel, int elements) {
    Case c{name, {inout<T>(elements)}, {}, {}};
    c.run = [&kernel](const View* v, Size n) { return kernel(v[0].data, v[0].stride, n, 0); };
    c.expect = [elements](const View* v, Size n) {
        for (int y = 0; y < n.height / 2; ++y)
            for (int i = 0; i < n.width * elements; ++i) std::swap(v[0].row<T>(y)[i], v[0].row<T>(n.height - 1 - y)[i]);
    };
    return c;
}

template <class Visit>
void mirror_cases(Visit&& visit) {
#define MIRROR(t, T, elements)                                                     \
    visit(mirror_case<T>("mirror_" #t "_c1", k::mirror_##t##_c1, elements));       \
    visit(mirror_case<T>("mirror_" #t "_c3", k::mirror_##t##_c3, 3 * (elements))); \
    visit(mirror_case<T>("mirror_" #t "_c4", k::mirror_##t##_c4, 4 * (elements)));
    MIRROR(u8, uint8_t, 1)
    MIRROR(s16, int16_t, 1)
    MIRROR(s32, int32_t, 1)
    MIRROR(s64, int32_t, 2)
#undef MIRROR
}

}  // namespace tarn::cases
