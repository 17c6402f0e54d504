// The copy that carries every channel, for the operations that move pixels without looking at them.
#pragma once

#include "ipp/arguments.h"

// Copies a plane of kind 1, 2, 3, 4, 5 or 7 with all its channels, the fourth too (form 2 at half the width). Returns
// the kernel's status, or kNoKernel for another kind or form.
tarn::k::Status packed_copy_plane(int kind, int form, const void* src, int32_t src_stride, void* dst,
                                  int32_t dst_stride, tarn::k::Size size);
