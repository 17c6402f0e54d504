// The steps of copy-transform that change elements, sizes and values. Two channels are processed as pixels of four
// elements of half the width, as everywhere; four channels are all four processed.
#include <stdlib.h>

#include "ipp/convert.h"
#include "ipp/resize.h"
#include "ipp/transform.h"
#include "kernels/copy/copy.h"

namespace tarn::ipp {
namespace {

k::Status copy_rows(LumoELEMTYPE word, void* to, int64_t to_stride, const void* from, int64_t from_stride,
                    k::Size size) {
    return run_rows(kPacked.find(k::copy_kernels, word), to, to_stride, from, from_stride, kernel_size(size, word));
}

}  // namespace

void unreachable(int line) {
    LumoLOGprintf(_G_Lumo_default_logger, 1, "%s:%d: unreachable", kTransformSource, line);
    abort();
}

k::Status run_rows(const k::Kernel<k::Unary>* kernel, void* to, int64_t to_stride, const void* from,
                   int64_t from_stride, k::Size size) {
    if (!kernel) return k::kNoKernel;
    if (fits_kernels(to_stride) && fits_kernels(from_stride))
        return (*kernel)(from, int32_t(from_stride), to, int32_t(to_stride), size);
    if (!to || !from) return k::kNull;
    for (int64_t y = 0; y < size.height; ++y) {
        const auto* s = static_cast<const uint8_t*>(from) + y * from_stride;
        auto* d = static_cast<uint8_t*>(to) + y * to_stride;
        if (const k::Status status = (*kernel)(s, 0, d, 0, {size.width, 1})) return status;
    }
    return k::kOk;
}

k::Status convert_elements(const Job&, const LumoARRAY& to, const LumoARRAY& from, Rows) {
    const LumoELEMTYPE dst = kernel_word(to), src = kernel_word(from);
    if (dst == src) return copy_rows(dst, to.data, row_stride_of(to), from.data, row_stride_of(from), size_of(from));
    return run_rows(kWhole.find(kConvert, dst, src), to.data, row_stride_of(to), from.data, row_stride_of(from),
                    kernel_size(size_of(from), dst));
}

k::Status resample(const Job& job, const LumoARRAY& to, const LumoARRAY& from, Rows rows) {
    const LumoELEMTYPE word = kernel_word(to);
    const k::Size src = kernel_size(size_of(from), word), dst = kernel_size({width_of(to), rows.height}, word);
    const auto* kernels = job.interpolation == TARN_LANCZOS ? nullptr : resize_kernels(job.interpolation, src);
    if (kernels && kind_of(word) != kind_of(kernel_word(from)))
        kernels = kernels == &k::resize_linear_kernels ? &k::resize_u8_linear_kernels : &k::resize_u8_cubic_kernels;
    const auto* resize = kernels ? kWhole.find(*kernels, word) : nullptr;
    if (!resize) return k::kNoKernel;
    if (!fits_kernels(row_stride_of(from)) || !fits_kernels(row_stride_of(to))) return k::kBadArg;
    return (*resize)(from.data, int32_t(row_stride_of(from)), src, {0, 0, src.width, src.height}, to.data,
                     int32_t(row_stride_of(to)), {dst, rows.top, rows.top + height_of(to)}, job.scratch);
}

k::Status copy_picture(const Job&, const LumoARRAY& to, const LumoARRAY& from, Rows) {
    if (!is_planar(from))
        return copy_rows(kernel_word(from), to.data, row_stride_of(to), from.data, row_stride_of(from), size_of(from));
    // Planes, as many as there are: each a picture of one channel.
    LumoARRAY plane = from;
    plane.size[LUMO_DIM_C] = 1;
    for (int32_t c = 0; c < channels_of(from); ++c)
        if (const k::Status status = copy_rows(kernel_word(plane), plane_at(to, c), row_stride_of(to),
                                               plane_at(from, c), row_stride_of(from), size_of(from)))
            return status;
    return k::kOk;
}

}  // namespace tarn::ipp
