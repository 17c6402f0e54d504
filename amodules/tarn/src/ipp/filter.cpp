// "tarn::filter": rectangular neighbourhood filters. The kernels read every pixel under the mask, so where the source
// has none around the region, or is to be overwritten, the region comes with a border in a temporary.
#include "kernels/filter/filter.h"

#include "ipp/operations.h"

namespace tarn::ipp {
namespace {

const k::KernelSet<k::Filter>* kernels_of(uint32_t kind) {
    switch (kind) {
        case TARN_FILTER_BOX_ALIAS:
        case TARN_FILTER_BOX:
            return &k::box_kernels;
        case TARN_FILTER_MIN:
            return &k::filter_min_kernels;
        case TARN_FILTER_MAX:
            return &k::filter_max_kernels;
        case TARN_FILTER_MEDIAN:
            return &k::median_kernels;
        default:
            return nullptr;
    }
}

// A mask along one axis.
struct Span {
    int32_t size, anchor;
    bool valid() const { return size >= 1 && anchor >= 0 && anchor < size; }
    // How far a border reaches on either side.
    int64_t border() const { return anchor > size - anchor ? anchor : size - anchor; }
    // The same of a mask that counts pairs of pixels, which is as far as it can reach: two of them for each cell.
    int64_t border_of_pairs() const { return 2 * int64_t(anchor > size - 1 - anchor ? anchor : size - 1 - anchor); }
};

// How far a border reaches around a region: on the left and on the right, above and below.
struct Reach {
    int64_t x, y;
};

// The region with its border as a temporary: copied, where the source has it, or else of the region's nearest pixels.
// Returns the copy's result.
int64_t make_bordered(Context& context, Temporary* temporary, LumoELEMTYPE type, const LumoMAT& source,
                      const LumoRECT& region, Reach reach, bool from_source) {
    const int64_t width = LumoRECTwidth(&region) + 2 * reach.x, height = LumoRECTheight(&region) + 2 * reach.y;
    if (width > INT32_MAX || height > INT32_MAX || !temporary->make(context, type, {int32_t(width), int32_t(height)}))
        return report(context, kNoTemporary);
    const int32_t x = int32_t(reach.x), y = int32_t(reach.y);
    if (from_source) {
        LumoRECT extended = region;
        _LumoRECTextendI(&extended, x, y);
        const LumoMAT part = part_of(source, extended);
        return call_sibling(context, slot::op_copy, &temporary->mat, &part);
    }
    // The sibling counts the left border of two channels in pairs; what the left does not take goes to the right.
    const int32_t left = channels_of(type) == 2 ? x / 2 : x;
    const TarnBORDER border{left, y, 2 * x - left, y, {}};
    const LumoMAT part = part_of(source, region);
    return call_sibling(context, slot::op_copymkb, &temporary->mat, &part, uint32_t(TARN_BORDER_REPLICATE), &border);
}

}  // namespace

int64_t op_filter(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage, LumoMAT* dst, const LumoMAT* src,
                  const LumoRECT* region, uint32_t kind, const TarnMASK* mask) {
    Context context(call, err, storage);
    const auto* kernels = kernels_of(kind);
    if (!kernels) return 0;  // deliberate: an unknown kind filters nothing and is no error
    const LumoELEMTYPE type = dst->elemtype;
    const auto* kernel = kPaired.find(*kernels, type);
    LumoMAT source = src ? *src : *dst;
    if (!kernel || !same_type(type, source.elemtype)) return report(context, k::kNoKernel);
    const Span columns = mask ? Span{int32_t(mask->width), int32_t(mask->anchor_x)} : Span{3, 1};
    const Span rows = mask ? Span{int32_t(mask->height), int32_t(mask->anchor_y)} : Span{3, 1};
    if (!columns.valid() || !rows.valid()) return report(context, k::kBadArg);
    LumoRECT from;
    _LumoARRroi(&from, &source);
    if (region) from = *region;
    const k::Size size{LumoRECTwidth(&from), LumoRECTheight(&from)};
    if (LumoRECTnull(&from) || !lies_in(from, source) || size.width > dst->width || size.height > dst->height)
        return report(context, k::kBadSize);

    const Reach reach{channels_of(type) == 2 ? columns.border_of_pairs() : columns.border(), rows.border()};
    // Neighbours are looked for as far as of one channel, also where a mask of one pair does not reach so far.
    const int64_t room = reach.x > columns.border() ? reach.x : columns.border();
    const bool fits = room <= from.left && reach.y <= from.top && room <= source.width - from.right &&
                      reach.y <= source.height - from.bottom;
    const LumoMAT written{dst->cls, type, size.width, size.height, dst->stride, dst->data};
    int64_t result = 0;
    Temporary bordered;
    if (!src || src == dst || !fits || !apart(written, source)) {
        result = make_bordered(context, &bordered, type, source, from, reach, region && fits);
        if (result < 0) return result;
        source = bordered.mat;
        _LumoRECTmovetoltI(&from, int32_t(reach.x), int32_t(reach.y));
    }
    const FloatState float_state;
    const k::Status status =
        (*kernel)(part_of(source, from).data, source.stride, dst->data, dst->stride, kernel_size(size, type),
                  {columns.size, rows.size}, {columns.anchor, rows.anchor}, context.allocator());
    return status == k::kOk ? result : report(context, status);
}

}  // namespace tarn::ipp
