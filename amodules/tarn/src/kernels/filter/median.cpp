// The median under a rectangular mask: small ones by networks; other masks of bytes by counts of their values, at a
// cost that does not depend on the mask's size; those of 16-bit elements by counts of their ranks in a tile, at one
// that grows slowly from masks on that are large beside a tile.
#include "kernels/filter/filter.h"
#include "kernels/filter/median_counts.h"
#include "kernels/filter/median_ranks.h"
#include "kernels/filter/median_small.h"
#include "kernels/plane/plane.h"

namespace tarn::k::TARN_LEVEL {
namespace {

template <class T, Form kForm>
Status median(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size, Size mask, Offset anchor,
              const Allocator& allocator) {
    if (Status s = check(size, src, dst)) return s;
    if (mask.width <= 0 || mask.height <= 0 || anchor.x < 0 || anchor.x >= mask.width || anchor.y < 0 ||
        anchor.y >= mask.height)
        return kBadArg;
    const uint8_t* corner = row<uint8_t>(src, src_stride, -anchor.y) - anchor.x * kPixelBytes<T, kForm>;
    if (median_small<T, kForm>(corner, src_stride, dst, dst_stride, size, mask)) return kOk;
    const int64_t area = int64_t(mask.width) * mask.height;
    const bool small = area <= SmallCounts::kMostArea && mask.height <= SmallCounts::kMostHigh;
    const auto counted = [&] {
        if constexpr (sizeof(T) == 1)
            return small ? median_counted<SmallCounts> : median_counted<LargeCounts>;
        else if (small)
            return mask.width <= 128 ? median_ranked<uint8_t, SmallCounts> : median_ranked<uint16_t, SmallCounts>;
        else
            return mask.width <= 16384 ? median_ranked<uint16_t, LargeCounts> : median_ranked<uint32_t, LargeCounts>;
    }();
    return counted(corner, src_stride, dst, dst_stride, size, mask, kPixelBytes<T, kForm>, used(kForm), (area - 1) / 2,
                   allocator);
}

}  // namespace

TARN_BODIES(median, Filter, u8_s16, c1_c3_c4_c3x, median<T, kForm>)

}  // namespace tarn::k::TARN_LEVEL
