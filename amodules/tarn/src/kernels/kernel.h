// What every kernel shares: its status, its size, and the table of five addresses that a call goes through.
//
// A kernel is a plain function over (pointer, stride in bytes, ..., size). Strides are signed. It reads and writes only
// the pixels of its region: never the padding of a row, never a byte beyond the last pixel of the last row.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "kernels/level.h"

namespace tarn::k {

// 0 done; positive a warning; negative an error.
using Status = int32_t;
inline constexpr Status kOk = 0;
inline constexpr Status kNull = -1;      // null pointer
inline constexpr Status kBadSize = -2;   // size not positive
inline constexpr Status kBadArg = -3;    // another argument out of range
inline constexpr Status kNoMemory = -4;  // scratch memory can't be had
inline constexpr Status kNoKernel = -5;  // no kernel for this element kind and channel form

// Width in pixels, height in rows; one packed pair, passed by value.
struct Size {
    int32_t width, height;
};

// A part of a plane: its first pixel and its size.
struct Region {
    int32_t x, y, width, height;
};

// Where a kernel's scratch memory comes from. allocate gives 64-byte aligned memory or null.
struct Allocator {
    void* (*allocate)(void* context, uint64_t bytes);
    void (*release)(void* context, void* block);
    void* context;
};

// One address per level; calling a kernel reads the level and jumps.
template <class Fn>
struct Kernel;
template <class... Args>
struct Kernel<Status(Args...)> {
    Status (*at[kLevelCount])(Args...);
    Status operator()(Args... args) const { return at[active_level](args...); }
};

#define TARN_DECLARE_AT(level, name, Fn) \
    namespace level {                    \
    Fn name;                             \
    }
#define TARN_ADDRESS_AT(level, name) &level::name,

// Declares a kernel's five bodies and defines its table.
#define TARN_KERNEL(name, Fn)              \
    TARN_LEVELS(TARN_DECLARE_AT, name, Fn) \
    inline constexpr Kernel<Fn> name{{TARN_LEVELS(TARN_ADDRESS_AT, name)}};

// Signatures, by shape. Data as void*: one operation table mixes element types, so a kernel casts once at its door.
using Copy = Status(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size);
// dst := a op b; the second operand comes first.
using Binary = Status(const void* b, int32_t b_stride, const void* a, int32_t a_stride, void* dst, int32_t dst_stride,
                      Size size);
// dst := dst op constant; one constant per channel worked on, of the element type.
using ConstantInPlace = Status(const void* constant, void* dst, int32_t dst_stride, Size size);

}  // namespace tarn::k
