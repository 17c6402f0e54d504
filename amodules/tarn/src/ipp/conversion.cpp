// Value conversion: element types, linear mappings and value ranges.
#include "ipp/conversion.h"

#include "ipp/elementwise.h"
#include "ipp/operations.h"
#include "kernels/mapping/mapping.h"

namespace k = tarn::k;

// One line per source kind; a pair of kinds has 1, 2, 3 channels, four, three of four. Two-channel pixels go in pairs,
// as one of four.
#define PAIR(kernel) &k::kernel##_c1, &k::kernel##_c4, &k::kernel##_c3, &k::kernel##_c4, &k::kernel##_c3x
#define NONE nullptr, nullptr, nullptr, nullptr, nullptr
constexpr PairTable<k::Unary> kConvert = {{
    PAIR(copy_u8),
    PAIR(convert_u8_s16),
    PAIR(convert_u8_s32),
    NONE,
    PAIR(convert_u8_f32),
    PAIR(convert_s16_u8),
    PAIR(copy_s16),
    PAIR(convert_s16_s32),
    NONE,
    PAIR(convert_s16_f32),
    PAIR(convert_s32_u8),
    PAIR(convert_s32_s16),
    PAIR(copy_s32),
    NONE,
    PAIR(convert_s32_f32),
    NONE,
    NONE,
    NONE,
    NONE,
    NONE,
    PAIR(convert_f32_u8),
    PAIR(convert_f32_s16),
    PAIR(convert_f32_s32),
    NONE,
    PAIR(copy_s32),
}};

constexpr PairTable<k::ScaleMap> kScale = {{
    PAIR(scale_u8_u8),
    PAIR(scale_u8_s16),
    NONE,
    NONE,
    PAIR(scale_u8_f32),
    PAIR(scale_s16_u8),
    PAIR(scale_s16_s16),
    NONE,
    NONE,
    PAIR(scale_s16_f32),
    NONE,
    NONE,
    NONE,
    NONE,
    NONE,
    NONE,
    NONE,
    NONE,
    NONE,
    NONE,
    PAIR(scale_f32_u8),
    PAIR(scale_f32_s16),
    NONE,
    NONE,
    PAIR(scale_f32_f32),
}};
#undef PAIR

// Two channels in pairs of pixels have a range each, so they need a kernel of their own.
#define PAIR(kernel) &k::kernel##_c1, &k::kernel##_c2, &k::kernel##_c3, &k::kernel##_c4, &k::kernel##_c3x
constexpr PairTable<k::RangeMap> kRange = {{
    PAIR(range_u8_u8),
    PAIR(range_u8_s16),
    NONE,
    NONE,
    PAIR(range_u8_f32),
    PAIR(range_s16_u8),
    PAIR(range_s16_s16),
    NONE,
    NONE,
    PAIR(range_s16_f32),
    NONE,
    NONE,
    NONE,
    NONE,
    NONE,
    NONE,
    NONE,
    NONE,
    NONE,
    NONE,
    PAIR(range_f32_u8),
    PAIR(range_f32_s16),
    NONE,
    NONE,
    PAIR(range_f32_f32),
}};
#undef PAIR
#undef NONE

k::Status convert_plane(int src_kind, int dst_kind, int form, const void* src, int32_t src_stride, void* dst,
                        int32_t dst_stride, k::Size size) {
    const auto* convert = kConvert.find(src_kind, dst_kind, form);
    if (!convert) return k::kNoKernel;
    if (form == 2) size.width /= 2;
    return (*convert)(src, src_stride, dst, dst_stride, size);
}

k::Status range_map_plane(Storage& storage, QuelERR* err, int src_kind, int dst_kind, int form, const void* src,
                          int32_t src_stride, void* dst, int32_t dst_stride, k::Size size, float lo, float hi) {
    const auto* range = kRange.find(src_kind, dst_kind, form);
    if (!range) return k::kNoKernel;
    if (form == 2) size.width /= 2;
    KaSMEMSTG* scratch = storage.get(err);
    if (!scratch) return k::kNoMemory;
    return (*range)(src, src_stride, dst, dst_stride, size, lo, hi, kernel_allocator(scratch));
}

