// Changes of the element kind: of a plane, and of a region with its neighbours.
#include "ipp/convert.h"

#include "ipp/copy.h"

namespace tarn::ipp {

bool converts(LumoELEMTYPE dst, LumoELEMTYPE src) { return kPaired.find(kConvert, dst, src); }

k::Status convert_plane(const LumoMAT& dst, const LumoMAT& src, k::Size size) {
    if (kind_of(src.elemtype) == kind_of(dst.elemtype)) return copy_plane(dst, src, size);
    const auto* convert = kPaired.find(kConvert, dst.elemtype, src.elemtype);
    if (!convert) return k::kNoKernel;
    return (*convert)(src.data, src.stride, dst.data, dst.stride, kernel_size(size, dst.elemtype));
}

k::Status convert_part(Context& context, Temporary* temporary, LumoELEMTYPE type, const LumoMAT& part) {
    if (!temporary->make(context, type, size_of(part))) return kNoTemporary;
    return convert_plane(temporary->mat, part, size_of(part));
}

LumoRECT with_neighbours(LumoELEMTYPE type, const LumoMAT& src, LumoRECT* region) {
    LumoRECT extended = *region;
    _LumoExtendROI(&extended, kMargin, kMargin, src.width, src.height);
    // Two channels are converted in pairs of pixels, from the extended region's left: the region must begin with one.
    if (channels_of(type) == 2) extended.left += (region->left - extended.left) & 1;
    _LumoRECTmovetoltI(region, region->left - extended.left, region->top - extended.top);
    return extended;
}

}  // namespace tarn::ipp
