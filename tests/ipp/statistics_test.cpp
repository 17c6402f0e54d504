// Statistics through the module.
#include <cmath>

#include "ipp/fixture.h"

using namespace tarn::test;

namespace {

using Floats = std::vector<float>;

int64_t minmax(Array& a, float* lo, float* hi) { return run<TarnMinMax>("tarn::minmax", lo, hi, &a); }
int64_t mean(Array& a, float* means) { return run<TarnMean>("tarn::mean", means, &a); }
std::vector<int32_t> count(Array& a, const float* lower, const float* upper) {
    std::vector<int32_t> counts(4, -9);
    EXPECT_EQ(run<TarnCountInRange>("tarn::count-in-range", counts.data(), &a, lower, upper), 0);
    return counts;
}

}  // namespace

TEST(statistics, of_each_type_give_a_value_per_channel_and_pass_over_the_fourth) {
    each_type({LUMO_U8, LUMO_S16, LUMO_F32}, {1, 3, 4}, [](LumoELEMTYPE type) {
        Array a(type, 5, 3, 12, type == s16(1));
        for (int i = 0; i < 15 * a.channels; ++i) put(&a, 0, i % 3, i / 3, 10 * (i / 3 % a.channels));
        for (int c = 0; c < a.channels; ++c) put(&a, 4, 2, c, 10 * c + 1);
        Floats lo(4, -9), hi(4, -9), m(4, -9), want_lo = lo, want_hi = lo, want_m = lo;
        std::vector<int32_t> want(4, -9);
        for (int c = 0; c < std::min(a.channels, 3); ++c) {
            const size_t i = size_t(c);
            want_lo[i] = 10.0f * c, want_hi[i] = 10.0f * c + 1, want_m[i] = float(10 * c + 1 / 15.0), want[i] = 14;
        }
        EXPECT_EQ(minmax(a, lo.data(), hi.data()), 0);
        EXPECT_EQ(mean(a, m.data()), 0);
        EXPECT_EQ(lo, want_lo);
        EXPECT_EQ(hi, want_hi);
        EXPECT_EQ(m, want_m);
        if (type != s16(a.channels)) {  // which are not counted
            EXPECT_EQ(count(a, want_lo.data(), want_lo.data()), want);
        }
    });
}

TEST(minmax, writes_only_the_vectors_that_it_gets) {
    Array a = Array(u8(3), 9, 2).filled(3);
    Floats lo(3), hi(3), only_lo(3, -9), only_hi(3, -9);
    minmax(a, lo.data(), hi.data());
    minmax(a, only_lo.data(), nullptr);
    minmax(a, nullptr, only_hi.data());
    EXPECT_EQ(only_lo, lo);
    EXPECT_EQ(only_hi, hi);
    EXPECT_EQ(minmax(a, nullptr, nullptr), 0);
}

TEST(minmax, of_floats_passes_over_nan) {
    Array a(f32(1), 40, 2);
    a.set<float>(NAN);
    float lo = 0, hi = 0;
    minmax(a, &lo, &hi);
    EXPECT_TRUE(std::isnan(lo) && std::isnan(hi));
    a.at<float>(39, 1) = -0.0f;
    minmax(a, &lo, &hi);
    EXPECT_TRUE(lo == 0 && hi == 0 && !std::signbit(lo) && !std::signbit(hi));
}

TEST(count_in_range, floors_and_wraps_its_bounds) {
    Array a(u8(1), 256, 2, 5);
    for (int x = 0; x < 256; ++x) a.at<uint8_t>(x, 0) = a.at<uint8_t>(x, 1) = uint8_t(x);
    const float bounds[][2] = {{10.7f, 20.2f}, {-1, 255},    {0, 256},  {20, 10},
                               {0, 255},       {-0.5f, 300}, {3e9f, 1}, {NAN, INFINITY}};
    const int32_t values[] = {11, 1, 1, 0, 256, 0, 2, 1};
    for (int i = 0; i < 8; ++i) EXPECT_EQ(count(a, &bounds[i][0], &bounds[i][1])[0], 2 * values[i]) << i;
    EXPECT_EQ(count(a, nullptr, nullptr), (std::vector<int32_t>{512, -9, -9, -9}));
}

TEST(count_in_range, has_bounds_for_each_channel) {
    Array a(f32(4), 5, 3);
    a.set<float>(1);
    a.at<float>(0, 0, 1) = INFINITY;
    a.at<float>(1, 0, 2) = NAN;
    const Floats lower{1, 0, 0.5f}, upper{1, 1, INFINITY};
    EXPECT_EQ(count(a, lower.data(), upper.data()), (std::vector<int32_t>{15, 14, 14, -9}));
    EXPECT_EQ(count(a, nullptr, nullptr), (std::vector<int32_t>{15, 14, 14, -9}));
}

TEST(statistics, without_pixels_write_nothing) {
    Array a(u8(1), 4, 4);
    a.mat.width = 0;
    float lo = -9, m = -9;
    EXPECT_EQ(minmax(a, &lo, nullptr), 0);
    EXPECT_EQ(mean(a, &m), 0);
    EXPECT_EQ(count(a, nullptr, nullptr)[0], -9);
    EXPECT_TRUE(lo == -9 && m == -9);
}
