// The activations of a fully connected layer, in place. Each element goes through the same operations at every level and at every
// place of a row; plain loops, which compilers turn into vectors. Rows whose elements do not lie side by side pass through a buffer.
//
// The exponential is computed in double lanes: x = n ln 2 + r, a polynomial for e^r, the exponent n set by its bits, then one
// rounding to float, which is what decides the error: just over half a unit in the last place, denormals included.
#include "kernels/net.h"

#include "kernels/body.h"

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

// fn(first, count, index) over a row in pieces that lie side by side; index is a multiple of the lanes.
template <class Fn>
inline void pieces(float* p, int64_t n, int64_t step, Fn fn) {
    if (step == 1) return fn(p, n, int64_t(0));
    constexpr int64_t kPiece = 16 * kLanes;
    float buffer[kPiece];
    for (int64_t i = 0; i < n; i += kPiece) {
        const int64_t count = min(kPiece, n - i);
        for (int64_t j = 0; j < count; ++j) buffer[j] = p[(i + j) * step];
        fn(buffer, count, i);
        for (int64_t j = 0; j < count; ++j) p[(i + j) * step] = buffer[j];
    }
}

template <class Fn>
inline Status each(void* y, int32_t stride, int32_t element_stride, Size size, Fn fn) {
    if (Status s = check(size, y)) return s;
    if (element_stride <= 0 || element_stride % 4) return kBadArg;
    for (int64_t r = 0; r < size.height; ++r)
        pieces(row<float>(y, stride, r), size.width, element_stride / 4, [fn](float* p, int64_t n, int64_t) {
            for (int64_t i = 0; i < n; ++i) p[i] = fn(p[i]);
        });
    return kOk;
}

// Folds a row in sixteen lanes by index, then lanes 8, 4, 2 and 1 apart.
template <class T, class Fold>
inline void fold_into(T (&lanes)[kLanes], const float* p, int64_t n, Fold fold) {
    int64_t i = 0;
    for (; i + kLanes <= n; i += kLanes)
        for (int l = 0; l < kLanes; ++l) lanes[l] = fold(lanes[l], T(p[i + l]));
    for (int l = 0; i + l < n; ++l) lanes[l] = fold(lanes[l], T(p[i + l]));
}
template <class T, class Fold>
inline T fold_lanes(T (&lanes)[kLanes], Fold fold) {
    for (int apart = kLanes / 2; apart > 0; apart /= 2)
        for (int l = 0; l < apart; ++l) lanes[l] = fold(lanes[l], lanes[l + apart]);
    return lanes[0];
}

void softmax_row(float* p, int64_t n, int64_t step) {
    // A NaN may be missed by the maximum but not by the sum, which makes the whole row NaN.
    float largest[kLanes];
    for (float& v : largest) v = p[0];
    const auto greater = [](float a, float b) { return a < b ? b : a; };
    pieces(p, n, step, [&](const float* q, int64_t count, int64_t) { fold_into(largest, q, count, greater); });
    const float m = fold_lanes(largest, greater);
    double sums[kLanes] = {};
    const auto plus = [](double a, double b) { return a + b; };
    pieces(p, n, step, [&](float* q, int64_t count, int64_t) {
        for (int64_t i = 0; i < count; ++i) q[i] = exponential(q[i] - m);
        fold_into(sums, q, count, plus);
    });
    // Divided in double: the shares' own roundings are all that keeps them from adding up to 1.
    const double sum = fold_lanes(sums, plus);
    pieces(p, n, step, [sum](float* q, int64_t count, int64_t) {
        for (int64_t i = 0; i < count; ++i) q[i] = settle(float(q[i] / sum));
    });
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
