// For the filter sources only: a filter's call as its loops see it. Rows are runs of elements in which a pixel's
// neighbours are `channels` elements apart, so channels are never taken apart.
#pragma once

#include "kernels/filter/filter.h"
#include "kernels/plane/plane.h"

namespace tarn::k::TARN_LEVEL {
namespace {

struct Window {
    const uint8_t* src;  // the first element under the first mask
    int64_t src_stride;
    uint8_t* dst;
    int64_t dst_stride;
    int64_t width, height;  // of the result, in elements and rows
    int64_t channels;
    int64_t columns, rows;  // of the mask
    int64_t reach;          // elements that a row of the source has more than one of the result
};

template <class T, Form kForm>
inline Window window_of(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size, Size mask,
                        Offset anchor) {
    constexpr int64_t kChannels = channels(kForm);
    return {row<uint8_t>(src, src_stride, -int64_t(anchor.y)) - anchor.x * kPixelBytes<T, kForm>,
            src_stride,
            static_cast<uint8_t*>(dst),
            dst_stride,
            size.width * kChannels,
            size.height,
            kChannels,
            mask.width,
            mask.height,
            (mask.width - 1) * kChannels};
}

inline Status check_filter(const void* src, void* dst, Size size, Size mask, Offset anchor) {
    if (Status s = check(size, src, dst)) return s;
    const bool inside = anchor.x >= 0 && anchor.x < mask.width && anchor.y >= 0 && anchor.y < mask.height;
    return inside ? kOk : kBadArg;
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
