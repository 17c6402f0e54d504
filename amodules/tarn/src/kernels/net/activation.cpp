// The activations of a fully connected layer, in place. Each element goes through the same operations at every level
// and at every place of a row: plain loops, which compilers turn into vectors.
//
// The exponential is computed in double lanes: x = n ln 2 + r, a polynomial for e^r, the exponent n set by its bits,
// then one rounding to float, which is what decides the error: just over half a unit in the last place, denormals
// included.
#include "kernels/net/net.h"

#include "kernels/base/body.h"
#include "kernels/plane/plane.h"

namespace tarn::k::TARN_LEVEL {
namespace {

constexpr int kLanes = 16;
constexpr uint32_t kNan = 0x7fc00000;

inline float settle(float v) { return v != v ? __builtin_bit_cast(float, kNan) : v; }

// e^x. Overflow gives infinity, underflow denormals and 0.
inline float exponential(float value) {
    // Beyond these the result is infinity or 0; NaN passes.
    double x = value;
    x = x < -104.0 ? -104.0 : x;
    x = x > 89.0 ? 89.0 : x;
    constexpr double kInverseLn2 = 0x1.71547652b82fep+0, kLn2 = 0x1.62e42fefa39efp-1;
    // Adding 1.5 * 2^52 leaves the nearest integer in the low bits.
    constexpr double kRound = 0x1.8p52;
    const double shifted = x * kInverseLn2 + kRound, n = shifted - kRound;
    const double r = x - n * kLn2;
    // Interpolates e^r at the eight Chebyshev nodes of [-ln 2 / 2, ln 2 / 2]: relative error below 5.6e-11.
    double p = 0x1.a17df2ec2bc60p-13;
    p = p * r + 0x1.6da753185ad01p-10;
    p = p * r + 0x1.1110a6222ea35p-7;
    p = p * r + 0x1.555464a0f079ep-5;
    p = p * r + 0x1.5555557e7125ep-3;
    p = p * r + 0x1.0000005c89e4ep-1;
    p = p * r + 0x1.fffffffff61fdp-1;
    p = p * r + 0x1.ffffffffa7135p-1;
    const uint64_t exponent = (__builtin_bit_cast(uint64_t, shifted) + 1023) << 52;
    return settle(float(p * __builtin_bit_cast(double, exponent)));
}

// Up to sixteen elements, `step` floats apart, into a buffer filled up with `pad`, and back.
inline void collect(float* buffer, const float* p, int64_t count, int64_t step, float pad) {
#if defined(__AVX512F__)
    if (step == 1)
        return _mm512_storeu_ps(buffer, _mm512_mask_loadu_ps(_mm512_set1_ps(pad), __mmask16((1u << count) - 1), p));
#endif
    for (int64_t l = 0; l < kLanes; ++l) buffer[l] = l < count ? p[l * step] : pad;
}
inline void spread(float* p, const float* buffer, int64_t count, int64_t step) {
#if defined(__AVX512F__)
    if (step == 1) return _mm512_mask_storeu_ps(p, __mmask16((1u << count) - 1), _mm512_loadu_ps(buffer));
#endif
    for (int64_t l = 0; l < count; ++l) p[l * step] = buffer[l];
}

// fn over a row, sixteen elements at a time: loops of a known length, which become vectors whole. The last ones and
// elements that do not lie side by side pass through a buffer.
template <class Fn>
[[gnu::always_inline]] inline void sixteens(float* p, int64_t n, int64_t step, float pad, Fn fn) {
    int64_t i = 0;
    if (step == 1)
        for (; i + kLanes <= n; i += kLanes) fn(p + i);
    for (; i < n; i += kLanes) {
        float buffer[kLanes];
        const int64_t count = min<int64_t>(kLanes, n - i);
        collect(buffer, p + i * step, count, step, pad);
        fn(buffer);
        spread(p + i * step, buffer, count, step);
    }
}

template <class Fn>
inline Status each(void* y, int32_t stride, int32_t element_stride, Size size, Fn fn) {
    if (Status s = check(size, y)) return s;
    if (element_stride <= 0 || element_stride % 4) return kBadArg;
    for (int64_t r = 0; r < size.height; ++r)
        sixteens(row<float>(y, stride, r), size.width, element_stride / 4, 0.0f, [fn](float* p) {
            for (int l = 0; l < kLanes; ++l) p[l] = fn(p[l]);
        });
    return kOk;
}

// Sixteen lanes to one: those 8 apart, then 4, 2 and 1 apart.
template <class T, class Fold>
inline T fold_lanes(const T (&lanes)[kLanes], Fold fold) {
    T by8[8], by4[4];
    for (int l = 0; l < 8; ++l) by8[l] = fold(lanes[l], lanes[l + 8]);
    for (int l = 0; l < 4; ++l) by4[l] = fold(by8[l], by8[l + 4]);
    return fold(fold(by4[0], by4[2]), fold(by4[1], by4[3]));
}

// The softmax's steps over sixteen elements. GCC 12 unrolls such short loops before it could make vectors of them, so
// level 4 has them written out.
#if defined(__AVX512F__)
inline __m512d low(__m512 v) { return _mm512_maskz_cvtps_pd(0xff, _mm512_castps512_ps256(v)); }
inline __m512d high(__m512 v) { return low(_mm512_maskz_shuffle_f32x4(0xffff, v, v, 0xee)); }
inline void raise_to(float* most, const float* q) {
    _mm512_storeu_ps(most, _mm512_maskz_max_ps(0xffff, _mm512_loadu_ps(most), _mm512_loadu_ps(q)));
}
inline void add_to(double* sums, const float* q) {
    const __m512 v = _mm512_loadu_ps(q);
    _mm512_storeu_pd(sums, _mm512_add_pd(_mm512_loadu_pd(sums), low(v)));
    _mm512_storeu_pd(sums + 8, _mm512_add_pd(_mm512_loadu_pd(sums + 8), high(v)));
}
inline void divide(float* q, double divisor) {
    const __m512 v = _mm512_loadu_ps(q);
    const __m512d d = _mm512_set1_pd(divisor);
    const __m256 a = _mm512_maskz_cvtpd_ps(0xff, _mm512_div_pd(low(v), d)),
                 b = _mm512_maskz_cvtpd_ps(0xff, _mm512_div_pd(high(v), d));
    const __m256 nan = _mm256_castsi256_ps(_mm256_set1_epi32(kNan));
    _mm256_storeu_ps(q, _mm256_mask_blend_ps(_mm256_cmp_ps_mask(a, a, _CMP_UNORD_Q), a, nan));
    _mm256_storeu_ps(q + 8, _mm256_mask_blend_ps(_mm256_cmp_ps_mask(b, b, _CMP_UNORD_Q), b, nan));
}
#else
inline void raise_to(float* most, const float* q) {
    for (int l = 0; l < kLanes; ++l) most[l] = max(most[l], q[l]);
}
inline void add_to(double* sums, const float* q) {
    for (int l = 0; l < kLanes; ++l) sums[l] += double(q[l]);
}
inline void divide(float* q, double divisor) {
    for (int l = 0; l < kLanes; ++l) q[l] = settle(float(q[l] / divisor));
}
#endif

// Filling up with -infinity adds e^-infinity = 0 to the sum.
void softmax_row(float* p, int64_t n, int64_t step) {
    constexpr float kLeast = -__builtin_inff();
    // A NaN may be missed by the maximum but not by the sum, which makes the whole row NaN.
    float most[kLanes];
    for (float& v : most) v = kLeast;
    sixteens(p, n, step, kLeast, [&](const float* q) { raise_to(most, q); });
    const float m = fold_lanes(most, [](float a, float b) { return max(a, b); });
    double sums[kLanes] = {};
    sixteens(p, n, step, kLeast, [&](float* q) {
        for (int l = 0; l < kLanes; ++l) q[l] = exponential(q[l] - m);
        add_to(sums, q);
    });
    // Divided in double: the shares' own roundings are all that keeps them from adding up to 1.
    const double sum = fold_lanes(sums, [](double a, double b) { return a + b; });
    sixteens(p, n, step, 0.0f, [sum](float* q) { divide(q, sum); });
}

}  // namespace

Status net_exp_f32(void* y, int32_t stride, int32_t element_stride, Size size) {
    return each(y, stride, element_stride, size, [](float v) { return exponential(v); });
}

Status net_sigmoid_f32(void* y, int32_t stride, int32_t element_stride, Size size) {
    return each(y, stride, element_stride, size, [](float v) { return settle(1.0f / (exponential(-v) + 1.0f)); });
}

Status net_mirrored_sigmoid_f32(void* y, int32_t stride, int32_t element_stride, Size size) {
    return each(y, stride, element_stride, size, [](float v) { return settle(1.0f / (exponential(v) + 1.0f)); });
}

// NaN and -0 stay.
Status net_rectifier_f32(void* y, int32_t stride, int32_t element_stride, Size size) {
    return each(y, stride, element_stride, size, [](float v) { return settle(v < 0.0f ? 0.0f : v); });
}

Status net_leaky_rectifier_f32(void* y, int32_t stride, int32_t element_stride, Size size) {
    return each(y, stride, element_stride, size, [](float v) { return settle(v >= 0.0f ? v : 0.01f * v); });
}

Status net_softmax_f32(void* y, int32_t stride, int32_t element_stride, Size size) {
    if (Status s = check(size, y)) return s;
    if (element_stride <= 0 || element_stride % 4) return kBadArg;
    for (int64_t r = 0; r < size.height; ++r) softmax_row(row<float>(y, stride, r), size.width, element_stride / 4);
    return kOk;
}

}  // namespace tarn::k::TARN_LEVEL
