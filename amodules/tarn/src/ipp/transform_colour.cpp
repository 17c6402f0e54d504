// The steps of copy-transform that change colours and layouts. Which elements they serve goes by the element's code.
#include "ipp/tables.h"
#include "ipp/transform.h"
#include "kernels/colour/colour.h"

namespace tarn::ipp {
namespace {

// Kernels by element code: u8, s8, u16, s16, u32, s32, u64, s64, f32, f64.
using Codes = const k::Type[10];
constexpr Codes kGreyToThree = {u8, none, s16, s16, none, s32, none, none, s32, none};
constexpr Codes kThreeToGrey = {u8, none, u16, s16, none, none, none, none, f32, none};
constexpr Codes kReversal = {u8, none, s16, s16, s32, s32, none, none, s32, none};
constexpr Codes kBytes = {u8, none, none, none, none, none, none, none, none, none};
constexpr Codes kPlanes = {u8, u8, s16, s16, s32, s32, none, none, s32, none};

k::Type type_of(Codes& codes, LumoELEMTYPE type) {
    const uint32_t code = type & 0xff;
    if (code > LUMO_CODE_F64) unreachable(__LINE__);
    return is_whole(type) ? codes[code] : none;
}

// The way from one colour class to another: a converter, or two with three channels between them.
struct Converter {
    const k::KernelSet<k::Unary>* kernels;
    Codes* codes;
};
struct Way {
    Converter first, second;
};
constexpr Converter kNone{}, kFromGrey{&k::grey_to_three_kernels, &kGreyToThree},
    kRgbToGrey{&k::rgb_to_grey_kernels, &kThreeToGrey}, kBgrToGrey{&k::bgr_to_grey_kernels, &kThreeToGrey},
    kReverse{&k::reverse_channels_kernels, &kReversal}, kToFour{&k::three_to_four_kernels, &kBytes},
    kFromFour{&k::four_to_three_kernels, &kBytes};
constexpr Way kWays[5][5] = {
    {},
    //   grey                     RGB                     BGR          BGRA
    {{}, {}, {kFromGrey, kNone}, {kFromGrey, kNone}, {kFromGrey, kToFour}},
    {{}, {kRgbToGrey, kNone}, {}, {kReverse, kNone}, {kReverse, kToFour}},
    {{}, {kBgrToGrey, kNone}, {kReverse, kNone}, {}, {kToFour, kNone}},
    {{}, {kFromFour, kBgrToGrey}, {kFromFour, kReverse}, {kFromFour, kNone}, {}},
};

k::Status run_converter(const Converter& converter, LumoELEMTYPE element, void* to, int64_t to_stride, const void* from,
                        int64_t from_stride, k::Size size) {
    const k::Type type = type_of(*converter.codes, element);
    if (type == none) return kNoConverter;
    return run_rows(converter.kernels->find(type, c3), to, to_stride, from, from_stride, size);
}

// Kernels on planes, by the element and the number of channels; null: there is none.
template <class Fn>
const k::Kernel<Fn>* plane_kernel(const k::KernelSet<Fn>& kernels, const LumoARRAY& a, int32_t channels) {
    if (channels != 3 && channels != 4) return nullptr;
    const k::Type type = type_of(kPlanes, a.elemtype);
    const uint32_t code = a.elemtype & 0xff;
    if (code == LUMO_CODE_S8 || code == LUMO_CODE_U32)
        LumoLOGprintf(_G_Lumo_default_logger, 3, "%s:%d: unsupported elemtype %s", kTransformSource, __LINE__,
                      LumoELEMTYPEshow(a.elemtype));
    return type == none ? nullptr : kernels.find(type, channels == 3 ? c3 : c4);
}

// Rows of planes to rows of pixels or back: run(planes' rows, their stride, the pixels' row, its stride, size), row
// by row where rows lie too far apart for kernels.
template <class Run>
k::Status run_planes(const LumoARRAY& planar, const LumoARRAY& pixels, Run run) {
    const auto rows = [&](int64_t y, int32_t plane_stride, int32_t stride, int32_t height) {
        void* planes[4];
        for (int c = 0; c < channels_of(planar); ++c)
            planes[c] = planar.data ? plane_at(planar, c) + y * row_stride_of(planar) : nullptr;
        void* row = pixels.data ? row_at(pixels, y) : nullptr;
        return run(planes, plane_stride, row, stride, k::Size{width_of(pixels), height});
    };
    const int64_t plane_stride = row_stride_of(planar), stride = row_stride_of(pixels);
    if (fits_kernels(plane_stride) && fits_kernels(stride))
        return rows(0, int32_t(plane_stride), int32_t(stride), height_of(pixels));
    k::Status status = k::kOk;
    for (int64_t y = 0; y < height_of(pixels) && status == k::kOk; ++y) status = rows(y, 0, 0, 1);
    return status;
}

}  // namespace

k::Status change_colours(const Job& job, const LumoARRAY& to, const LumoARRAY& from, Rows) {
    const Way* way = from.cls <= LUMO_CLASS_BGRA && to.cls <= LUMO_CLASS_BGRA ? &kWays[from.cls][to.cls] : nullptr;
    if (!way || !way->first.kernels) unreachable(__LINE__);
    const k::Size size = size_of(from);
    const LumoELEMTYPE type = from.elemtype;
    if (!way->second.kernels)
        return run_converter(way->first, type, to.data, row_stride_of(to), from.data, row_stride_of(from), size);

    const int64_t align = int64_t(LumoELEMTYPEalignof(type));
    const int64_t stride = (int64_t(LumoELEMTYPEsizeof(type)) * 3 * size.width + align - 1) / align * align;
    void* three = job.scratch.allocate(job.scratch.context, uint64_t(stride) * uint64_t(size.height));
    if (!three) return k::kNoMemory;
    k::Status status = run_converter(way->first, type, three, stride, from.data, row_stride_of(from), size);
    if (status == k::kOk) status = run_converter(way->second, type, to.data, row_stride_of(to), three, stride, size);
    job.scratch.release(job.scratch.context, three);
    return status;
}

k::Status gather_planes(const Job&, const LumoARRAY& to, const LumoARRAY& from, Rows) {
    const auto* kernel = plane_kernel(k::interleave_kernels, from, channels_of(from));
    if (!kernel) return kNoConverter;
    return run_planes(from, to, [&](void** planes, int32_t plane_stride, void* row, int32_t stride, k::Size size) {
        return (*kernel)(planes, plane_stride, row, stride, size);
    });
}

k::Status spread_planes(const Job&, const LumoARRAY& to, const LumoARRAY& from, Rows) {
    const auto* kernel = plane_kernel(k::deinterleave_kernels, from, channels_of(from));
    if (!kernel) return kNoConverter;
    return run_planes(to, from, [&](void** planes, int32_t plane_stride, void* row, int32_t stride, k::Size size) {
        return (*kernel)(row, stride, planes, plane_stride, size);
    });
}

}  // namespace tarn::ipp
