// Mirrors in place: two rows change places register by register, without a buffer, so each byte is read and written
// once.
#include "kernels/mirror/mirror.h"

#include "kernels/base/body.h"
#include "kernels/plane/plane.h"

namespace tarn::k::TARN_LEVEL {
namespace {

void swap_rows(uint8_t* TARN_RESTRICT a, uint8_t* TARN_RESTRICT b, int64_t n) {
    for (int64_t i = 0; i < n; ++i) {
        const uint8_t t = a[i];
        a[i] = b[i];
        b[i] = t;
    }
}

Status mirror(void* data, int32_t stride, Size size, int32_t axis, int64_t pixel_bytes) {
    if (Status s = check(size, data)) return s;
    if (axis != 0) return kBadArg;
    for (int64_t y = 0, last = int64_t(size.height) - 1; y < last - y; ++y)
        swap_rows(row<uint8_t>(data, stride, y), row<uint8_t>(data, stride, last - y), size.width * pixel_bytes);
    return kOk;
}

}  // namespace

#define MIRROR(name, pixel_bytes)                                      \
    Status name(void* data, int32_t stride, Size size, int32_t axis) { \
        return mirror(data, stride, size, axis, pixel_bytes);          \
    }
MIRROR(mirror_u8_c1, 1)
MIRROR(mirror_u8_c3, 3)
MIRROR(mirror_u8_c4, 4)
MIRROR(mirror_s16_c1, 2)
MIRROR(mirror_s16_c3, 6)
MIRROR(mirror_s16_c4, 8)
MIRROR(mirror_s32_c1, 4)
MIRROR(mirror_s32_c3, 12)
MIRROR(mirror_s32_c4, 16)
MIRROR(mirror_s64_c1, 8)
MIRROR(mirror_s64_c3, 24)
MIRROR(mirror_s64_c4, 32)
#undef MIRROR

}  // namespace tarn::k::TARN_LEVEL
