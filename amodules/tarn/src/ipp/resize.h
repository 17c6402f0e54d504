// The resizes of an interpolation, for copy-transform too.
#pragma once

#include "ipp/tables.h"
#include "kernels/resize/resize.h"

namespace tarn::ipp {

// The kernels for an interpolation code; null for a code that is none. A source smaller than the taps gets fewer of
// them.
const k::KernelSet<k::Resize>* resize_kernels(uint32_t interpolation, k::Size src);

}  // namespace tarn::ipp
