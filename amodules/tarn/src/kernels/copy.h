// Plane copies: dst := src over a region. Overlapping planes of one stride are copied as if through a temporary.
#pragma once

#include "kernels/kernel.h"

namespace tarn::k {
#define KERNEL(name, Fn) TARN_KERNEL(name, Fn)
#include "kernels/copy.def"
#undef KERNEL
}  // namespace tarn::k
