// Element-wise operations over whole planes. Each reads one type word, picks one kernel and calls it once; none of them
// compares its arrays with each other or looks at the kernel's status: what can't be done leaves the destination as it is.
#include "ipp/elementwise.h"

#include "ipp/operations.h"

namespace k = tarn::k;

constexpr KernelTable<k::Copy> kCopy = {{
    {&k::copy_u8_c1, &k::copy_u8_c4, &k::copy_u8_c3, &k::copy_u8_c4, &k::copy_u8_c3x},
    {&k::copy_s16_c1, &k::copy_s16_c4, &k::copy_s16_c3, &k::copy_s16_c4, &k::copy_s16_c3x},
    {&k::copy_s32_c1, &k::copy_s32_c4, &k::copy_s32_c3, &k::copy_s32_c4, &k::copy_s32_c3x},
    {&k::copy_s32_c1, &k::copy_s32_c4, &k::copy_s32_c3, &k::copy_s32_c4, &k::copy_s32_c3x},
    {&k::copy_s32_c1, &k::copy_s32_c4, &k::copy_s32_c3, &k::copy_s32_c4, &k::copy_s32_c3x},
}};

k::Status copy_plane(int kind, int form, const void* src, int32_t src_stride, void* dst, int32_t dst_stride, k::Size size) {
    const auto* copy = kCopy.find(kind, form);
    if (!copy) return k::kNoKernel;
    if (form == 2) size.width /= 2;
    return (*copy)(src, src_stride, dst, dst_stride, size);
}

// "tarn::copy": dst := src over the source's size.
//   dst  its type word chooses the kernel; the fourth channel of four stays as it is
//   src  as many pixels as its width and height say; may overlap dst when both have one stride
// An unsupported type copies nothing and is no error. Returns 0.
int64_t op_copy(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src) {
    copy_plane(kind_of(dst->elemtype), form_of(dst->elemtype), src->data, src->stride, dst->data, dst->stride,
               {src->width, src->height});
    return 0;
}
