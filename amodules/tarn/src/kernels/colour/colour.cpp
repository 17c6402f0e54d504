// Plain bodies.
#include "kernels/colour/colour.h"

#include "kernels/plane/plane.h"
#include "kernels/simd/simd.h"

namespace tarn::k::TARN_LEVEL {
namespace {

template <class T>
Status grey_to_three(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size) {
    if (Status s = check(size, src, dst)) return s;
    for (int64_t y = 0; y < size.height; ++y) {
        const auto* s = row<Loose<T>>(src, src_stride, y);
        auto* d = row<Loose<T>>(dst, dst_stride, y);
        for (int64_t x = 0; x < size.width; ++x)
            for (int c = 0; c < 3; ++c) d[3 * x + c] = T(s[x]);
    }
    return kOk;
}

inline float grey(float r, float g, float b) { return settle_nan(r * 0.299f + g * 0.587f + b * 0.114f); }
template <class T>
inline T grey(T r, T g, T b) {
    const int64_t sum = 299 * int64_t(r) + 587 * int64_t(g) + 114 * int64_t(b) + 1000000000;
    const int64_t q = sum / 1000, rest = sum % 1000;
    return T(q + (rest + (q & 1) > 500) - 1000000);
}

template <class T, int kRed>
Status to_grey(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size) {
    if (Status s = check(size, src, dst)) return s;
    for (int64_t y = 0; y < size.height; ++y) {
        const auto* s = row<Loose<T>>(src, src_stride, y);
        auto* d = row<Loose<T>>(dst, dst_stride, y);
        for (int64_t x = 0; x < size.width; ++x)
            d[x] = grey(T(s[3 * x + kRed]), T(s[3 * x + 1]), T(s[3 * x + 2 - kRed]));
    }
    return kOk;
}

template <class T>
Status reverse_channels(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size) {
    if (Status s = check(size, src, dst)) return s;
    for (int64_t y = 0; y < size.height; ++y) {
        const auto* s = row<Loose<T>>(src, src_stride, y);
        auto* d = row<Loose<T>>(dst, dst_stride, y);
        for (int64_t x = 0; x < size.width; ++x) {
            const T a = s[3 * x], b = s[3 * x + 1], c = s[3 * x + 2];
            d[3 * x] = c, d[3 * x + 1] = b, d[3 * x + 2] = a;
        }
    }
    return kOk;
}

template <int kFrom, int kTo>
Status three_four(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size) {
    if (Status s = check(size, src, dst)) return s;
    for (int64_t y = 0; y < size.height; ++y) {
        const auto* s = row<uint8_t>(src, src_stride, y);
        auto* d = row<uint8_t>(dst, dst_stride, y);
        for (int64_t x = 0; x < size.width; ++x)
            for (int c = 0; c < kTo; ++c) d[kTo * x + c] = c < 3 ? s[kFrom * x + c] : 255;
    }
    return kOk;
}

template <class T, Form kForm>
Status interleave(const void* const planes[], int32_t src_stride, void* dst, int32_t dst_stride, Size size) {
    if (Status s = check(size, planes, dst)) return s;
    for (int c = 0; c < channels(kForm); ++c) {
        if (!planes[c]) return kNull;
        for (int64_t y = 0; y < size.height; ++y) {
            const auto* s = row<Loose<T>>(planes[c], src_stride, y);
            auto* d = row<Loose<T>>(dst, dst_stride, y);
            for (int64_t x = 0; x < size.width; ++x) d[channels(kForm) * x + c] = T(s[x]);
        }
    }
    return kOk;
}

template <class T, Form kForm>
Status deinterleave(const void* src, int32_t src_stride, void* const planes[], int32_t dst_stride, Size size) {
    if (Status s = check(size, src, planes)) return s;
    for (int c = 0; c < channels(kForm); ++c) {
        if (!planes[c]) return kNull;
        for (int64_t y = 0; y < size.height; ++y) {
            const auto* s = row<Loose<T>>(src, src_stride, y);
            auto* d = row<Loose<T>>(planes[c], dst_stride, y);
            for (int64_t x = 0; x < size.width; ++x) d[x] = T(s[channels(kForm) * x + c]);
        }
    }
    return kOk;
}

}  // namespace

TARN_BODIES(grey_to_three, Unary, u8_s16_s32, c3, grey_to_three<T>)
TARN_BODIES(rgb_to_grey, Unary, u8_s16_u16_f32, c3, to_grey<T, 0>)
TARN_BODIES(bgr_to_grey, Unary, u8_s16_u16_f32, c3, to_grey<T, 2>)
TARN_BODIES(reverse_channels, Unary, u8_s16_s32, c3, reverse_channels<T>)
TARN_BODIES(three_to_four, Unary, u8, c3, three_four<3, 4>)
TARN_BODIES(four_to_three, Unary, u8, c3, three_four<4, 3>)
TARN_BODIES(interleave, Interleave, u8_s16_s32, c3_c4, interleave<T, kForm>)
TARN_BODIES(deinterleave, Deinterleave, u8_s16_s32, c3_c4, deinterleave<T, kForm>)

}  // namespace tarn::k::TARN_LEVEL
