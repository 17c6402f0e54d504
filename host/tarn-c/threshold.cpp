// "tarn::threshold-imm", "tarn::threshold-adapt", "tarn::calcthresh-otsu".
#include <float.h>
#include <math.h>
#include <string.h>

#include "tarn-c/operations.h"
#include "tarn-c/otsu.h"

namespace tarn::ipp {
namespace {

constexpr char kTextSpecs[] = "@specs[i](.comparison, .channel)";
constexpr char kTextHistogram[] = "@bounds, @nbins";

int64_t refuse_option(const Context& context, const char* text) {
    return refuse(context, QUEL_E_OPTION, QUEL_C_ARGUMENT, 3, text);
}

// ---- Specifications as kernels read them ----------------------------------------------------------------------------

// A number in the bits of an element: of integers the nearest, saturated.
uint32_t bits_of(float value, k::Type type) {
    uint32_t bits;
    if (type == f32) {
        memcpy(&bits, &value, sizeof bits);
        return bits;
    }
    const float least = type == u8 ? 0.0f : -32768.0f, most = type == u8 ? 255.0f : 32767.0f;
    const float inside = !(value > least) ? least : value > most ? most : value;
    return uint32_t(int32_t(nearbyintf(inside)));
}

// The level of an integer: comparing with the result is comparing with the value. An integer is above a value when it
// is above the largest integer that is not, and so on; it never equals one that is none.
int32_t level_of(float value, int32_t comparison) {
    const bool up = comparison == k::kLess || comparison == k::kGreaterEqual;
    const float whole = up ? ceilf(value) : floorf(value);
    if (comparison == k::kEqual && whole != value) return INT32_MIN;
    return whole >= 0x1p31f ? INT32_MAX : whole > -0x1p31f ? int32_t(whole) : INT32_MIN;
}

// One pass of a kernel: specifications of one comparison for different channels.
struct Pass {
    explicit Pass(LumoELEMTYPE word) : type(kPaired.type(word)), channels(channels_of(word)) {
        for (int c = 0; c < 4; ++c) put(c, {}, true), put_level(c, 0, 0);
    }
    // Whether a record can join those of the pass.
    bool takes(const TarnTHRSPEC& s) const {
        if (!taken) return true;
        if (s.channel == TARN_ALL_CHANNELS || taken >> s.channel & 1) return false;
        return s.comparison == comparison && s.reference == reference;
    }

    void add(const TarnTHRSPEC& s, float level) {
        comparison = s.comparison;
        reference = s.reference;
        for (int c = 0; c < 4; ++c) {
            // Two channels are pairs of pixels.
            const int channel = channels == 2 ? c % 2 : c;
            if (s.channel != TARN_ALL_CHANNELS && s.channel != channel) continue;
            taken |= 1u << channel;
            TarnTHRSPEC rule = s;
            // A comparison with NaN holds nowhere, but NaN is no level of integers.
            if (level != level && type != f32) rule.holds = s.fails, rule.keep = s.keep & TARN_KEEP_FAILS ? 3 : 0;
            put(c, rule, false);
            put_level(c, level, code());
        }
    }
    int32_t code() const { return int32_t(comparison) - TARN_LESS; }
    k::Thresholds record() const { return {code(), level, {keep[1], value[1]}, {keep[0], value[0]}}; }

