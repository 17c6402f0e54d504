// Value conversion: element types, linear mappings and value ranges.
#include "ipp/conversion.h"

#include "ipp/elementwise.h"
#include "ipp/operations.h"

namespace k = tarn::k;

// One line per pair of kinds: 1, 2, 3 channels, four, three of four. Two-channel pixels go in pairs, as one of four.
#define CELLS(kernel) &k::kernel##_c1, &k::kernel##_c4, &k::kernel##_c3, &k::kernel##_c4, &k::kernel##_c3x
#define NONE nullptr, nullptr, nullptr, nullptr, nullptr
constexpr PairTable<k::Copy> kConvert = {{
    CELLS(copy_u8), CELLS(convert_u8_s16), CELLS(convert_u8_s32), NONE, CELLS(convert_u8_f32),
    CELLS(convert_s16_u8), CELLS(copy_s16), CELLS(convert_s16_s32), NONE, CELLS(convert_s16_f32),
    CELLS(convert_s32_u8), CELLS(convert_s32_s16), CELLS(copy_s32), NONE, CELLS(convert_s32_f32),
    NONE, NONE, NONE, NONE, NONE,
    CELLS(convert_f32_u8), CELLS(convert_f32_s16), CELLS(convert_f32_s32), NONE, CELLS(copy_s32),
}};
#undef CELLS
#undef NONE

k::Status convert_plane(int src_kind, int dst_kind, int form, const void* src, int32_t src_stride, void* dst,
                        int32_t dst_stride, k::Size size) {
    const auto* convert = kConvert.find(src_kind, dst_kind, form);
    if (!convert) return k::kNoKernel;
    if (form == 2) size.width /= 2;
    return (*convert)(src, src_stride, dst, dst_stride, size);
}
