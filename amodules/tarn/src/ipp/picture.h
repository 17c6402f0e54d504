// What copy-transform reads of a picture: an array of at most width, height and channels, or a band of its rows. Its
// layout has no dimension of size 1.
#pragma once

#include "ipp/arguments.h"
#include "lumo_array.h"

namespace tarn::ipp {

inline int32_t width_of(const LumoARRAY& a) { return LumoARRPARMSsizedim(&a, LUMO_DIM_W); }
inline int32_t height_of(const LumoARRAY& a) { return LumoARRPARMSsizedim(&a, LUMO_DIM_H); }
inline int32_t channels_of(const LumoARRAY& a) { return LumoARRPARMSsizedim(&a, LUMO_DIM_C); }
inline int64_t row_stride_of(const LumoARRAY& a) { return LumoARRPARMSstridedim(&a, LUMO_DIM_H); }
inline int64_t plane_stride_of(const LumoARRAY& a) { return LumoARRPARMSstridedim(&a, LUMO_DIM_C); }
inline k::Size size_of(const LumoARRAY& a) { return {width_of(a), height_of(a)}; }

inline uint8_t* row_at(const LumoARRAY& a, int64_t y) { return static_cast<uint8_t*>(a.data) + y * row_stride_of(a); }
inline uint8_t* plane_at(const LumoARRAY& a, int64_t c) {
    return static_cast<uint8_t*>(a.data) + c * plane_stride_of(a);
}

// Whether the channels are planes. Of one pixel alone, whose layout is the same either way, the strides tell.
inline bool is_planar(const LumoARRAY& a) {
    if (channels_of(a) == 1) return false;
    if (width_of(a) == 1 && height_of(a) == 1) return plane_stride_of(a) != int64_t(LumoELEMTYPEsizeof(a.elemtype));
    return !LumoARRLOsub(&a.layout, &_G_Lumo_HWC_arrlo);
}

// Whether elements are as long as their code says: rows are as long as the kind says, where there is one.
inline bool is_whole(LumoELEMTYPE type) { return LumoELEMTYPEsizeof(type) == LumoELEMTYPEsizeof(type & 0xff); }

// The word that kernels are found by: the kind that the element code stands for, and the channels. Without a kind, no
// kernel.
inline LumoELEMTYPE kernel_word(const LumoARRAY& a) {
    const int32_t channels = channels_of(a);
    const uint32_t kind = is_whole(a.elemtype) && channels <= 4 ? _LumoELEMTYPEto_old(a.elemtype) : 0;
    return kind << 8 | LumoELEMTYPE(channels & 7) << 12;
}

}  // namespace tarn::ipp
