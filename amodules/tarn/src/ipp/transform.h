// The steps of copy-transform. Each makes one picture of another, or a band of its rows of the same band, and finds its kernel
// from the two; resampling and mapping see whole pictures.
#pragma once

#include "ipp/picture.h"
#include "kernels/base/kernel.h"
#include "tarn.h"

namespace tarn::ipp {

// What the steps of a call share.
struct Job {
    const TarnRANGE* range;
    uint32_t interpolation;
    k::Allocator scratch;
};

using StepFn = k::Status(const Job&, const LumoARRAY& to, const LumoARRAY& from);

// transform_steps.cpp
StepFn convert_elements, resample, map_range, copy_picture;
// transform_colour.cpp. For what they do not serve they have a status of their own.
inline constexpr k::Status kNoConverter = -9999;
StepFn change_colours, gather_planes, spread_planes;

// dst := op src by a kernel (null: kNoKernel) over so many pixels of each row. Where a stride is more than a kernel's 32 bits
// can say, row by row.
k::Status run_rows(const k::Kernel<k::Unary>* kernel, void* to, int64_t to_stride, const void* from,
                   int64_t from_stride, k::Size size);

constexpr bool fits_kernels(int64_t stride) { return stride == int32_t(stride); }

// Ends the process after a line in the log that names the line of the source: what can't be was asked for.
[[noreturn]] void unreachable(int line);
inline constexpr char kTransformSource[] = "amodules/tarn/src/ipp/im_copytrans";

}  // namespace tarn::ipp
