// Which kernel serves a type word. The kernel layer has a set of kernels for each operation, by element type and
// channel form; a TypeMap says which type and form stand for an element kind and a channel count. What the map does not
// serve, or the set does not have, has no kernel.
#pragma once

#include "ipp/arguments.h"
#include "kernels/base/kernel.h"

namespace tarn::ipp {

using enum k::Type;
using enum k::Form;
inline constexpr struct {
    constexpr operator k::Type() const { return k::Type(k::kTypes); }
    constexpr operator k::Form() const { return k::Form(k::kForms); }
} none;

// The kernel sets of an operation with a source kind of its own, by the source's type.
template <class Fn>
using SetsBySource = const k::KernelSet<Fn>* const[k::kTypes];

struct TypeMap {
    // By element kind from 1 and by channel count from 1; any further kind is served as `others`.
    template <int kKinds, int kCounts>
    constexpr TypeMap(const k::Type (&kinds)[kKinds], const k::Form (&counts)[kCounts], k::Type others = none) {
        for (int i = 0; i < 16; ++i) {
            types[i] = i >= 1 && i <= kKinds ? kinds[i - 1] : others;
            forms[i] = i >= 1 && i <= kCounts ? counts[i - 1] : none;
        }
    }
    constexpr k::Type type(LumoELEMTYPE word) const { return types[kind_of(word)]; }
    constexpr k::Form form(LumoELEMTYPE word) const { return forms[channels_of(word)]; }

    // Null where there is no kernel.
    template <class Fn>
    constexpr const k::Kernel<Fn>* find(const k::KernelSet<Fn>& set, LumoELEMTYPE word) const {
        return type(word) == none || form(word) == none ? nullptr : set.find(type(word), form(word));
    }
    template <class Fn>
    constexpr const k::Kernel<Fn>* find(SetsBySource<Fn>& sets, LumoELEMTYPE dst, LumoELEMTYPE src) const {
        return type(src) == none || !sets[int(type(src))] ? nullptr : find(*sets[int(type(src))], dst);
    }

    k::Type types[16];
    k::Form forms[16];
};

// clang-format off
//                                   1    2    3    4     5                              1   2     3   4    channels
inline constexpr TypeMap kTyped   {{u8, s16, s32, none, f32},                           {c1, none, c3, c3x}};
// Two channels as pixels of four elements.
inline constexpr TypeMap kPaired  {{u8, s16, s32, none, f32},                           {c1, c4,   c3, c3x}};
// Two channels as pixels of four elements that are two pixels.
inline constexpr TypeMap kRanges  {{u8, s16, s32, none, f32},                           {c1, c2,   c3, c3x}};
// The last two with all channels of four.
inline constexpr TypeMap kWhole       {{u8, s16, s32, none, f32},                       {c1, c4,   c3, c4}};
inline constexpr TypeMap kWholeRanges {{u8, s16, s32, none, f32},                       {c1, c2,   c3, c4}};
// Four channels, each with a constant of its own.
inline constexpr TypeMap kFour    {{u8, s16, s32},                                      {c1, none, c3, c4}};
// Whatever is neither s16 nor f32 is processed as bytes, deliberately.
inline constexpr TypeMap kAnyKind {{u8, s16, u8,  u8,   f32},                           {c1, none, c3, c3x}, u8};
// Elements that count by their size only: fills, borders, copies, copies of all channels (kind 7 is taken for bytes),
// mirrors (kinds 8 to 11 are taken for s8, u16, u64, s64).
inline constexpr TypeMap kFills   {{u8, s16, s32, none, s32},                           {c1, none, c3, c3x}};
inline constexpr TypeMap kBorders {{u8, s16, s32, none, s32},                           {c1, c4,   c3, c3x}};
inline constexpr TypeMap kCopies  {{u8, s16, s32, s32,  s32},                           {c1, c4,   c3, c3x}};
inline constexpr TypeMap kPacked  {{u8, s16, s32, s32,  s32, none, u8},                 {c1, c4,   c3, c4}};
inline constexpr TypeMap kMirrors {{u8, s16, s32, s32,  s32, none, none, u8, s16, s64, s64}, {c1, c4, c3, c4}};
// clang-format on

}  // namespace tarn::ipp
