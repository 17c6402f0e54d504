// Linear mappings of values: by given scales and offsets, and of what an array or row holds to a value range.
#include "ipp/mapping.h"

#include "ipp/convert.h"
#include "ipp/operations.h"

namespace tarn::ipp {

k::Status range_map_plane(Context& context, const LumoMAT& dst, const LumoMAT& src, k::Size size, float lo, float hi) {
    const auto* map = kRanges.find(kRange, dst.elemtype, src.elemtype);
    if (!map) return k::kNoKernel;
    return (*map)(src.data, src.stride, dst.data, dst.stride, kernel_size(size, dst.elemtype), lo, hi,
                  context.allocator());
}

namespace {

k::Status scale_plane(Context& context, const LumoMAT& dst, const LumoMAT& src, const float* scale,
                      const float* offset) {
    const auto* map = kPaired.find(kScale, dst.elemtype, src.elemtype);
    if (!map) return k::kNoKernel;
    // A kernel of two channels sees two pixels as one of four.
    const int channels = channels_of(dst.elemtype);
    float scales[4], offsets[4];
    for (int c = 0; c < 4; ++c) {
        const int from = channels == 2 ? c % 2 : c;
        scales[c] = scale && from < channels ? scale[from] : 1.0f;
        offsets[c] = offset && from < channels ? offset[from] : 0.0f;
    }
    return (*map)(src.data, src.stride, dst.data, dst.stride, kernel_size(size_of(src), dst.elemtype), scales, offsets,
                  context.allocator());
}

// Whether the first n values are no further than the float epsilon from `wanted`; values that are absent are. NaN is
// not.
bool all_near(const float* values, int n, float wanted) {
    for (int c = 0; values && c < n; ++c)
        if (!(__builtin_fabsf(values[c] - wanted) <= k::kFlat)) return false;
    return true;
}

k::Status range_map_in_place(Context& context, const LumoMAT& plane, const float* range) {
    return range_map_plane(context, plane, plane, size_of(plane), range[0], range[1]);
}

}  // namespace

int64_t op_convscale(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage, LumoMAT* dst, const LumoMAT* src,
                     const float* scale, const float* offset) {
    if (!src) src = dst;
    Context context(call, err, storage);
    const int channels = channels_of(dst->elemtype);
    const FloatState float_state;
    if (!all_near(scale, channels, 1) || !all_near(offset, channels, 0))
        return report(context, scale_plane(context, *dst, *src, scale, offset));
    if (kind_of(src->elemtype) == kind_of(dst->elemtype) && src->data == dst->data) return 0;
    return report(context, convert_plane(*dst, *src, size_of(*src)));
}

int64_t op_cvtvrange_v(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage, LumoMAT* array, const float* range) {
    Context context(call, err, storage);
    const FloatState float_state;
    for (int32_t y = 0; y < array->height; ++y)
        if (range_map_in_place(context, part_of(*array, {0, y, array->width, y + 1}), range) == k::kNoMemory)
            return report(context, k::kNoMemory);
    return 0;
}

int64_t op_cvtvrange_n(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage, uint64_t n, LumoMAT* const* arrays,
                       const float* range) {
    Context context(call, err, storage);
    const FloatState float_state;
    for (uint64_t i = 0; i < n; ++i)
        if (range_map_in_place(context, *arrays[i], range) == k::kNoMemory) return report(context, k::kNoMemory);
    return int64_t(n);
}

}  // namespace tarn::ipp
