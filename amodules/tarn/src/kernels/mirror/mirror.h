// Mirrors of a plane in place.
#pragma once

#include "kernels/base/kernel.h"

namespace tarn::k {

// axis 0: the order of the rows is reversed, the pixels of a row stay as they are. Other axes: kBadArg.
using Mirror = Status(void* data, int32_t stride, Size size, int32_t axis);
#define TARN_ARITY_Mirror 4

#define KERNELS(op, Fn, types, forms) TARN_KERNELS(op, Fn, types, forms)
#include "kernels/mirror/mirror.def"
#undef KERNELS
}  // namespace tarn::k
