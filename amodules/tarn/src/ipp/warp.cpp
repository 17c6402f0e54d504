// "tarn::warp-affine" and "tarn::warp-affine-quad": affine warps, by coefficients and by corners. The kernels have one
// element kind for source and destination; a source of another kind is converted first, as far as it is needed.
#include "kernels/warp/quad.h"

#include "ipp/convert.h"
#include "ipp/operations.h"

namespace tarn::ipp {
namespace {

const k::KernelSet<k::Warp>* kernels_of(uint32_t interpolation) {
    switch (interpolation) {
        case TARN_NEAREST:
            return &k::warp_nearest_kernels;
        case TARN_LINEAR:
            return &k::warp_linear_kernels;
        case TARN_CUBIC_ALIAS:
        case TARN_CUBIC:
            return &k::warp_cubic_kernels;
        case TARN_LANCZOS:
            return &k::warp_lanczos_kernels;
        default:
            return nullptr;
    }
}

// A warp's destination and source, and the kernel that serves them.
struct Planes {
    LumoMAT dst, src;
    const k::Kernel<k::Warp>* kernel;
    bool convert;
};

// Refuses types and interpolations that have no kernel, and planes without pixels: whether anything is mapped does not
// matter. The source's elements are pixels of as many channels as the destination has, deliberately: its own must
// only be no fewer.
k::Status prepare(Planes& p, const LumoMAT& dst, const LumoMAT& src, uint32_t interpolation) {
    const auto* kernels = kernels_of(interpolation);
    p = {dst, src, kernels ? kPaired.find(*kernels, dst.elemtype) : nullptr,
         kind_of(dst.elemtype) != kind_of(src.elemtype)};
    p.src.elemtype = (src.elemtype & 0xfff) | (dst.elemtype & 0xf000);
    if (!p.kernel || channels_of(src.elemtype) < channels_of(dst.elemtype)) return k::kNoKernel;
    if (p.convert && !converts(dst.elemtype, src.elemtype)) return k::kNoKernel;
    for (const LumoMAT& mat : {dst, src})
        if (kernel_size(size_of(mat), dst.elemtype).width <= 0 || mat.height <= 0) return k::kBadSize;
    return k::kOk;
}

// A matrix in the kernels' pixels: of two channels these are pairs, in rectangles, warps and quadrangles alike.
LumoRECT whole_of(const LumoMAT& mat) {
    const k::Size size = kernel_size(size_of(mat), mat.elemtype);
    return {0, 0, size.width, size.height};
}
LumoMAT part_in_pairs(const LumoMAT& mat, LumoRECT part) {
    if (channels_of(mat.elemtype) == 2) part.left *= 2, part.right *= 2;
    return part_of(mat, part);
}

// Warps all of a source of dst's kind into a rectangle of dst.
k::Status warp_plane(const Planes& p, const LumoMAT& src, const LumoRECT& to, const LumoAWARP& m) {
    const k::Size size = kernel_size(size_of(src), p.dst.elemtype);
    return (*p.kernel)(src.data, src.stride, size, {0, 0, size.width, size.height}, p.dst.data, p.dst.stride,
                       {to.left, to.top, LumoRECTwidth(&to), LumoRECTheight(&to)}, {m.a, m.b, m.tx, m.c, m.d, m.ty});
}

// The same from a source of another kind: the part of it that lands in dst is converted, with its neighbours.
k::Status convert_and_warp(Context& context, const Planes& p, const LumoAWARP& warp) {
    const LumoRECT from = whole_of(p.src), to = whole_of(p.dst);
    LumoAWARP inverse;
    if (_LumoAWARPback(&inverse, &warp) != 0) return k::kBadArg;
    LumoRECT landing, needed;
    _LumoAWARPrect(&landing, &from, &warp);
    LumoRECTintersecI(&landing, &to);
    if (LumoRECTnull(&landing)) return k::kNothingMapped;
    _LumoAWARPrect(&needed, &landing, &inverse);
    _LumoRECTextendI(&needed, kMargin, kMargin);
    LumoRECTintersecI(&needed, &from);
    if (LumoRECTnull(&needed)) return k::kNothingMapped;

    LumoAWARP from_part;
    _LumoAWARPshift(&from_part, needed.left, needed.top);
    _LumoAWARPaddI(&from_part, &warp);
    Temporary converted;
    const k::Status status = convert_part(context, &converted, p.dst.elemtype, part_in_pairs(p.src, needed));
    return status == k::kOk ? warp_plane(p, converted.mat, landing, from_part) : status;
}

// A plane in a call's scratch memory that is no matrix of the host's; goes back to the caller's storage.
struct Buffer {
    ~Buffer() {
        if (mat.data && storage) KaSMEMSTGfree(storage, mat.data);
    }
    bool make(Context& context, LumoELEMTYPE type, k::Size size) {
        const int64_t stride = pixel_bytes(type) * size.width;
        KaSMEMSTG* payer = context.storage();
        if (!payer || stride > INT32_MAX) return false;
        storage = context.own.opened ? nullptr : payer;
        mat = {nullptr, type, size.width, size.height, int32_t(stride), nullptr};
        mat.data = KaSMEMSTGaalloc(payer, uint64_t(stride) * uint64_t(size.height), 16, 0, context.err);
        return mat.data != nullptr;
    }
    LumoMAT mat = {};
    KaSMEMSTG* storage = nullptr;
};

// The quadrangle as given, or the corners of a matrix.
k::Quad quad_of(const TarnQUAD* given, const LumoMAT& mat) {
    if (given) return __builtin_bit_cast(k::Quad, *given);
    const double right = mat.width - 1.0, bottom = mat.height - 1.0;
    return {{{0, 0}, {right, 0}, {right, bottom}, {0, bottom}}};
}

k::Status warp_quad(Context& context, const Planes& p, const k::Quad& from, const k::Quad& to) {
    k::Affine m;
    const k::Status fit = k::warp_of(from, to, m);
    if (fit < k::kOk) return fit;
    Buffer converted;
    if (p.convert) {
        const k::Size size = size_of(p.src);
        if (!converted.make(context, p.dst.elemtype, size)) return kNoTemporary;
        const k::Status status = convert_plane(converted.mat, p.src, size);
        if (status != k::kOk) return status;
    }
    const k::Status status =
        warp_plane(p, p.convert ? converted.mat : p.src, whole_of(p.dst), {m.a, m.b, m.tx, m.c, m.d, m.ty});
    return status == k::kOk ? fit : status;
}

}  // namespace

int64_t op_warpaffine(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage, LumoMAT* dst, const LumoMAT* src,
                      const LumoAWARP* warp, uint32_t interpolation) {
    if (src->width == 0 || src->height == 0) return 0;
    Context context(call, err, storage);
    const FloatState float_state;
    Planes planes;
    k::Status status = prepare(planes, *dst, *src, interpolation);
    if (status == k::kOk)
        status = planes.convert ? convert_and_warp(context, planes, *warp)
                                : warp_plane(planes, planes.src, whole_of(*dst), *warp);
    if (status == k::kNothingMapped) return 0;
    return status == k::kOk ? 1 : report(context, status);
}

int64_t op_warpaffine4(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage, LumoMAT* dst, const LumoMAT* src,
                       const TarnQUAD* from, const TarnQUAD* to, uint32_t interpolation) {
    Context context(call, err, storage);
    const FloatState float_state;
    Planes planes;
    k::Status status = prepare(planes, *dst, *src, interpolation);
    if (status == k::kOk) status = warp_quad(context, planes, quad_of(from, *src), quad_of(to, *dst));
    return status == k::kQuadsDiffer || status == k::kNothingMapped ? 0 : report(context, status);
}

}  // namespace tarn::ipp
