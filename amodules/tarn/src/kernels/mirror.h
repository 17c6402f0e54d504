// Mirrors of a plane in place.
#pragma once

#include "kernels/kernel.h"

namespace tarn::k {

// axis 0: the order of the rows is reversed, the pixels of a row stay as they are. Other axes: kBadArg.
using Mirror = Status(void* data, int32_t stride, Size size, int32_t axis);

#define KERNEL(name, Fn) TARN_KERNEL(name, Fn)
#include "kernels/mirror.def"
#undef KERNEL
}  // namespace tarn::k
