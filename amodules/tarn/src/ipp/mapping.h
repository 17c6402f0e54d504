// Mapping of a plane's values, for the other families too.
#pragma once

#include "ipp/context.h"
#include "kernels/mapping/mapping.h"

namespace tarn::ipp {

inline constexpr SetsBySource<k::RangeMap> kRange = {&k::range_u8_kernels, &k::range_s16_kernels, nullptr,
                                                     &k::range_f32_kernels};
inline constexpr SetsBySource<k::ScaleMap> kScale = {&k::scale_u8_kernels, &k::scale_s16_kernels, nullptr,
                                                     &k::scale_f32_kernels};

// Maps the values of each channel of src to lo..hi, into dst, which may be src: kinds u8, s16, f32, channels by dst's
// type. Returns the kernel's status, or kNoKernel.
k::Status range_map_plane(Context& context, const LumoMAT& dst, const LumoMAT& src, k::Size size, float lo, float hi);

}  // namespace tarn::ipp
