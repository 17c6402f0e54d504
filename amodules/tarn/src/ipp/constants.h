// Constants of an operation as kernels read them, one per channel, of the element's type. Numbers are cut to the
// element's width by keeping their low bits, deliberately: callers rely on the wrap-around.
#pragma once

#include <math.h>
#include <string.h>

#include "ipp/tables.h"

namespace tarn::ipp {

struct Constants {
    uint8_t bytes[4 * 4] = {};  // four constants at most
    template <class T>
    void put(int channel, T value) {
        memcpy(bytes + channel * int(sizeof(T)), &value, sizeof(T));
    }
};

// The low bits of each of n whole numbers.
template <class Number>
Constants cut(k::Type type, int n, Number number) {
    Constants c;
    for (int i = 0; i < n; ++i) {
        if (type == u8)
            c.put(i, uint8_t(number(i)));
        else if (type == s16)
            c.put(i, uint16_t(number(i)));
        else
            c.put(i, uint32_t(number(i)));
    }
    return c;
}

// Floats as they are.
inline Constants floats(int n, const float* values) {
    Constants c;
    for (int i = 0; i < n; ++i) c.put(i, values[i]);
    return c;
}

// The largest integer not above the value; what 32 bits don't hold is the smallest integer.
inline int32_t floor_to_int(float value) {
    const float whole = floorf(value);
    return whole >= -0x1p31f && whole < 0x1p31f ? int32_t(whole) : INT32_MIN;
}

// The nearest integer, halves away from zero; what 64 bits don't hold is the smallest integer.
inline int64_t round_to_int(float value) {
    return value >= -0x1p63f && value < 0x1p63f ? int64_t(lroundf(value)) : INT64_MIN;
}

inline Constants floored(k::Type type, int n, const float* values) {
    return type == f32 ? floats(n, values) : cut(type, n, [=](int i) { return floor_to_int(values[i]); });
}
inline Constants rounded(k::Type type, int n, const float* values) {
    return type == f32 ? floats(n, values) : cut(type, n, [=](int i) { return round_to_int(values[i]); });
}

}  // namespace tarn::ipp
