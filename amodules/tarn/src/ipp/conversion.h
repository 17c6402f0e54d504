// Plane routines of the conversion family that other operations use too: element type conversion and value mapping.
#pragma once

#include "ipp/arguments.h"
#include "kernels/convert/convert.h"

// A kernel for every pair of element kinds in every channel form: cell (source kind x 5 + destination kind) x 5 + form,
// each counted from the first that exists.
template <class Fn>
struct PairTable {
    const tarn::k::Kernel<Fn>* cells[125];

    // Null where the combination is not supported. Kinds and forms out of 1 to 5 are looked up nowhere: their index
    // would be another pair's.
    constexpr const tarn::k::Kernel<Fn>* find(int src_kind, int dst_kind, int form) const {
        if (src_kind < 1 || src_kind > 5 || dst_kind < 1 || dst_kind > 5 || form < 1 || form > 5) return nullptr;
        return cells[((src_kind - 1) * 5 + dst_kind - 1) * 5 + form - 1];
    }
};

// Conversions between the kinds u8, s16, s32 and f32; a kind's cells to itself are its copies. Form 4 converts four
// channels, form 5 keeps the destination's fourth.
extern const PairTable<tarn::k::Unary> kConvert;

// Converts a plane to another element kind, in one form (form 2 at half the width). Floats go to the nearest integer,
// ties to the even one. Returns the kernel's status, or kNoKernel for an empty cell.
tarn::k::Status convert_plane(int src_kind, int dst_kind, int form, const void* src, int32_t src_stride, void* dst,
                              int32_t dst_stride, tarn::k::Size size);

// Stretches the values of each channel to lo..hi, between the kinds u8, s16 and f32, in one form (form 2 at half the
// width, its two channels each by its own values). Scratch comes from the storage, opened when there is none. Returns
// the kernel's status, kNoKernel for an empty cell, kNoMemory without a storage.
tarn::k::Status range_map_plane(Storage& storage, QuelERR* err, int src_kind, int dst_kind, int form, const void* src,
                                int32_t src_stride, void* dst, int32_t dst_stride, tarn::k::Size size, float lo,
                                float hi);