namespace {

// Whether the first n values are no further than the float epsilon from `wanted`; values that are absent are. NaN is
// not.
bool all_near(const float* values, int n, float wanted) {
    for (int c = 0; values && c < n; ++c)
        if (!(__builtin_fabsf(values[c] - wanted) <= k::kFlat)) return false;
    return true;
}

k::Status scale_plane(Storage& storage, QuelERR* err, const LumoMAT& dst, const LumoMAT& src, const float* scale,
                      const float* offset) {
    const int form = form_of(dst.elemtype), channels = channels_of(dst.elemtype);
    const auto* map = kScale.find(kind_of(src.elemtype), kind_of(dst.elemtype), form);
    if (!map) return k::kNoKernel;
    KaSMEMSTG* scratch = storage.get(err);
    if (!scratch) return k::kNoMemory;
    // A kernel of two channels sees two pixels as one of four.
    float scales[4], offsets[4];
    for (int c = 0; c < 4; ++c) {
        const int from = channels == 2 ? c % 2 : c;
        scales[c] = scale && from < channels ? scale[from] : 1.0f;
        offsets[c] = offset && from < channels ? offset[from] : 0.0f;
    }
    return (*map)(src.data, src.stride, dst.data, dst.stride, {kernel_width(src.width, dst.elemtype), src.height},
                  scales, offsets, kernel_allocator(scratch));
}

k::Status stretch(Storage& storage, QuelERR* err, const LumoMAT& array, void* data, k::Size size, const float* range) {
    const int kind = kind_of(array.elemtype);
    return range_map_plane(storage, err, kind, kind, form_of(array.elemtype), data, array.stride, data, array.stride,
                           size, range[0], range[1]);
}

}  // namespace

// "tarn::convert-scale": dst := src x scale + offset per channel, in float, each step rounded; converted to dst's kind.
//   dst            its channel count is that of both; the fourth channel of four stays
//   src            its size is that of both; null: dst itself
//   scale, offset  a float a channel (four for four channels); null: 1 and 0
// Kinds u8, s16, f32; where scale and offset are 1 and 0 to the float epsilon, nothing is computed and s32 (and u32 to
// itself) serve too. Returns 0, or -1 after an error value: a pair of kinds or a size that is not served, out of
// memory.
int64_t op_convscale(const QuelCALL* call, QuelERR* err, KaSMEMSTG* given, LumoMAT* dst, const LumoMAT* src,
                     const float* scale, const float* offset) {
    if (!src) src = dst;
    const int from = kind_of(src->elemtype), to = kind_of(dst->elemtype), channels = channels_of(dst->elemtype);
    const FloatState float_state;
    if (!all_near(scale, channels, 1) || !all_near(offset, channels, 0)) {
        Storage storage(given);
        return report(call, err, scale_plane(storage, err, *dst, *src, scale, offset), kTextTypes);
    }
    if (from == to && src->data == dst->data) return 0;
    const k::Size size{src->width, src->height};
    const auto move =
        from == to
            ? copy_plane(to, form_of(dst->elemtype), src->data, src->stride, dst->data, dst->stride, size)
            : convert_plane(from, to, form_of(dst->elemtype), src->data, src->stride, dst->data, dst->stride, size);
    return report(call, err, move, kTextTypes);
}

// "tarn::cvtvrange-v": stretches each row of an array, by its own smallest and largest values, to lo..hi, in place.
//   array  u8, s16 or f32; any other is left as it is
//   range  lo, hi
// Returns 0, or -1 after an error value when memory is out; the rows above are stretched by then.
int64_t op_cvtvrange_v(const QuelCALL* call, QuelERR* err, KaSMEMSTG* given, LumoMAT* array, const float* range) {
    Storage storage(given);
    const FloatState float_state;
    for (int32_t y = 0; y < array->height; ++y)
        if (stretch(storage, err, *array, pixel_at(*array, 0, y, 0), {array->width, 1}, range) == k::kNoMemory)
            return report(call, err, k::kNoMemory, kTextTypes);
    return 0;
}

// "tarn::cvtvrange-n": stretches each of n arrays as a whole to lo..hi, in place.
//   arrays  u8, s16 or f32; any other is left as it is
//   range   lo, hi
// Returns n, or -1 after an error value when memory is out; the arrays before are stretched by then.
int64_t op_cvtvrange_n(const QuelCALL* call, QuelERR* err, KaSMEMSTG* given, uint64_t n, LumoMAT* const* arrays,
                       const float* range) {
    Storage storage(given);
    const FloatState float_state;
    for (uint64_t i = 0; i < n; ++i) {
        const LumoMAT& array = *arrays[i];
        if (stretch(storage, err, array, array.data, {array.width, array.height}, range) == k::kNoMemory)
            return report(call, err, k::kNoMemory, kTextTypes);
    }
    return int64_t(n);
}
