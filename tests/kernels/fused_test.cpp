// The exact fused multiply-add against exact integers. This file is built for the lowest level, whatever the machine, so it
// is the emulation that is tested; the kernels that use it are tested at every level. fused_portable_test.cpp builds it
// again for processors without vectors of ours.
#ifndef TARN_LEVEL
#define TARN_LEVEL fused
#endif
#include "kernels/simd/fused.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <random>

namespace tarn::k::TARN_LEVEL {
namespace {

using Wide = __int128;

// value * 2^exponent, rounded to the nearest float, ties to the even one.
float rounded(Wide value, int exponent) {
    const bool negative = value < 0;
    Wide v = negative ? -value : value;
    int bits = 0;
    while (v >> bits) ++bits;
    const int least = std::max(exponent + bits - 24, -149);  // the exponent of the result's last place
    if (const int dropped = least - exponent; dropped > 0) {
        const Wide half = Wide(1) << std::min(dropped - 1, 126), rest = dropped > 126 ? v : v & (2 * half - 1);
        v = dropped > 126 ? 0 : v >> dropped;
        if (rest > half || (rest == half && v % 2)) ++v;
        exponent = least;
    }
    const float f = float(std::ldexp(double(v), exponent));
    return negative ? -f : f;
}

// a * b + c by its definition.
float expected(float a, float b, float c) {
    if (!std::isfinite(a) || !std::isfinite(b) || !std::isfinite(c)) return float(double(a) * double(b) + double(c));
    const auto integer = [](float f, int& exponent) {
        const float mantissa = std::frexp(f, &exponent);
        exponent -= 24;
        return Wide(std::ldexp(mantissa, 24));
    };
    int ea, eb, ec;
    Wide p = integer(a, ea) * integer(b, eb), q = integer(c, ec);
    int ep = ea + eb;
    if (p == 0 || q == 0) return p == 0 ? (q == 0 ? a * b + c : c) : rounded(p, ep);
    // The smaller one beyond 2^-70 of the other only tells on which side of it the sum lies.
    if (ep > ec + 70) q = q < 0 ? -1 : 1, ec = ep - 70;
    if (ec > ep + 100) p = p < 0 ? -1 : 1, ep = ec - 100;
    const int e = std::min(ep, ec);
    return rounded((p << (ep - e)) + (q << (ec - e)), e);
}

bool same(float got, float want) {
    return std::isnan(want) ? std::isnan(got) : std::bit_cast<uint32_t>(got) == std::bit_cast<uint32_t>(want);
}

// The scalar, and the vector with its other elements plain and, by turns, as doubtful.
void check(float a, float b, float c) {
    const float want = expected(a, b, c), got = mul_add(a, b, c);
    ASSERT_PRED2(same, got, want) << std::hexfloat << a << " * " << b << " + " << c;
    static int lane = 0;
    lane = (lane + 1) % (2 * kLanes<float>);
    const bool all = lane >= kLanes<float>;
    F32 x = all ? splat(a) : splat(3.0f), y = all ? splat(b) : splat(0.5f), z = all ? splat(c) : splat(-7.0f);
    x[lane % kLanes<float>] = a, y[lane % kLanes<float>] = b, z[lane % kLanes<float>] = c;
    const F32 v = mul_add(x, y, z);
    for (int i = 0; i < kLanes<float>; ++i)
        ASSERT_PRED2(same, v[i], all || i == lane ? want : -5.5f)
            << "element " << i << std::hexfloat << ": " << x[i] << " * " << y[i] << " + " << z[i];
}

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kSpecial[] = {0,
                              1,
                              1.5f,
                              0x1.000002p0f,
                              0x1.fffffep0f,
                              0x1.8p1f,
                              0x1p23f,
                              0x1.000002p24f,
                              0x1p-23f,
                              0x1p-24f,
                              0x1p-25f,
                              0x1p-48f,
                              0x1p-100f,
                              0x1p-126f,
                              0x1p-149f,
                              0x1.8p-148f,
                              0x1p-63f,
                              0x1.000002p-63f,
                              0x1p-75f,
                              0x1p-86f,
                              0x1p100f,
                              0x1p127f,
                              0x1.fffffep127f,
                              0x1.fffffcp-127f,
                              kInfinity,
                              std::numeric_limits<float>::quiet_NaN()};

}  // namespace

TEST(TARN_LEVEL, special_values) {
    for (const float a : kSpecial)
        for (const float b : kSpecial)
            for (const float c : kSpecial)
                for (int signs = 0; signs < 4; ++signs) check(signs & 1 ? -a : a, b, signs & 2 ? -c : c);
}

TEST(TARN_LEVEL, any_bits) {
    std::mt19937 rng(1);
    for (int i = 0; i < 300000; ++i)
        check(std::bit_cast<float>(uint32_t(rng())), std::bit_cast<float>(uint32_t(rng())),
              std::bit_cast<float>(uint32_t(rng())));
}

// Sums beside a half-way between two floats, too near it for a double to tell: the product is half of c's last place but
// for a rest, which is up to 2^-24 of it. In denormals too.
TEST(TARN_LEVEL, half_ways) {
    std::mt19937 rng(2);
    for (int i = 0; i < 300000; ++i) {
        const int last = rng() % 2 ? -149 : int(rng() % 200) - 149;  // the exponent of c's last place
        const float a = std::ldexp(float((rng() & 0x7fffff) + 0x800000), last / 2);
        const float b = float(std::ldexp(1.0, last - 1) / double(a));
        const float c = std::ldexp(float(rng() & 0xffffff), last);
        check(rng() % 2 ? -a : a, b, rng() % 2 ? -c : c);
    }
}

// What is left of a product when most of it is taken off.
TEST(TARN_LEVEL, cancelled) {
    std::mt19937 rng(3);
    for (int i = 0; i < 100000; ++i) {
        const int exponent = int(rng() % 120) - 75;
        const float a = std::ldexp(float(rng() & 0xffffff), exponent),
                    b = std::ldexp(float(rng() & 0xffffff), exponent);
        check(a, -b, a * b);
    }
}

}  // namespace tarn::k::TARN_LEVEL
