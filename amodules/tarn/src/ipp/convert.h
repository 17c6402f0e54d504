// Changes of the element kind, for operations whose kernels have one kind for source and destination.
#pragma once

#include "ipp/context.h"
#include "kernels/convert/convert.h"

namespace tarn::ipp {

inline constexpr SetsBySource<k::Unary> kConvert = {&k::convert_u8_kernels, &k::convert_s16_kernels,
                                                    &k::convert_s32_kernels, &k::convert_f32_kernels};

// Whether there is a conversion from a type to another kind.
bool converts(LumoELEMTYPE dst, LumoELEMTYPE src);

// dst := src over so many pixels, each in its own kind: u8, s16, s32, f32 (any that copies serve where both are one);
// channels by dst's type. Floats go to the nearest integer, ties to the even one. Returns the kernel's status, or
// kNoKernel.
k::Status convert_plane(const LumoMAT& dst, const LumoMAT& src, k::Size size);

// All of a matrix as a temporary of another type. Returns the conversion's status, or kNoTemporary.
k::Status convert_part(Context& context, Temporary* temporary, LumoELEMTYPE type, const LumoMAT& part);

// A region of src with up to kMargin pixels around it, as far as src has them, for a temporary of a type that kernels
// read with its neighbours. *region becomes its place in that.
inline constexpr int32_t kMargin = 8;  // more than any resampling kernel's neighbourhood
LumoRECT with_neighbours(LumoELEMTYPE type, const LumoMAT& src, LumoRECT* region);

}  // namespace tarn::ipp
