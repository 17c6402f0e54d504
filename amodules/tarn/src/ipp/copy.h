// Plane copies, for the other families too.
#pragma once

#include "ipp/tables.h"

namespace tarn::ipp {

// dst := src over so many pixels, as dst's type says; the fourth of four channels stays. Returns the kernel's status,
// or kNoKernel for an unsupported type.
k::Status copy_plane(const LumoMAT& dst, const LumoMAT& src, k::Size size);

// The same with all four channels. Serves kind 7 too.
k::Status packed_copy_plane(const LumoMAT& dst, const LumoMAT& src, k::Size size);

}  // namespace tarn::ipp
