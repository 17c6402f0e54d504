// Statistics: numbers per channel of one plane, into vectors of the caller's. None makes an error value; a type without
// a kernel ends the process, and a plane without pixels leaves the vectors as they are.
#include "kernels/stats/stats.h"

#include <math.h>

#include "ipp/operations.h"

namespace k = tarn::k;

namespace {

// Three channels of four have three results.
constexpr KernelTable<k::MinMax> kMinMax = {{
    {&k::minmax_u8_c1, nullptr, &k::minmax_u8_c3, nullptr, &k::minmax_u8_c3x},
    {&k::minmax_s16_c1, nullptr, &k::minmax_s16_c3, nullptr, &k::minmax_s16_c3x},
    {},
    {},
    {&k::minmax_f32_c1, nullptr, &k::minmax_f32_c3, nullptr, &k::minmax_f32_c3x},
}};
constexpr KernelTable<k::CountInRange> kCountInRange = {{
    {&k::count_in_range_u8_c1, nullptr, &k::count_in_range_u8_c3, nullptr, &k::count_in_range_u8_c3x},
    {},  // deliberate: 16 bits are not counted
    {},
    {},
    {&k::count_in_range_f32_c1, nullptr, &k::count_in_range_f32_c3, nullptr, &k::count_in_range_f32_c3x},
}};
constexpr KernelTable<k::PlaneMean> kMean = {{
    {&k::plane_mean_u8_c1, nullptr, &k::plane_mean_u8_c3, nullptr, &k::plane_mean_u8_c3x},
    {&k::plane_mean_s16_c1, nullptr, &k::plane_mean_s16_c3, nullptr, &k::plane_mean_s16_c3x},
    {},
    {},
    {&k::plane_mean_f32_c1, nullptr, &k::plane_mean_f32_c3, nullptr, &k::plane_mean_f32_c3x},
}};

int results_of(LumoELEMTYPE type) { return channels_of(type) == 1 ? 1 : 3; }

// The kernel for a type; the process ends when there is none.
template <class Fn>
const k::Kernel<Fn>& kernel_for(const KernelTable<Fn>& table, const QuelCALL* call, LumoELEMTYPE type) {
    const auto* kernel = table.find(type);
    if (!kernel) unsupported(call, type);
    return *kernel;
}

// Bounds where the caller gives none: everything that the type holds. Row: element kind.
constexpr float kLowest[][4] = {{}, {0, 0, 0, 0}, {-32768, -32768, -32768, -32768},
                                {}, {},           {-3.40282347e38f, -3.40282347e38f, -3.40282347e38f, -3.40282347e38f}};
constexpr float kHighest[][4] = {{},
                                 {255, 255, 255, 255},
                                 {32767, 32767, 32767, 32767},
                                 {},
                                 {},
                                 {3.40282347e38f, 3.40282347e38f, 3.40282347e38f, 3.40282347e38f}};

// The low 8 bits of the largest integer not above the bound: bounds wrap around, deliberately. Beyond 32 bits: 0.
uint8_t wrapped(float bound) {
    const float whole = floorf(bound);
    return whole >= -2147483648.0f && whole < 2147483648.0f ? uint8_t(int32_t(whole)) : 0;
}

}  // namespace

// "tarn::minmax": the smallest and the largest value of each channel.
//   smallest, largest  one or three floats each; either may be null
//   src                u8, s16, f32 with 1, 3 or 4 channels, the fourth passed over; ends the process otherwise
// NaN is passed over; nothing but NaN gives NaN. Returns 0.
int64_t op_minmax(const QuelCALL* call, QuelERR*, KaSMEMSTG*, float* smallest, float* largest, const LumoMAT* src) {
    const auto& minmax = kernel_for(kMinMax, call, src->elemtype);
    const FloatState float_state;
    minmax(src->data, src->stride, {src->width, src->height}, smallest, largest);
    return 0;
}

// "tarn::count-in-range": how many pixels of each channel have lower <= value <= upper.
//   counts        one or three
//   src           u8 or f32 with 1, 3 or 4 channels, the fourth passed over; ends the process otherwise
//   lower, upper  a float a channel; for u8 floored and cut to 8 bits; null: the type's whole range
// Returns 0.
int64_t op_countinrange(const QuelCALL* call, QuelERR*, KaSMEMSTG*, int32_t* counts, const LumoMAT* src,
                        const float* lower, const float* upper) {
    const auto& count = kernel_for(kCountInRange, call, src->elemtype);
    const int kind = kind_of(src->elemtype);
    if (!lower) lower = kLowest[kind];
    if (!upper) upper = kHighest[kind];
    const FloatState float_state;
    const k::Size size{src->width, src->height};
    if (kind == LUMO_KIND_F32) {
        count(src->data, src->stride, size, lower, upper, counts);
        return 0;
    }
    uint8_t low[3], high[3];
    for (int c = 0; c < results_of(src->elemtype); ++c) {
        low[c] = wrapped(lower[c]);
        high[c] = wrapped(upper[c]);
    }
    count(src->data, src->stride, size, low, high, counts);
    return 0;
}

// "tarn::mean": the mean of each channel, in double precision until the end.
//   means  one or three floats
//   src    u8, s16, f32 with 1, 3 or 4 channels, the fourth passed over; ends the process otherwise
// Returns 0.
int64_t op_mean(const QuelCALL* call, QuelERR*, KaSMEMSTG*, float* means, const LumoMAT* src) {
    const auto& mean = kernel_for(kMean, call, src->elemtype);
    const FloatState float_state;
    double results[3];
    if (mean(src->data, src->stride, {src->width, src->height}, results) != k::kOk) return 0;
    for (int c = 0; c < results_of(src->elemtype); ++c) means[c] = float(results[c]);
    return 0;
}
