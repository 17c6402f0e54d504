// What a kernel case is: how to call one kernel, and what it must equal. The families' cases (cases/<family>.h) serve
// the tests, which check them at every level over many shapes, and the benches, which time them.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "kernels/base/kernel.h"

namespace tarn::cases {

using k::Size;
using k::Status;

enum class Type { u8, s16, s32, u32, f32, f64 };
inline int bytes_of(Type t) {
    static const int bytes[] = {1, 2, 4, 4, 4, 8};
    return bytes[int(t)];
}
template <class T>
struct TypeOf;
template <>
struct TypeOf<uint8_t> {
    static constexpr Type value = Type::u8;
};
template <>
struct TypeOf<int16_t> {
    static constexpr Type value = Type::s16;
};
template <>
struct TypeOf<int32_t> {
    static constexpr Type value = Type::s32;
};
template <>
struct TypeOf<uint32_t> {
    static constexpr Type value = Type::u32;
};
template <>
struct TypeOf<float> {
    static constexpr Type value = Type::f32;
};
template <>
struct TypeOf<double> {
    static constexpr Type value = Type::f64;
};

enum class Role { in, out, inout };

// One array of a case. Its size is the case's, or what size_of makes of it (a resize's source, a vector of results).
struct Plane {
    Type type;
    int elements;  // per pixel
    Role role;
    std::function<Size(Size)> size_of = {};
    bool optional = false;  // null is taken too
    bool aligned = false;   // the kernel has a pointer to its elements; others may stand at any byte
    Size size(Size n) const { return size_of ? size_of(n) : n; }
};

// A plane as it lies in memory for one call.
struct View {
    uint8_t* data;
    int32_t stride;
    Size size;
    template <class T>
    T* row(int64_t y) const {
        return reinterpret_cast<T*>(data + y * stride);
    }
};

// What the elements of input planes are.
enum class Values {
    any,     // every bit pattern that may occur: extremes, and for floats also NaN, infinities, zeros of both signs,
             // denormals
    finite,  // floats without NaN and infinities
    unit,    // floats in -1..1; integers as with any
};

struct Case {
    std::string name;  // the kernel's name; a variant behind a space
    std::vector<Plane> planes;
    std::function<Status(const View*, Size)> run;
    // Fills the out and inout planes of packed views with what the kernel must give, from the in and inout planes. May
    // be empty when another test covers the values; the levels are then only compared with each other.
    std::function<void(const View*, Size)> expect = {};
    Values values = Values::any;
    // How far an output element may lie from the expected one, in units of the last place for floats and in steps for
    // integers. 0: the same bits (any NaN equals any NaN).
    double tolerance = 0;
    // Changes random planes before they are used; not those of the benches.
    std::function<void(const View*, Size)> prepare = {};
    // The kernel is told a width only.
    bool one_row = false;
};

template <class T>
Plane in(int elements) {
    return {TypeOf<T>::value, elements, Role::in};
}
template <class T>
Plane out(int elements) {
    return {TypeOf<T>::value, elements, Role::out};
}
template <class T>
Plane inout(int elements) {
    return {TypeOf<T>::value, elements, Role::inout};
}

// fn(x, y, channel) for every element of a plane.
template <class Fn>
void each_element(Size n, int elements, Fn fn) {
    for (int y = 0; y < n.height; ++y)
        for (int x = 0; x < n.width; ++x)
            for (int c = 0; c < elements; ++c) fn(x, y, c);
}

}  // namespace tarn::cases
