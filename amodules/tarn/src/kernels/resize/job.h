// For the resize sources only: what a call is made of, and the door that all kernels go through.
#pragma once

#include "kernels/plane/plane.h"
#include "kernels/plane/scratch.h"
#include "kernels/plane/store.h"
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

    // Row y of the source, from the plane's left; row y of the destination.
    template <class T>
    const T* src_row(int64_t y) const {
        return row<T>(src, src_stride, y);
    }
    template <class T>
    T* dst_row(int64_t y) const {
        return row<T>(dst, dst_stride, y);
    }
    // The source's row nearest to row y, which is counted from the region's top.
    int64_t row_within(int64_t y) const { return clamp<int64_t>(region.y + y, 0, src_size.height - 1); }
};

inline Status check(const Job& j) {
    if (Status s = check(j.src_size, j.src, j.dst)) return s;
    const Region& r = j.region;
    if (j.dst_size.width <= 0 || j.dst_size.height <= 0 || r.width <= 0 || r.height <= 0) return kBadSize;
    const bool inside =
        r.x >= 0 && r.y >= 0 && r.width <= j.src_size.width - r.x && r.height <= j.src_size.height - r.y;
    return inside ? kOk : kBadArg;
}

inline bool halves_width(const Job& j) { return j.region.width == 2 * int64_t(j.dst_size.width); }
inline bool halves(const Job& j) { return halves_width(j) && j.region.height == 2 * int64_t(j.dst_size.height); }

template <class T, Form kForm>
Status copy_region(const Job& j) {
    const int64_t pixel_bytes = channels(kForm) * sizeof(T), n = j.dst_size.width * pixel_bytes;
    const Bytes mask = colour_mask<T>();
    for (int64_t y = 0; y < j.dst_size.height; ++y) {
        const uint8_t* s = j.src_row<uint8_t>(j.region.y + y) + j.region.x * pixel_bytes;
        uint8_t* d = j.dst_row<uint8_t>(y);
        if constexpr (kept(kForm))
            each_vector(n, [=](auto io, int64_t i) { store_form<true>(io, d + i, io.load(s + i), mask); });
        else
            memcpy(d, s, size_t(n));
    }
    return kOk;
}

// A kernel: checks its arguments, copies planes of equal size, and leaves others to kBody.
template <auto kBody, class T, Form kForm>
Status resize(const void* src, int32_t src_stride, Size src_size, Region region, void* dst, int32_t dst_stride,
              Size dst_size, const Allocator& allocator) {
    const Job j{src, src_stride, src_size, region, dst, dst_stride, dst_size, allocator};
    if (Status s = check(j)) return s;
    if (dst_size.width == region.width && dst_size.height == region.height) return copy_region<T, kForm>(j);
    return kBody(j);
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
