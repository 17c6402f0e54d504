// Morphology with any structuring element. The element is looked at once, when a state is made; every later call on
// regions of that width takes its plan and its scratch memory from the state, which therefore serves one call at a
// time.
//
// An element is a set of cells: those of a mask whose bytes are not zero, seen from the anchor. Beyond the region its
// edge pixels repeat, whatever lies there. Channels are worked on apart.
//
// morph_size  bytes := the length of a state
// morph_init  makes the state
//   category  kMorphBasic: for erosion and dilation of regions of this width, the height is not looked at;
//             kMorphAdvanced: for the other operations on regions of this size; kMorphFloats: the same, made by a
//             kernel of floats, for u8 too
//   mask      mask_stride is the step from row to row, in bytes
//   anchor    the cell that lies on the pixel, one of the mask's
//
// erode    the minimum of the pixels under the element
// dilate   the maximum of those under the element reflected in its anchor
// morph_open   the erosion's dilation: what of the image the element fits into
// morph_close  the dilation's erosion
// tophat       the image less its opening
// blackhat     the closing less the image
// gradient     the dilation less the erosion
//   border   1, edge pixels repeat: the only one
//   dst      must not overlap what is read
//
// Second passes take the first pass's results, and repeat those at the region's edge. Differences of u8 are never below
// 0; those of floats are rounded once, and NaN where one of the two is.
//
// Floats are in the total order of IEEE 754, NaN too (filter.h). Of an element without cells the minimum is the largest
// value and the maximum the smallest: 255 and 0, infinity and -infinity.
//
// A state may have been made at another processor level. Whatever its bytes are, no kernel writes outside of the
// `bytes` that its header tells, or reads outside of them and its pictures; that so many are there is the caller's to
// see to.
//
// Statuses: kNull, kBadSize (a size not positive, or too large for a state to be counted in 63 bits), kBadArg (an
// anchor outside of the mask; a category or a border that is none; a state that is not whole or was made for other
// calls).
#pragma once

#include "kernels/base/kernel.h"

namespace tarn::k {

inline constexpr uint32_t kMorphBasic = 3, kMorphAdvanced = 4, kMorphFloats = 5;
inline constexpr int32_t kMorphReplicate = 1;

// The first bytes of a state.
struct MorphHeader {
    uint64_t magic;
    uint64_t check;  // of everything from here on to the end of the plan
    uint64_t bytes;  // of the whole state
    uint64_t steps;  // of the plan, which follows
    uint32_t category;
    uint32_t element_bytes, channels;
    Size region;  // of a basic state: without a height
    Size mask;
    Offset anchor;
    uint32_t reserved;
};
inline constexpr uint64_t kMorphMagic = 0x31'6870'726f'6d'6e74;  // the version is its highest byte

using MorphSize = Status(uint32_t category, Size region, const void* mask, int32_t mask_stride, Size mask_size,
                         uint64_t* bytes);
#define TARN_ARITY_MorphSize 6
using MorphInit = Status(void* state, uint32_t category, Size region, const void* mask, int32_t mask_stride,
                         Size mask_size, Offset anchor);
#define TARN_ARITY_MorphInit 7
using Morph = Status(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size, int32_t border,
                     void* state);
#define TARN_ARITY_Morph 7

#define KERNELS(op, Fn, types, forms) TARN_KERNELS(op, Fn, types, forms)
#include "kernels/morph/morph.def"
#undef KERNELS

}  // namespace tarn::k
