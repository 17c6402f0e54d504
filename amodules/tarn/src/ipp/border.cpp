// "tarn::copymkb": an array in the middle of a larger one, with a border around it.
#include "kernels/border/border.h"

#include "ipp/constants.h"
#include "ipp/operations.h"

namespace tarn::ipp {
namespace {

constexpr char kTextBorder[] = "@src(.elem-type, .nchannels) -> @dst(.elem-type, .nchannels), @border-type";

// The constants as the kernels read them; a pair of channels stands for the two pixels of a pair.
Constants constants_of(const TarnBORDER& border, LumoELEMTYPE type) {
    const FloatState float_state;
    const int n = k::used(kBorders.form(type));
    float values[4];
    for (int i = 0; i < n; ++i) values[i] = border.values[channels_of(type) == 2 ? i % 2 : i];
    return floored(kTyped.type(type), n, values);
}

k::Status make_border(const LumoMAT& dst, const LumoMAT& src, uint32_t kind, const TarnBORDER& border) {
    const LumoELEMTYPE type = dst.elemtype;
    const auto* replicate = kBorders.find(k::border_replicate_kernels, type);
    const auto* constant = kBorders.find(k::border_constant_kernels, type);
    if (!replicate || !constant || !same_type(type, src.elemtype)) return k::kNoKernel;
    if (border.left < 0 || border.top < 0) return k::kBadArg;
    const int64_t width = int64_t(src.width) + border.left + (border.right < 0 ? border.left : border.right);
    const int64_t height = int64_t(src.height) + border.top + (border.bottom < 0 ? border.top : border.bottom);
    if (width > dst.width || height > dst.height) return k::kBadSize;

    // In the kernels' pixels, which for two channels are pairs: only the widths are halved, deliberately.
    const k::Size from = kernel_size(size_of(src), type), to = kernel_size({int32_t(width), int32_t(height)}, type);
    const k::Offset corner{border.left, border.top};
    if (kind == TARN_BORDER_CONSTANT)
        return (*constant)(src.data, src.stride, from, dst.data, dst.stride, to, corner,
                           constants_of(border, type).bytes);
    if (kind == 2 || (kind >= TARN_BORDER_REPLICATE && kind <= 8))
        return (*replicate)(src.data, src.stride, from, dst.data, dst.stride, to, corner);
    return k::kBadArg;
}

}  // namespace

int64_t op_copymkb(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage, LumoMAT* dst, const LumoMAT* src,
                   uint32_t kind, const TarnBORDER* border) {
    Context context(call, err, storage);
    if (src && border) return report(context, make_border(*dst, *src, kind, *border), kTextBorder);
    if (!src || src->data == dst->data) return 0;
    return call_sibling(context, slot::op_copy, dst, src);
}

}  // namespace tarn::ipp
