// For the resize sources only: where outputs lie in the source, and what a call is made of.
#pragma once

#include "kernels/base/body.h"
#include "kernels/plane/plane.h"
#include "kernels/plane/scratch.h"
#include "kernels/resize/resize.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// The arguments of a call.
struct Job {
    const void* src;
    int32_t src_stride;
    Size src_size;
    Region region;
    void* dst;
    int32_t dst_stride;
    Size dst_size;
    const Allocator& allocator;
};

[[maybe_unused]] inline Status check(const Job& j) {
    if (Status s = check(j.src_size, j.src, j.dst)) return s;
    const Region& r = j.region;
    if (j.dst_size.width <= 0 || j.dst_size.height <= 0 || r.width <= 0 || r.height <= 0) return kBadSize;
    const bool inside =
        r.x >= 0 && r.y >= 0 && r.width <= j.src_size.width - r.x && r.height <= j.src_size.height - r.y;
    return inside ? kOk : kBadArg;
}

[[maybe_unused]] inline bool same_size(const Job& j) {
    return j.dst_size.width == j.region.width && j.dst_size.height == j.region.height;
}

[[maybe_unused]] inline bool halves(const Job& j) {
    return j.region.width == 2 * int64_t(j.dst_size.width) && j.region.height == 2 * int64_t(j.dst_size.height);
}

// Positions of consecutive outputs d on an axis that maps `from` source pixels to `to` outputs, relative to the
// region's first pixel: ((2d + 1) from - offset) / (2 to), as a whole number and a rest below `denominator`. offset 0
// gives (d + 0.5) / factor, offset `to` that less 0.5. All in integers, so no step loses anything: the product stays
// below 2^63.
struct Walk {
    int64_t whole, rest, step_whole, step_rest, denominator;

    Walk(int64_t from, int64_t to, int64_t offset, int64_t first)
        : step_whole(from / to), step_rest(2 * (from % to)), denominator(2 * to) {
        const int64_t at = (2 * first + 1) * from - offset;
        whole = at >= 0 ? at / denominator : -1;  // offset <= to: never below -1/2
        rest = at - whole * denominator;
    }
    void next() {
        whole += step_whole;
        rest += step_rest;
        if (rest >= denominator) {
            rest -= denominator;
            ++whole;
        }
    }
};

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
