// The activations of a fully connected layer, in place. Each element goes through the same operations at every level
// and at every place of a row.
//
// The exponential is computed in double lanes: x = n ln 2 + r, a polynomial for e^r, the exponent n set by its bits,
// then one rounding to float, which is what decides the error: just over half a unit in the last place, denormals
// included.
#include "kernels/net/net.h"

#include "kernels/net/sixteen.h"
#include "kernels/plane/plane.h"

namespace tarn::k::TARN_LEVEL {
namespace {

inline F64 exponential(F64 x) {
    // Beyond these the result is infinity or 0; NaN passes.
    x = min(splat(89.0), max(splat(-104.0), x));
    constexpr double kInverseLn2 = 0x1.71547652b82fep+0, kLn2 = 0x1.62e42fefa39efp-1;
    // Adding 1.5 * 2^52 leaves the nearest integer in the low bits.
    constexpr double kRound = 0x1.8p52;
    const F64 shifted = x * kInverseLn2 + kRound, n = shifted - kRound;
    const F64 r = x - n * kLn2;
    // Interpolates e^r at the eight Chebyshev nodes of [-ln 2 / 2, ln 2 / 2]: relative error below 5.6e-11.
    F64 p = r * 0x1.a17df2ec2bc60p-13 + 0x1.6da753185ad01p-10;
    p = p * r + 0x1.1110a6222ea35p-7;
    p = p * r + 0x1.555464a0f079ep-5;
    p = p * r + 0x1.5555557e7125ep-3;
    p = p * r + 0x1.0000005c89e4ep-1;
    p = p * r + 0x1.fffffffff61fdp-1;
    p = p * r + 0x1.ffffffffa7135p-1;
    return p * (F64)(((U64)shifted + 1023) << 52);
}

// e^x. Overflow gives infinity, underflow denormals and 0.
inline F32 exponential(F32 v) { return settle_nan(narrow(exponential(widen_lower(v)), exponential(widen_upper(v)))); }

// fn over a row, sixteen elements at a time, `others` behind the last ones.
template <class Fn>
inline void change_16(float* p, int64_t n, int64_t step, F32x16 others, Fn fn) {
    int64_t i = 0;
    if (step == 1)
        for (; i + 16 <= n; i += 16) store16(p + i, fn(load16(p + i)));
    for (; i < n; i += 16) {
        const int64_t count = min<int64_t>(16, n - i);
        scatter16(p + i * step, step, fn(gather16(p + i * step, step, count, others)), count);
    }
}

// f over each vector of every row.
template <class F>
inline Status each(void* y, int32_t stride, int32_t element_stride, Size size, F f) {
    if (Status s = check(size, y)) return s;
    if (element_stride <= 0 || element_stride % 4) return kBadArg;
    for (int64_t r = 0; r < size.height; ++r)
        change_16(row<float>(y, stride, r), size.width, element_stride / 4, {},
                  [f](F32x16 s) { return each_of_16([&](int i) { return f(s.v[i]); }); });
    return clean(kOk);
}

// Sixteen lanes to one: those 8 apart, then 4, 2 and 1 apart.
template <class T, class Lanes, class Fold>
inline T fold_lanes(const Lanes& lanes, Fold fold) {
    T v[16];
    static_assert(sizeof v == sizeof lanes);
    memcpy(v, &lanes, sizeof v);
    for (int apart = 8; apart > 0; apart /= 2)
        for (int l = 0; l < apart; ++l) v[l] = fold(v[l], v[l + apart]);
    return v[0];
}

// Others of -infinity add e^-infinity = 0 to the sum.
void softmax_row(float* p, int64_t n, int64_t step) {
    const F32x16 least = splat16(-__builtin_inff());
    // A NaN may be missed by the maximum but not by the sum, which makes the whole row NaN.
    F32x16 most = least;
    for (int64_t i = 0; i < n; i += 16) {
        const F32x16 s = gather16(p + i * step, step, min<int64_t>(16, n - i), least);
        most = each_of_16([&](int j) { return max(s.v[j], most.v[j]); });
    }
    const float m = fold_lanes<float>(most, [](float a, float b) { return max(a, b); });
    F64 sums[2 * kVectors] = {};
    change_16(p, n, step, least, [&](F32x16 s) {
        s = each_of_16([&](int i) { return exponential(s.v[i] - m); });
        for (int i = 0; i < kVectors; ++i) {
            sums[2 * i] += widen_lower(s.v[i]);
            sums[2 * i + 1] += widen_upper(s.v[i]);
        }
        return s;
    });
    // Divided in double: the shares' own roundings are all that keeps them from adding up to 1.
    const double sum = fold_lanes<double>(sums, [](double a, double b) { return a + b; });
    change_16(p, n, step, {}, [sum](F32x16 s) {
        return each_of_16(
            [&](int i) { return settle_nan(narrow(widen_lower(s.v[i]) / sum, widen_upper(s.v[i]) / sum)); });
    });
}

inline F32 sigmoid_of(F32 power) { return settle_nan(1.0f / (power + 1.0f)); }

}  // namespace

Status net_exp_f32(void* y, int32_t stride, int32_t element_stride, Size size) {
    return each(y, stride, element_stride, size, [](F32 v) { return exponential(v); });
}

Status net_sigmoid_f32(void* y, int32_t stride, int32_t element_stride, Size size) {
    return each(y, stride, element_stride, size, [](F32 v) { return sigmoid_of(exponential(-v)); });
}

Status net_mirrored_sigmoid_f32(void* y, int32_t stride, int32_t element_stride, Size size) {
    return each(y, stride, element_stride, size, [](F32 v) { return sigmoid_of(exponential(v)); });
}

// NaN and -0 stay: of two zeros max gives the second, as it does with NaN.
Status net_rectifier_f32(void* y, int32_t stride, int32_t element_stride, Size size) {
    return each(y, stride, element_stride, size, [](F32 v) { return settle_nan(max(F32{}, v)); });
}

// Of a negative value a hundredth is the larger.
Status net_leaky_rectifier_f32(void* y, int32_t stride, int32_t element_stride, Size size) {
    return each(y, stride, element_stride, size, [](F32 v) { return settle_nan(max(v, 0.01f * v)); });
}

Status net_softmax_f32(void* y, int32_t stride, int32_t element_stride, Size size) {
    if (Status s = check(size, y)) return s;
    if (element_stride <= 0 || element_stride % 4) return kBadArg;
    for (int64_t r = 0; r < size.height; ++r) softmax_row(row<float>(y, stride, r), size.width, element_stride / 4);
    return clean(kOk);
}

}  // namespace tarn::k::TARN_LEVEL
