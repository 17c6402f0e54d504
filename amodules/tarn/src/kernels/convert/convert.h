// Plane conversions: dst := src, element by element, in another element type. Integers saturate; floats go to the
// nearest integer, ties to the even one, and saturate, NaN to the type's smallest value; 32-bit integers go to the
// nearest float.
#pragma once

#include "kernels/base/kernel.h"

namespace tarn::k {
#define KERNELS(op, Fn, types, forms) TARN_KERNELS(op, Fn, types, forms)
#include "kernels/convert/convert.def"
#undef KERNELS
}  // namespace tarn::k
