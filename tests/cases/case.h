// What a kernel case is: how to call one kernel, and what it must equal. The families' cases (cases/<family>.h) serve
// the tests, which check them at every level over many shapes, and the benches, which time them.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

#include "kernels/base/kernel.h"

namespace tarn::cases {

using k::Size;
using k::Status;

enum class Type { u8, s16, u16, s32, u32, f32, f64 };
inline int bytes_of(Type t) {
    static const int bytes[] = {1, 2, 2, 4, 4, 4, 8};
    return bytes[int(t)];
}
template <class T>
struct TypeOf {
    static constexpr Type value = std::is_same_v<T, uint8_t>    ? Type::u8
                                  : std::is_same_v<T, int16_t>  ? Type::s16
                                  : std::is_same_v<T, uint16_t> ? Type::u16
                                  : std::is_same_v<T, int32_t>  ? Type::s32
                                  : std::is_same_v<T, uint32_t> ? Type::u32
                                  : std::is_same_v<T, float>    ? Type::f32
                                                                : Type::f64;
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

// ---- Kernels by the rows of the lists -------------------------------------------------------------------------------

// One of an operation's kernels: its name, its form, the elements of its pixels, and how many of them it works on.
template <class Fn>
struct Listed {
    std::string name;
    const k::Kernel<Fn>* kernel;
    k::Form form;
    int channels = k::channels(form), used = k::used(form);
    template <class... Args>
    Status operator()(Args... args) const {
        return (*kernel)(args...);
    }
    template <class T>
    Plane destination() const {
        return used < channels ? inout<T>(channels) : out<T>(channels);
    }
    // fn(row, element of the row, channel) for every element that is worked on.
    template <class Each>
    void each_element(Size n, Each fn) const {
        cases::each_element(n, channels, [&](int x, int y, int c) {
            if (c < used) fn(y, x * channels + c, c);
        });
    }
};

// body(T(), kernel) for an operation's kernels of element types Ts, in all their forms.
template <class... Ts, class Fn, class Body>
void each_kernel(const std::string& op, const k::KernelSet<Fn>& set, Body body) {
    static const char* const forms[] = {"_c1", "_c2", "_c3", "_c4", "_c3x"};
    const auto of_type = [&](auto t, k::Type type, const char* name) {
        for (int f = 0; f < k::kForms; ++f)
            if (const k::Kernel<Fn>* kernel = set.find(type, k::Form(f)))
                body(t, Listed<Fn>{op + name + forms[f], kernel, k::Form(f)});
    };
    const auto each = [&](auto t) {
        using T = decltype(t);
        if (std::is_same_v<T, float>) return of_type(t, k::Type::f32, "_f32");
        if (std::is_same_v<T, uint16_t>) return of_type(t, k::Type::u16, "_u16");
        if (sizeof(T) == 1) return of_type(t, k::Type::u8, "_u8");
        if (sizeof(T) == 2) return of_type(t, k::Type::s16, "_s16");
        sizeof(T) == 4 ? of_type(t, k::Type::s32, "_s32") : of_type(t, k::Type::s64, "_s64");
    };
    (each(Ts()), ...);
}

}  // namespace tarn::cases
