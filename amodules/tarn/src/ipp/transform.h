// The steps of copy-transform. Each makes a picture, or a band of its rows, of the same rows of another, resampling of
// all of it; and finds its kernel from the two.
#pragma once

#include "ipp/picture.h"
#include "kernels/base/kernel.h"
#include "tarn.h"

namespace tarn::ipp {

// How the values of a picture are mapped, and what they are known to be so far.
struct Mapping {
    const TarnRANGE* range;
    bool any = false;
    float smallest[4] = {}, largest[4] = {};
};

// What the steps of a picture share.
struct Job {
    const Mapping& mapping;
    uint32_t interpolation;
    k::Allocator scratch;
};

// The rows that a band is: from `top` on, of a picture of `height` rows.
struct Rows {
    int32_t top, height;
};

using StepFn = k::Status(const Job&, const LumoARRAY& to, const LumoARRAY& from, Rows rows);

// transform_steps.cpp
StepFn convert_elements, resample, copy_picture;
// transform_range.cpp. Mapping is by the values looked at before.
StepFn map_range;
k::Status look_at(Mapping& mapping, const LumoARRAY& part);
// The same in place, of a picture in pixels or planes.
k::Status map_in_place(const Job& job, const LumoARRAY& picture);
// transform_colour.cpp. For what they do not serve they have a status of their own.
inline constexpr k::Status kNoConverter = -9999;
StepFn change_colours, gather_planes, spread_planes;

// dst := op src by a kernel (null: kNoKernel) over so many pixels of each row. Where a stride is more than a kernel's
// 32 bits can say, row by row.
k::Status run_rows(const k::Kernel<k::Unary>* kernel, void* to, int64_t to_stride, const void* from,
                   int64_t from_stride, k::Size size);

constexpr bool fits_kernels(int64_t stride) { return stride == int32_t(stride); }

// Ends the process after a line in the log that names the line of the source: what can't be was asked for.
[[noreturn]] void unreachable(int line);
inline constexpr char kTransformSource[] = "amodules/tarn/src/ipp/im_copytrans";

}  // namespace tarn::ipp
