// Plane copies: dst := src over a region. Overlapping planes of one stride are copied as if through a temporary.
#pragma once

#include "kernels/base/kernel.h"

namespace tarn::k {
#define KERNELS(op, Fn, types, forms) TARN_KERNELS(op, Fn, types, forms)
#include "kernels/copy/copy.def"
#undef KERNELS
}  // namespace tarn::k
