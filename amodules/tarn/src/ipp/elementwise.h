// Plane routines that other operation families use too.
#pragma once

#include "ipp/arguments.h"
#include "kernels/copy/copy.h"

// The plane copies, by kind and channel form.
extern const KernelTable<tarn::k::Unary> kCopy;

// Copies a plane (typed, the fourth channel of form 5 kept; form 2 at half the width). Returns the kernel's status, or
// kNoKernel for an unsupported cell.
tarn::k::Status copy_plane(int kind, int form, const void* src, int32_t src_stride, void* dst, int32_t dst_stride,
                           tarn::k::Size size);

// The kernels' number of a comparison code; -1, which they refuse, for a code that is none.
int32_t kernel_comparison(uint32_t code);
