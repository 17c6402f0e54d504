// For kernel sources only: the filters that pixels are interpolated by. A filter is a type with
//   kTaps                               2, 4 or 6: the pixels that an output is made of
//   weights(f, w)                       for kTapBlock positions at once: w[k][i] is the weight of tap k of the position
//                                       that lies f[i] (0 <= f < 1) to the right of tap kTaps / 2 - 1; their sum is 1
#pragma once

#include "kernels/base/body.h"

namespace tarn::k::TARN_LEVEL {
namespace {

constexpr int kTapBlock = 8;  // positions whose weights are computed together

struct Linear {
    static constexpr int kTaps = 2;
    static void weights(const double* f, double (*w)[kTapBlock]) {
        for (int i = 0; i < kTapBlock; ++i) {
            w[0][i] = 1.0 - f[i];
            w[1][i] = f[i];
        }
    }
};

// Catmull-Rom.
struct Cubic {
    static constexpr int kTaps = 4;
    static void weights(const double* f, double (*w)[kTapBlock]) {
        for (int i = 0; i < kTapBlock; ++i) {
            const double t = f[i], u = 1.0 - t;
            w[0][i] = -0.5 * t * u * u;
            w[1][i] = 1.0 + t * t * (1.5 * t - 2.5);
            w[2][i] = 1.0 + u * u * (1.5 * u - 2.5);
            w[3][i] = -0.5 * u * t * t;
        }
    }
};

// Three lobes. The weight at distance x is proportional to sin(pi x) sin(pi x / 3) / x^2, with x = f + m for m = 2, 1,
// 0, -1, -2, -3. Then sin(pi x) is the same but for its sign and drops out when the weights are divided by their sum,
// and the other sine is one of three combinations of sin(a) and cos(a) with a = pi f / 3. Both by their Taylor series:
// a < pi / 3, where the first term left out is below 2^-60. The C library's are not used, since they may differ between
// processors in the last bit.
struct Lanczos {
    static constexpr int kTaps = 6;
    static void weights(const double* f, double (*w)[kTapBlock]) {
        constexpr double kSin[] = {1.0 / 6,   1.0 / 20,  1.0 / 42,  1.0 / 72, 1.0 / 110,
                                   1.0 / 156, 1.0 / 210, 1.0 / 272, 1.0 / 342};
        constexpr double kCos[] = {1.0 / 2,   1.0 / 12,  1.0 / 30,  1.0 / 56, 1.0 / 90,
                                   1.0 / 132, 1.0 / 182, 1.0 / 240, 1.0 / 306};
        constexpr double kThirdOfPi = 1.0471975511965977462, kHalfRoot3 = 0.86602540378443864676;
        for (int i = 0; i < kTapBlock; ++i) {
            const double x = f[i], a = x * kThirdOfPi, a2 = a * a;
            double s = 1.0, c = 1.0;
#pragma GCC unroll 9
            for (int n = 8; n >= 0; --n) {
                s = 1.0 - a2 * kSin[n] * s;
                c = 1.0 - a2 * kCos[n] * c;
            }
            const double half = 0.5 * a * s, root = kHalfRoot3 * c, x2 = x * x;
            const double d0 = x + 2.0, d1 = x + 1.0, d3 = 1.0 - x, d4 = 2.0 - x, d5 = 3.0 - x;
            // All times x^2, which is 0 at x = 0, where tap 2 alone remains.
            const double w0 = (root - half) * (x2 / (d0 * d0)), w1 = -(root + half) * (x2 / (d1 * d1));
            const double w2 = x > 0.0 ? 2.0 * half : 1.0;
            const double w3 = (root - half) * (x2 / (d3 * d3)), w4 = -(root + half) * (x2 / (d4 * d4));
            const double w5 = 2.0 * half * (x2 / (d5 * d5));
            const double scale = 1.0 / (((w0 + w5) + (w1 + w4)) + (w2 + w3));
            w[0][i] = w0 * scale;
            w[1][i] = w1 * scale;
            w[2][i] = w2 * scale;
            w[3][i] = w3 * scale;
            w[4][i] = w4 * scale;
            w[5][i] = w5 * scale;
        }
    }
};

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
