// "tarn::scale-resize": a region resampled to the size of the destination, with a change of element kind on the way
// where the two arrays differ in it, and a value range afterwards where one is given.
#include "kernels/resize/resize.h"

#include "ipp/conversion.h"
#include "ipp/operations.h"
#include "ipp/origin.h"

namespace k = tarn::k;

namespace {

// Three kinds in four channel forms. The column that no rule selects repeats the second.
#define CELLS(kernel) \
    { &k::kernel##_c1, &k::kernel##_c4, &k::kernel##_c3, &k::kernel##_c4, &k::kernel##_c3x }
using Table = KernelTable<k::Resize>;
constexpr Table kNearest = {{CELLS(resize_nearest_u8), CELLS(resize_nearest_s16), {}, {}, CELLS(resize_nearest_f32)}};
constexpr Table kLinear = {{CELLS(resize_linear_u8), CELLS(resize_linear_s16), {}, {}, CELLS(resize_linear_f32)}};
constexpr Table kCubic = {{CELLS(resize_cubic_u8), CELLS(resize_cubic_s16), {}, {}, CELLS(resize_cubic_f32)}};
constexpr Table kLanczos = {{CELLS(resize_lanczos_u8), CELLS(resize_lanczos_s16), {}, {}, CELLS(resize_lanczos_f32)}};
#undef CELLS

// The kernels for an interpolation code; null for a code that is none. A source smaller than the taps gets fewer of
// them.
const Table* table_of(uint32_t interpolation, k::Size src) {
    const int32_t least = src.width < src.height ? src.width : src.height;
    switch (interpolation) {
        case TARN_NEAREST:
            return &kNearest;
        case TARN_LINEAR:
            return &kLinear;
        case 2:
        case TARN_CUBIC:
            return least < 4 ? &kLinear : &kCubic;
        case TARN_LANCZOS:
            return least < 4 ? &kLinear : least < 6 ? &kCubic : &kLanczos;
        default:
            return nullptr;
    }
}

// Pixels of context that a conversion keeps around the region: more than any kernel's neighbourhood.
constexpr int32_t kContext = 8;

struct Call {
    const QuelCALL* call;
    QuelERR* err;
    Storage storage;
    LumoMAT* dst;
    const LumoMAT* src;
    LumoRECT region;  // inside of the source
    int form;         // of the destination
};

int64_t pixel_bytes(LumoELEMTYPE type) { return int64_t(element_bytes(kind_of(type))) * size_channels(type); }

uint8_t* corner(const LumoMAT& mat, const LumoRECT& region) {
    return pixel_at(mat, region.left, region.top, pixel_bytes(mat.elemtype));
}

// Resamples the region of a source of the destination's type into the destination.
k::Status resize_plane(Call& c, const LumoMAT& src, const LumoRECT& region, uint32_t interpolation) {
    k::Size src_size{src.width, src.height}, dst_size{c.dst->width, c.dst->height};
    k::Region from{region.left, region.top, LumoRECTwidth(&region), LumoRECTheight(&region)};
    const uint8_t* data = static_cast<const uint8_t*>(src.data);
    if (c.form == 2) {
        // Pairs of pixels, counted from the region's corner: at an odd x one pixel on the left belongs to none.
        const int32_t odd = from.x & 1;
        data += odd * pixel_bytes(src.elemtype);
        src_size.width = (src_size.width - odd) / 2;
        from.x /= 2;
        from.width /= 2;
        dst_size.width /= 2;
    }
    const Table* table = table_of(interpolation, src_size);
    const auto* resize = table ? table->find(kind_of(src.elemtype), c.form) : nullptr;
    if (!resize) return k::kNoKernel;
    KaSMEMSTG* storage = c.storage.get(c.err);
    if (!storage) return k::kNoMemory;
    return (*resize)(data, src.stride, src_size, from, c.dst->data, c.dst->stride, dst_size, kernel_allocator(storage));
}

// The same from a source of another element kind: the region and its context are converted into a temporary first. Sets
// *unmade when the temporary can't be had.
k::Status convert_and_resize(Call& c, uint32_t interpolation, bool* unmade) {
    LumoRECT extended = c.region;
    _LumoExtendROI(&extended, kContext, kContext, c.src->width, c.src->height);
    // Pairs of pixels are converted from the extended region's left: the region must begin with one.
    if (c.form == 2) extended.left += (c.region.left - extended.left) & 1;

    const LumoMATPARM parm{c.dst->elemtype, LumoRECTwidth(&extended), LumoRECTheight(&extended), 0};
    LumoMAT temporary;
    KaSMEMSTG* storage = c.storage.get(c.err);
    if (!storage || !_LumoMATinit(&temporary, &parm, storage, c.err)) {
        *unmade = true;
        return k::kNoMemory;
    }
    k::Status status =
        convert_plane(kind_of(c.src->elemtype), kind_of(temporary.elemtype), c.form, corner(*c.src, extended),
                      c.src->stride, temporary.data, temporary.stride, {temporary.width, temporary.height});
    if (status == k::kOk) {
        LumoRECT region{c.region.left - extended.left, c.region.top - extended.top, 0, 0};
        _LumoRECTwidthsetlI(&region, LumoRECTwidth(&c.region));
        _LumoRECTheightsettI(&region, LumoRECTheight(&c.region));
        status = resize_plane(c, temporary, region, interpolation);
    }
    if (c.storage.callers()) _LumoARRfree(&temporary, storage);  // the call's own dies with the call
    return status;
}

// A region of the destination's size: its values stretched where a range is given, else its elements converted, or of
// equal kinds every channel copied.
k::Status carry_region(Call& c, const uint32_t* value_range) {
    const int from = kind_of(c.src->elemtype), to = kind_of(c.dst->elemtype);
    const uint8_t* data = corner(*c.src, c.region);
    const k::Size size{c.dst->width, c.dst->height};
    if (value_range)
        return range_map_plane(c.storage, c.err, from, to, c.form, data, c.src->stride, c.dst->data, c.dst->stride,
                               size, __builtin_bit_cast(float, value_range[0]),
                               __builtin_bit_cast(float, value_range[1]));
    if (from != to) return convert_plane(from, to, c.form, data, c.src->stride, c.dst->data, c.dst->stride, size);
    return packed_copy_plane(from, c.form, data, c.src->stride, c.dst->data, c.dst->stride, size);
}

using ValueRange = int64_t (*)(const QuelCALL*, QuelERR*, KaSMEMSTG*, uint64_t count, LumoMAT* const* arrays,
                               const uint32_t* range);
constexpr int kValueRangeSlot = 8;

}  // namespace

// "tarn::scale-resize": resamples a region of src to the whole of dst.
//   dst            as many channels as src; its channel count chooses the form; two channels go in pairs of pixels, an
//   odd
//                  last column is left
//   src            u8, s16 or f32; another kind than dst's is converted before it is resampled
//   region         part of src, or null for all; cut to src before anything else
//   value_range    null, or the bits of two floats lo and hi: dst is stretched to them afterwards, through
//   "tarn::cvtvrange-n" interpolation  TARN_NEAREST, TARN_LINEAR, TARN_CUBIC (or 2), TARN_LANCZOS; looked at only when
//   the sizes differ
// A region of dst's size is not resampled; of equal kinds and without a value range all channels are copied.
// Returns 0, or -1 after an error value; after resampling with a value range, what "tarn::cvtvrange-n" returns: 1 or
// -1.
int64_t op_scaleresize(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage, LumoMAT* dst, const LumoMAT* src,
                       const LumoRECT* region, const uint32_t* value_range, uint32_t interpolation) {
    if (channels_of(src->elemtype) != channels_of(dst->elemtype)) return report(call, err, k::kNoKernel, kTextTypes);
    Call c{call, err, Storage(storage), dst, src, {}, form_of(dst->elemtype)};
    LumoRECT whole;
    _LumoARRroi(&whole, src);
    c.region = region ? *region : whole;
    LumoRECTintersecI(&c.region, &whole);

    const FloatState float_state;
    const bool resized = dst->width != LumoRECTwidth(&c.region) || dst->height != LumoRECTheight(&c.region);
    if (!resized) return report(call, err, carry_region(c, value_range), kTextTypes);

    bool unmade = false;
    const k::Status status = kind_of(src->elemtype) != kind_of(dst->elemtype)
                                 ? convert_and_resize(c, interpolation, &unmade)
                                 : resize_plane(c, *src, c.region, interpolation);
    if (unmade) return mark_failed(call, err);
    if (status != k::kOk) return report(call, err, status, kTextTypes);
    if (!value_range) return 0;
    return reinterpret_cast<ValueRange>(call->iface->slots[kValueRangeSlot].entry)(call, err, c.storage.get(err), 1,
                                                                                   &c.dst, value_range);
}
