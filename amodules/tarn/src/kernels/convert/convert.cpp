// Plane conversions between element types. An element knows nothing of its channel, so one body serves every channel
// count; the c3x forms convert strips into a buffer and blend whole pixels from there. Loops from integers are plain:
// what one element becomes (saturate.h) is written so that they turn into vectors. Large outputs go past the cache by
// way of a buffer.
#include "kernels/convert/convert.h"

#include "kernels/base/body.h"
#include "kernels/plane/plane.h"
#include "kernels/simd/saturate.h"
#include "kernels/simd/stream.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Elements of a strip: small enough to stay in the nearest cache with its source.
constexpr int64_t kStrip = 1024;

template <class S, class D>
void convert_row(const S* s, D* d, int64_t n) {
    for (int64_t i = 0; i < n; ++i) d[i] = saturate<D, S>(s[i]);
}
// From floats, the plain loop takes three times as long: rounding by an addition, and no narrowing stores.
template <class D>
void convert_row(const float* s, D* d, int64_t n) {
    constexpr int64_t kFloats = kLanes<float>;
    int64_t i = 0;
    for (; i + kVector <= n; i += kVector) {
        const auto at = [&](int part) { return load<F32>(s + i + part * kFloats); };
        store(d + i, round_to<D>(at(0), at(1), at(2), at(3)));
    }
    for (; i < n; ++i) d[i] = saturate<D, float>(s[i]);
}

// The same past the cache, from the first whole cache line on.
template <class S, class D>
void convert_row_streamed(const S* s, D* d, int64_t n) {
    alignas(64) D buffer[kStrip];
    const int64_t to_line = int64_t(-reinterpret_cast<intptr_t>(d) & 63) / int64_t(sizeof(D));
    for (int64_t i = 0, count = min(n, to_line); i < n; i += count, count = min(kStrip, n - i)) {
        convert_row(s + i, buffer, count);
        stream_row(d + i, buffer, count * int64_t(sizeof(D)));
    }
}

template <class S, class D, int kChannels>
Status convert(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size) {
    if (Status s = check(size, src, dst)) return s;
    const int64_t elements = int64_t(size.width) * kChannels;
    const bool packed = src_stride == elements * int64_t(sizeof(S)) && dst_stride == elements * int64_t(sizeof(D));
    const Rows rows = packed ? Rows{1, elements * size.height} : Rows{size.height, elements};
    const bool streamed = streams(rows.count * rows.length * int64_t(sizeof(D)));
    for (int64_t y = 0; y < rows.count; ++y) {
        const S* s = row<S>(src, src_stride, y);
        D* d = row<D>(dst, dst_stride, y);
        if (streamed)
            convert_row_streamed(s, d, rows.length);
        else
            convert_row(s, d, rows.length);
    }
    if (streamed) stream_fence();
    return kOk;
}

template <class S, class D>
Status convert_c3x(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size) {
    if (Status s = check(size, src, dst)) return s;
    alignas(64) D buffer[kStrip];
    for (int64_t y = 0; y < size.height; ++y) {
        const S* s = row<S>(src, src_stride, y);
        D* d = row<D>(dst, dst_stride, y);
        for (int64_t x = 0; x < size.width; x += kStrip / 4) {
            const int64_t n = min<int64_t>(kStrip / 4, size.width - x);
            convert_row(s + 4 * x, buffer, 4 * n);
            blend_c3x(buffer, d + 4 * x, n);
        }
    }
    return kOk;
}

}  // namespace

#define CONVERT(S, s, D, d)                                                                                      \
    Status convert_##s##_##d##_c1(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size n) {  \
        return convert<S, D, 1>(src, src_stride, dst, dst_stride, n);                                            \
    }                                                                                                            \
    Status convert_##s##_##d##_c3(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size n) {  \
        return convert<S, D, 3>(src, src_stride, dst, dst_stride, n);                                            \
    }                                                                                                            \
    Status convert_##s##_##d##_c4(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size n) {  \
        return convert<S, D, 4>(src, src_stride, dst, dst_stride, n);                                            \
    }                                                                                                            \
    Status convert_##s##_##d##_c3x(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size n) { \
        return convert_c3x<S, D>(src, src_stride, dst, dst_stride, n);                                           \
    }
CONVERT(uint8_t, u8, int16_t, s16)
CONVERT(uint8_t, u8, int32_t, s32)
CONVERT(uint8_t, u8, float, f32)
CONVERT(int16_t, s16, uint8_t, u8)
CONVERT(int16_t, s16, int32_t, s32)
CONVERT(int16_t, s16, float, f32)
CONVERT(int32_t, s32, uint8_t, u8)
CONVERT(int32_t, s32, int16_t, s16)
CONVERT(int32_t, s32, float, f32)
CONVERT(float, f32, uint8_t, u8)
CONVERT(float, f32, int16_t, s16)
CONVERT(float, f32, int32_t, s32)
#undef CONVERT

}  // namespace tarn::k::TARN_LEVEL