    k::Type type;
    int channels;
    uint32_t comparison = TARN_GREATER, taken = 0;
    const LumoMAT* reference = nullptr;
    uint32_t level[4];
    uint8_t keep[2][16], value[2][16];  // by: fails, holds

private:
    void put_level(int c, float number, int32_t comparison_code) {
        if (type == f32)
            memcpy(&level[c], &number, sizeof number);
        else
            level[c] = uint32_t(number != number ? 0 : level_of(number, comparison_code));
    }
    void put(int c, const TarnTHRSPEC& s, bool stays) {
        const size_t size = size_t(element_bytes(type == u8 ? 1 : type == s16 ? 2 : 5));
        const float values[2] = {s.fails, s.holds};
        for (uint32_t i = 0; i < 2; ++i) {
            const bool kept = stays || s.keep & (i ? TARN_KEEP_HOLDS : TARN_KEEP_FAILS);
            const uint32_t k = kept ? ~0u : 0, v = kept ? 0 : bits_of(values[i], type);
            memcpy(keep[i] + size_t(c) * size, &k, size);
            memcpy(value[i] + size_t(c) * size, &v, size);
        }
    }
};

bool covers(const LumoMAT& a, const LumoMAT& b) { return a.width >= b.width && a.height >= b.height; }

// The specifications, pass by pass; kAdaptive: against references.
template <bool kAdaptive>
int64_t apply(Context& context, LumoMAT* dst, const LumoMAT* given, uint64_t n, const TarnTHRSPEC* specs) {
    const LumoMAT source = given ? *given : *dst;
    const LumoELEMTYPE type = source.elemtype;
    const auto* kernel = kPaired.find(k::threshold_kernels, type);
    const auto* kernel_by = kPaired.find(k::threshold_by_kernels, type);
    if (!kernel || !same_type(type, dst->elemtype)) return report(context, k::kNoKernel);
    if (!covers(*dst, source)) return report(context, k::kBadSize);
    for (uint64_t i = 0; i < n; ++i) {
        const TarnTHRSPEC& s = specs[i];
        const bool comparison = s.comparison >= TARN_LESS && s.comparison <= TARN_GREATER;
        if (!comparison || s.channel < TARN_ALL_CHANNELS || s.channel >= channels_of(type))
            return refuse_option(context, kTextSpecs);
        if (!kAdaptive) continue;
        if (!s.reference || !same_type(type, s.reference->elemtype)) return report(context, k::kNoKernel);
        if (!covers(*s.reference, source)) return report(context, k::kBadSize);
    }
    const FloatState float_state;
    const k::Size size = kernel_size(size_of(source), type);
    LumoMAT from = source;
    Temporary spare;
    // Without specifications, a pass of none: a copy.
    for (uint64_t i = 0; i < n || from.data != dst->data;) {
        Pass pass(type);
        for (; i < n && pass.takes(specs[i]); ++i) pass.add(specs[i], kAdaptive ? specs[i].offset : specs[i].value);
        const k::Thresholds record = pass.record();
        const LumoMAT* reference = pass.reference;
        if (kAdaptive && reference && reference->data == dst->data) {
            // The first pass overwrites what others still need.
            if (i < n && !spare.mat.data) {
                if (!spare.make(context, type, size_of(source))) return report(context, kNoTemporary);
                const LumoMAT part = part_of(*reference, {0, 0, source.width, source.height});
                if (const int64_t copied = call_sibling(context, slot::op_copy, &spare.mat, &part)) return copied;
            }
            if (spare.mat.data) reference = &spare.mat;
        }
        const k::Status status = kAdaptive && reference
                                     ? (*kernel_by)(from.data, from.stride, reference->data, reference->stride,
                                                    dst->data, dst->stride, size, &record)
                                     : (*kernel)(from.data, from.stride, dst->data, dst->stride, size, &record);
        if (status != k::kOk) return report(context, status);
        from = *dst;
    }
    return 0;
}

}  // namespace

int64_t op_threshold_imm(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage, LumoMAT* dst, const LumoMAT* src,
                         uint64_t n, const TarnTHRSPEC* specs) {
    Context context(call, err, storage);
    return apply<false>(context, dst, src, n, specs);
}

int64_t op_threshold_adapt(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage, LumoMAT* dst, const LumoMAT* src,
                           uint64_t n, const TarnTHRSPEC* specs) {
    Context context(call, err, storage);
    return apply<true>(context, dst, src, n, specs);
}

float op_calcthresh_otsu(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage, const LumoMAT* src,
                         const float* bounds, int32_t bins) {
    Context context(call, err, storage);
    const FloatState float_state;
    // Two channels have no histogram of pairs: their elements are pixels of one.
    const bool pairs = channels_of(src->elemtype) == 2;
    const LumoELEMTYPE type = pairs ? (src->elemtype & ~0xf000u) | LUMO_CHANNELS(1) : src->elemtype;
    const auto* kernel = kTyped.find(k::histogram_kernels, type);
    if (!kernel || (pairs && src->width > INT32_MAX / 2)) return report(context, k::kNoKernel), NAN;
    if (!bounds || bins < 1 || bins > kMostBins || !(bounds[0] < bounds[1]) || bounds[0] < -FLT_MAX ||
        bounds[1] > FLT_MAX)
        return refuse_option(context, kTextHistogram), NAN;
    const k::Bins intervals{bounds[0], bounds[1], bins};
    const k::Allocator allocator = context.allocator();
    uint64_t* counts = static_cast<uint64_t*>(allocator.allocate(allocator.context, uint64_t(bins) * sizeof(uint64_t)));
    if (!counts) return report(context, k::kNoMemory), NAN;
    const k::Size size{pairs ? 2 * src->width : src->width, src->height};
    float threshold = NAN;
    const k::Status status = (*kernel)(src->data, src->stride, size, &intervals, counts);
    if (report(context, status) == 0) threshold = last_of_bin(intervals, otsu_bin(counts, bins), kTyped.type(type));
    allocator.release(allocator.context, counts);
    return threshold;
}

}  // namespace tarn::ipp
