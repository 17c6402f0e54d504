// "tarn::scale-resize": a region resampled to the size of the destination, with a change of element kind on the way
// where the two arrays differ in it, and a value range afterwards where one is given.
#include "ipp/resize.h"

#include "ipp/convert.h"
#include "ipp/copy.h"
#include "ipp/mapping.h"
#include "ipp/operations.h"

namespace tarn::ipp {

const k::KernelSet<k::Resize>* resize_kernels(uint32_t interpolation, k::Size src) {
    const int32_t least = src.width < src.height ? src.width : src.height;
    switch (interpolation) {
        case TARN_NEAREST:
            return &k::resize_nearest_kernels;
        case TARN_LINEAR:
            return &k::resize_linear_kernels;
        case TARN_CUBIC_ALIAS:
        case TARN_CUBIC:
            return least < 4 ? &k::resize_linear_kernels : &k::resize_cubic_kernels;
        case TARN_LANCZOS:
            return least < 4   ? &k::resize_linear_kernels
                   : least < 6 ? &k::resize_cubic_kernels
                               : &k::resize_lanczos_kernels;
        default:
            return nullptr;
    }
}

namespace {

// Resamples a region of a source of dst's type to the whole of dst.
k::Status resize_plane(Context& context, const LumoMAT& dst, const LumoMAT& src, const LumoRECT& region,
                       uint32_t interpolation) {
    LumoMAT source = src;
    k::Region from{region.left, region.top, LumoRECTwidth(&region), LumoRECTheight(&region)};
    if (channels_of(dst.elemtype) == 2) {
        // Pairs of pixels, counted from the region's corner: at an odd x one pixel on the left belongs to none.
        source = part_of(src, {region.left & 1, 0, src.width, src.height});
        from.x /= 2;
        from.width /= 2;
    }
    const k::Size src_size = kernel_size(size_of(source), dst.elemtype);
    const auto* kernels = resize_kernels(interpolation, src_size);
    const auto* resize = kernels ? kPaired.find(*kernels, src.elemtype) : nullptr;
    if (!resize) return k::kNoKernel;
    return (*resize)(source.data, source.stride, src_size, from, dst.data, dst.stride,
                     kernel_size(size_of(dst), dst.elemtype), context.allocator());
}

// A single output of an axis lies in the middle of the pixels: those that no tap reaches are left out.
void keep_middle(int32_t* first, int32_t* end) {
    const int32_t surplus = (*end - *first - kMargin) / 2;
    if (surplus <= 0) return;
    *first += surplus;
    *end -= surplus;
}

// Converts the rows that the taps of so many outputs reach, of a region from row `top` on. In a strong shrink they are
// few.
k::Status convert_reached(const LumoMAT& to, const LumoMAT& from, int32_t top, int32_t height, int32_t outputs) {
    constexpr int32_t kReach = 4;  // rows on either side of an output's place
    if (int64_t(outputs) * 2 * kReach >= height) return convert_plane(to, from, size_of(to));
    int32_t done = 0;
    for (int32_t d = 0; d < outputs; ++d) {
        const int32_t place = top + int32_t((2 * int64_t(d) + 1) * height / (2 * int64_t(outputs)));
        const int32_t first = place - kReach > done ? place - kReach : done;
        done = place + kReach < to.height ? place + kReach : to.height;
        const LumoRECT rows{0, first, to.width, done};
        const LumoMAT part = part_of(to, rows);
        if (const k::Status status = convert_plane(part, part_of(from, rows), size_of(part))) return status;
    }
    return k::kOk;
}

// The same from a source of another element kind.
k::Status convert_and_resize(Context& context, const LumoMAT& dst, const LumoMAT& src, LumoRECT region,
                             uint32_t interpolation) {
    if (dst.width == 1 && channels_of(dst.elemtype) != 2) keep_middle(&region.left, &region.right);
    if (dst.height == 1) keep_middle(&region.top, &region.bottom);
    const LumoMAT part = part_of(src, with_neighbours(dst.elemtype, src, &region));
    Temporary converted;
    if (!converted.make(context, dst.elemtype, size_of(part))) return kNoTemporary;
    const k::Status status = convert_reached(converted.mat, part, region.top, LumoRECTheight(&region), dst.height);
    return status == k::kOk ? resize_plane(context, dst, converted.mat, region, interpolation) : status;
}

// A region of the destination's size: its values mapped where a range is given, else its elements converted, or of
// equal kinds every channel copied.
k::Status carry_region(Context& context, const LumoMAT& dst, const LumoMAT& region, const uint32_t* value_range) {
    if (value_range)
        return range_map_plane(context, dst, region, size_of(dst), __builtin_bit_cast(float, value_range[0]),
                               __builtin_bit_cast(float, value_range[1]));
    if (kind_of(region.elemtype) != kind_of(dst.elemtype)) return convert_plane(dst, region, size_of(dst));
    return packed_copy_plane(dst, region, size_of(dst));
}

}  // namespace

int64_t op_scaleresize(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage, LumoMAT* dst, const LumoMAT* src,
                       const LumoRECT* region, const uint32_t* value_range, uint32_t interpolation) {
    Context context(call, err, storage);
    if (channels_of(src->elemtype) != channels_of(dst->elemtype)) return report(context, k::kNoKernel);
    LumoRECT whole;
    _LumoARRroi(&whole, src);
    LumoRECT from = region ? *region : whole;
    LumoRECTintersecI(&from, &whole);

    const FloatState float_state;
    if (dst->width == LumoRECTwidth(&from) && dst->height == LumoRECTheight(&from))
        return report(context, carry_region(context, *dst, part_of(*src, from), value_range));
    const bool one_kind = kind_of(src->elemtype) == kind_of(dst->elemtype);
    const k::Status status = one_kind ? resize_plane(context, *dst, *src, from, interpolation)
                                      : convert_and_resize(context, *dst, *src, from, interpolation);
    if (status != k::kOk || !value_range) return report(context, status);
    return call_sibling(context, slot::op_cvtvrange_n, uint64_t(1), &dst, reinterpret_cast<const float*>(value_range));
}

}  // namespace tarn::ipp
