// Planes to pixels and back: a vector of each plane, interleaved in registers group by group.
#include "kernels/colour/blocks.h"
#include "kernels/colour/colour.h"
#include "kernels/plane/channels.h"

namespace tarn::k::TARN_LEVEL {
namespace {

template <class T, Form kForm>
struct Interleaved {
    static constexpr int kIn = channels(kForm), kOut = 1;
    static constexpr int64_t kPixels = kLanes<T>, kInBytes = sizeof(T), kOutBytes = kIn * sizeof(T);
    template <class Out>
    [[gnu::always_inline]] void operator()(const From<kIn>& s, const To<1>& d, Out out) const {
        Bytes v[kIn];
        for (int i = 0; i < kIn; ++i) v[i] = load<Bytes>(s.p[i]);
        interleave_groups<T>(v);
        store_pixels(out, d.p[0], v);
    }
};

template <class T, Form kForm>
struct Deinterleaved {
    static constexpr int kIn = 1, kOut = channels(kForm);
    static constexpr int64_t kPixels = kLanes<T>, kInBytes = kOut * sizeof(T), kOutBytes = sizeof(T);
    template <class Out>
    [[gnu::always_inline]] void operator()(const From<1>& s, const To<kOut>& d, Out out) const {
        Bytes v[kOut];
        load_pixels(s.p[0], v);
        deinterleave_groups<T>(v);
        for (int i = 0; i < kOut; ++i) out.vector(d.p[i], v[i]);
    }
};

template <class T, Form kForm>
Status interleave(const void* const planes[], int32_t src_stride, void* dst, int32_t dst_stride, Size size) {
    if (Status s = check(size, planes, dst)) return s;
    return map_pixels(planes, src_stride, &dst, dst_stride, size, Interleaved<T, kForm>{});
}
template <class T, Form kForm>
Status deinterleave(const void* src, int32_t src_stride, void* const planes[], int32_t dst_stride, Size size) {
    if (Status s = check(size, src, planes)) return s;
    return map_pixels(&src, src_stride, planes, dst_stride, size, Deinterleaved<T, kForm>{});
}

}  // namespace

TARN_BODIES(interleave, Interleave, u8_s16_s32, c3_c4, interleave<T, kForm>)
TARN_BODIES(deinterleave, Deinterleave, u8_s16_s32, c3_c4, deinterleave<T, kForm>)

}  // namespace tarn::k::TARN_LEVEL
