// Otsu's choice of a histogram's interval, and numbers by their intervals.
#pragma once

#include <stdint.h>

#include "kernels/threshold/threshold.h"

namespace tarn::ipp {

// The most intervals that the exact comparison has room for.
inline constexpr int32_t kMostBins = 65536;

// The interval that the lower class ends with: of those with the greatest variance between the classes the first (N.
// Otsu, "A threshold selection method from gray-level histograms", 1979). counts: 1 to kMostBins of them, 2^40 elements
// at most in all.
int32_t otsu_bin(const uint64_t* counts, int32_t bins);

// The greatest number of a type (u8, s16, f32) in the intervals 0 to `bin`; the lower bound where there is none.
float last_of_bin(const k::Bins& bins, int32_t bin, k::Type type);

}  // namespace tarn::ipp
