// The published table of kinds beside the tables that operations find their kernels in: a row that tells something else
// does not compile.
#include "ipp/convert.h"
#include "ipp/mapping.h"
#include "ipp/resize.h"
#include "kernels/arith/arith.h"
#include "kernels/border/border.h"
#include "kernels/compare/compare.h"
#include "kernels/copy/copy.h"
#include "kernels/filter/filter.h"
#include "kernels/logic/logic.h"
#include "kernels/mirror/mirror.h"
#include "kernels/morph/morph.h"
#include "kernels/set/set.h"
#include "kernels/stats/stats.h"
#include "kernels/warp/warp.h"
#include "tarn_kinds.h"

namespace tarn::ipp {
namespace {

constexpr TarnKINDS kRows[] = {TARN_KINDS(TARN_KINDS_ROW)};

constexpr bool equal(const char* a, const char* b) {
    for (; *a && *a == *b; ++a) ++b;
    return *a == *b;
}

// Whether the rows about an array tell the forms that there are kernels for, by kind; at least one row must.
template <class Forms>
constexpr bool tells(const char* operation, const char* array, const char* calls, Forms forms) {
    bool told = false;
    for (const TarnKINDS& row : kRows) {
        if (!equal(row.operation, operation) || !equal(row.array, array) || !equal(row.calls, calls)) continue;
        for (uint32_t kind = 1; kind < 6; ++kind)
            if (row.forms[kind] != forms(kind)) return false;
        told = true;
    }
    return told;
}

// The forms of a kind that a map finds kernels for in a set.
template <class Fn>
constexpr uint8_t forms_of(const TypeMap& map, const k::KernelSet<Fn>& set, uint32_t kind) {
    uint8_t forms = 0;
    for (uint32_t n = 1; n <= 4; ++n) {
        const LumoELEMTYPE type = kind << 8 | LUMO_CHANNELS(n);
        if (map.find(set, type)) forms |= k::kept(map.form(type)) ? uint8_t(TARN_OF_4_LESS) : uint8_t(1 << n);
    }
    return forms;
}

template <class Fn>
constexpr bool tells(const char* operation, const char* array, const TypeMap& map, const k::KernelSet<Fn>& set,
                     const char* calls = "") {
    return tells(operation, array, calls, [&](uint32_t kind) { return forms_of(map, set, kind); });
}

// The kinds that a set of conversions takes for a destination of u8, in the forms that the map has for them.
template <class Fn>
constexpr bool tells_source(const char* operation, SetsBySource<Fn>& sets, bool itself = false) {
    return tells(operation, "src", "", [&](uint32_t kind) {
        uint8_t forms = 0;
        for (uint32_t n = 1; n <= 4; ++n) {
            const LumoELEMTYPE src = kind << 8 | LUMO_CHANNELS(n), dst = LUMO_KIND_U8 << 8 | LUMO_CHANNELS(n);
            if ((itself && kind == LUMO_KIND_U8) || kPaired.find(sets, dst, src))
                forms |= k::kept(kPaired.form(src)) ? uint8_t(TARN_OF_4_LESS) : uint8_t(1 << n);
        }
        return forms;
    });
}

// and, or and xor with constants: u8 keeps the fourth channel, the others have a constant for it.
template <class Fn>
constexpr bool tells_constants(const char* operation, const k::KernelSet<Fn>& set) {
    return tells(operation, "dst", "",
                 [&](uint32_t kind) { return forms_of(kind == LUMO_KIND_U8 ? kTyped : kFour, set, kind); });
}

static_assert(tells("tarn::avgarith-n", "dst", kTyped, k::avg_n_kernels));
static_assert(tells("tarn::cvtvrange-v", "array", kRanges, k::range_u8_kernels));
static_assert(tells("tarn::cvtvrange-n", "arrays", kRanges, k::range_u8_kernels));
static_assert(tells("tarn::add-c", "dst", kTyped, k::add_c_kernels));  // any other kind is processed as u8
static_assert(tells("tarn::sub-c", "dst", kTyped, k::sub_c_kernels));
static_assert(tells("tarn::mul-c", "dst", kTyped, k::mul_c_kernels));
static_assert(tells("tarn::add-n", "dst", kTyped, k::add_n_kernels));
static_assert(tells("tarn::sub-n", "dst", kTyped, k::sub_n_kernels));
static_assert(tells("tarn::mul-n", "dst", kTyped, k::mul_n_kernels));
static_assert(tells_constants("tarn::and-c", k::and_c_kernels));
static_assert(tells_constants("tarn::or-c", k::or_c_kernels));
static_assert(tells_constants("tarn::xor-c", k::xor_c_kernels));
static_assert(tells("tarn::and", "dst", kTyped, k::and_kernels));
static_assert(tells("tarn::or", "dst", kTyped, k::or_kernels));
static_assert(tells("tarn::xor", "dst", kTyped, k::xor_kernels));
static_assert(tells("tarn::not", "dst", kTyped, k::not_kernels));
static_assert(tells("tarn::set", "dst", kFills, k::set_kernels) && tells("tarn::set", "dst", kFills, k::set_m_kernels));
static_assert(tells("tarn::minmax", "src", kTyped, k::minmax_kernels));
static_assert(tells("tarn::count-in-range", "src", kTyped, k::count_in_range_kernels));
static_assert(tells("tarn::mean", "src", kTyped, k::plane_mean_kernels));
static_assert(tells("tarn::cmp", "a", kPaired, k::cmp_kernels));
static_assert(tells("tarn::cmp-c", "src", kTyped, k::cmp_c_kernels));
static_assert(tells("tarn::cvtorigin", "array", kMirrors, k::mirror_kernels));
static_assert(tells("tarn::cvtorigin-n", "arrays", kMirrors, k::mirror_kernels));
static_assert(tells("tarn::scale-resize", "dst", kPaired, k::resize_linear_kernels));
static_assert(tells_source("tarn::scale-resize", kConvert, true));
static_assert(tells("tarn::warp-affine", "dst", kPaired, k::warp_linear_kernels));
static_assert(tells_source("tarn::warp-affine", kConvert, true));
static_assert(tells("tarn::warp-affine-quad", "dst", kPaired, k::warp_linear_kernels));
static_assert(tells_source("tarn::warp-affine-quad", kConvert, true));
static_assert(tells("tarn::convert-scale", "dst", kPaired, k::scale_u8_kernels));
static_assert(tells_source("tarn::convert-scale", kScale));
static_assert(tells("tarn::copy", "dst", kCopies, k::copy_kernels));
static_assert(tells("tarn::copymkb", "dst", kBorders, k::border_replicate_kernels));
static_assert(tells("tarn::filter", "dst", kPaired, k::box_kernels));
static_assert(tells("tarn::filter", "dst", kPaired, k::median_kernels, "median"));
static_assert(tells("tarn::initmorphstate", "region", kPaired, k::morph_size_kernels));
static_assert(tells("tarn::morphop-n", "dsts", kPaired, k::erode_kernels));
}  // namespace
}  // namespace tarn::ipp
