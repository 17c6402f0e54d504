// Plane conversions: dst := src, element by element, in another element type. Integers saturate; floats go to the
// nearest integer, ties to the even one, and saturate, NaN to the type's smallest value; 32-bit integers go to the
// nearest float.
#pragma once

#include "kernels/kernel.h"

namespace tarn::k {
#define KERNEL(name, Fn) TARN_KERNEL(name, Fn)
#include "kernels/convert.def"
#undef KERNEL
}  // namespace tarn::k
