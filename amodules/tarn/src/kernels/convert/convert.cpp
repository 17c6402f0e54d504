// Plane conversions between element types. An element knows nothing of its channel, so one body serves every channel
// count; a fourth channel that stays is blended in as the vectors are stored.
#include "kernels/convert/convert.h"

#include "kernels/plane/blocks.h"

namespace tarn::k::TARN_LEVEL {
namespace {

template <class T>
constexpr bool kIsFloat = T(0.5f) != T(0);

template <class D>
struct Convert {
    static constexpr int kPeriod = 1;
    template <class S, class P>
    [[gnu::always_inline]] Block<D> operator()(const S* s, P) const {
        const auto at = [=](int vector) { return s + vector * kLanes<float>; };
        if constexpr (kIsFloat<S> || kIsFloat<D>)
            return round_to<D>(load_f32(at(0)), load_f32(at(1)), load_f32(at(2)), load_f32(at(3)));
        else if constexpr (sizeof(D) == 4)
            return {{(Bytes)load_s32(at(0)), (Bytes)load_s32(at(1)), (Bytes)load_s32(at(2)), (Bytes)load_s32(at(3))}};
        else if constexpr (sizeof(S) == 4)
            return pack<D>(load_s32(at(0)), load_s32(at(1)), load_s32(at(2)), load_s32(at(3)));
        else if constexpr (sizeof(D) == 2)
            return {{(Bytes)load_s16(at(0)), (Bytes)load_s16(at(2))}};
        else
            return {{in_order_once((Bytes)narrow_groups_u8(load<S16>(at(0)), load<S16>(at(2))))}};
    }
};

template <class S, class D, Form kForm>
Status convert(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size) {
    if (Status s = check(size, src, dst)) return s;
    alignas(64) D strip[kStrip];
    const bool streamed = streams_blocks<kept(kForm), S, D>(src, dst, size, channels(kForm));
    map_blocks<kept(kForm), S>(src, src_stride, dst, dst_stride, size, channels(kForm), streamed ? strip : nullptr,
                               Convert<D>{});
    return kOk;
}

}  // namespace

TARN_BODIES(convert_u8, Unary, s16_s32_f32, c1_c3_c4_c3x, convert<uint8_t, T, kForm>)
TARN_BODIES(convert_s16, Unary, u8_s32_f32, c1_c3_c4_c3x, convert<int16_t, T, kForm>)
TARN_BODIES(convert_s32, Unary, u8_s16_f32, c1_c3_c4_c3x, convert<int32_t, T, kForm>)
TARN_BODIES(convert_f32, Unary, u8_s16_s32, c1_c3_c4_c3x, convert<float, T, kForm>)

}  // namespace tarn::k::TARN_LEVEL
