// Mirrors in place: two rows change places register by register, without a buffer, so each byte is read and written
// once.
#include "kernels/mirror/mirror.h"

#include "kernels/plane/plane.h"
#include "kernels/plane/store.h"

namespace tarn::k::TARN_LEVEL {
namespace {

void swap_rows(uint8_t* a, uint8_t* b, int64_t n) {
    if (n < kVector) {  // no vectors: parts of them would wait for each other
        uint8_t kept[kVector];
        copy_bytes(kept, a, n), copy_bytes(a, b, n), copy_bytes(b, kept, n);
        return;
    }
    // The last vectors overlap those before them, which must not have changed places yet.
    const Bytes last_a = load<Bytes>(a + n - kVector), last_b = load<Bytes>(b + n - kVector);
    for (int64_t i = 0; i < before_last(n); i += kVector) {
        const Bytes v = load<Bytes>(a + i);
        store(a + i, load<Bytes>(b + i)), store(b + i, v);
    }
    store(a + n - kVector, last_b), store(b + n - kVector, last_a);
}

Status mirror_rows(void* data, int32_t stride, Size size, int32_t axis, int64_t pixel_bytes) {
    if (Status s = check(size, data)) return s;
    if (axis != 0) return kBadArg;
    for (int64_t y = 0, last = int64_t(size.height) - 1; y < last - y; ++y)
        swap_rows(row<uint8_t>(data, stride, y), row<uint8_t>(data, stride, last - y), size.width * pixel_bytes);
    return kOk;
}

template <class T, Form kForm>
Status mirror(void* data, int32_t stride, Size size, int32_t axis) {
    return mirror_rows(data, stride, size, axis, channels(kForm) * int64_t(sizeof(T)));
}

}  // namespace

TARN_BODIES(mirror, Mirror, u8_s16_s32_s64, c1_c3_c4, mirror<T, kForm>)

}  // namespace tarn::k::TARN_LEVEL
