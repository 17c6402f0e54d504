// What every kernel shares: its status, its size, the table of five addresses that a call goes through, and the lists
// that families are declared by.
//
// A kernel is a plain function over (pointer, stride in bytes, ..., size). Strides are signed. It reads and writes only
// the pixels of its region: never the padding of a row, never a byte beyond the last pixel of the last row. Pixels may
// stand at any byte address.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "kernels/base/level.h"
#include "kernels/base/lists.h"

namespace tarn::k {

// 0 done; positive a warning; negative an error.
using Status = int32_t;
inline constexpr Status kOk = 0;
inline constexpr Status kNull = -1;      // null pointer
inline constexpr Status kBadSize = -2;   // size not positive
inline constexpr Status kBadArg = -3;    // another argument out of range
inline constexpr Status kNoMemory = -4;  // scratch memory can't be had
inline constexpr Status kNoKernel = -5;  // no kernel for this element type and channel form

// Width in pixels, height in rows; one packed pair, passed by value.
struct Size {
    int32_t width, height;
};

// A pixel's place, from a corner.
struct Offset {
    int32_t x, y;
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

// Element types, by the names that kernels have them by. Kernels that only move bits serve every type of that size.
enum class Type : uint8_t { u8, s16, s32, f32, s64, u16 };
inline constexpr int kTypes = 6;
namespace element {
using u8 = uint8_t;
using s16 = int16_t;
using s32 = int32_t;
using f32 = float;
using s64 = int64_t;
using u16 = uint16_t;
}  // namespace element

// Channel forms: so many channels side by side. c3x: pixels of four channels of which three are worked on, and the
// destination's fourth stays as it is; c2: pixels of four channels that are two pixels of two.
enum class Form : uint8_t { c1, c2, c3, c4, c3x };
inline constexpr int kForms = 5;
// Elements of a pixel in memory.
constexpr int channels(Form form) { return form == Form::c1 ? 1 : form == Form::c3 ? 3 : 4; }
// Whether the fourth channel of the destination stays.
constexpr bool kept(Form form) { return form == Form::c3x; }
// Channels that are worked on: those that have constants and results.
constexpr int used(Form form) { return kept(form) ? 3 : channels(form); }

// One address per level; calling a kernel reads the level and jumps.
template <class Fn>
struct Kernel;
template <class... Args>
struct Kernel<Status(Args...)> {
    Status (*at[kLevelCount])(Args...);
    Status operator()(Args... args) const { return at[active_level](args...); }
};

// The kernels of one operation, by type and form.
template <class Fn>
struct KernelSet {
    const Kernel<Fn>* cells[kTypes][kForms] = {};
    // Null where the list has no such kernel.
    constexpr const Kernel<Fn>* find(Type type, Form form) const { return cells[int(type)][int(form)]; }
};

// Signatures, by shape. Data as void*: one operation table mixes element types, so a kernel casts once at its door.

// dst := op src.
using Unary = Status(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size);
#define TARN_ARITY_Unary 5
// dst := a op b; the second operand comes first.
using Binary = Status(const void* b, int32_t b_stride, const void* a, int32_t a_stride, void* dst, int32_t dst_stride,
                      Size size);
#define TARN_ARITY_Binary 7

}  // namespace tarn::k
