// The choice of the processor level, as tables, and the float state that float operations run in.
#include "kernels/base/runtime.h"

#include <gtest/gtest.h>

#include <cfenv>

using namespace tarn::k;

TEST(level, follows_the_feature_mask) {
    constexpr uint64_t b3 = 8, b4 = 16, b5 = 32, b6 = 64, b8 = 256, b9 = 512;
    struct Row {
        uint64_t mask;
        bool wide;
        int level, sublevel;
    };
    const Row rows[] = {
        {0, false, 0, 0},           {0, true, 0, 0},
        {b3, false, 1, 0},          {b4, false, 2, 0},
        {b3 | b4, false, 2, 0},     {b3 | b4 | b5, false, 2, 1},
        {b5, false, 0, 0},          {b3 | b5, false, 1, 0},
        {b6, false, 3, 0},          {b3 | b4 | b5 | b6, true, 3, 0},
        {b6 | b8, true, 3, 0},      {b6 | b9, true, 3, 0},
        {b6 | b8 | b9, true, 4, 0}, {b6 | b8 | b9, false, 3, 0},
        {b8 | b9, true, 4, 0},      {b4 | b5 | b8 | b9, false, 2, 1},
        {~uint64_t(0), true, 4, 0}, {~uint64_t(0), false, 3, 0},
    };
    for (const Row& r : rows) {
        const Level got = choose_level(r.mask, r.wide);
        EXPECT_EQ(got.level, r.level) << std::hex << r.mask << " wide " << r.wide;
        EXPECT_EQ(got.sublevel, r.sublevel) << std::hex << r.mask << " wide " << r.wide;
    }
}

// A hypervisor may hide single features: a level is told only by all that its code uses.
TEST(level, features_are_told_only_with_all_that_they_stand_on) {
    constexpr uint32_t ssse3 = 1u << 9, sse41 = 1u << 19, sse42 = 1u << 20, popcnt = 1u << 23;
    constexpr uint32_t v2 = ssse3 | sse41 | sse42 | popcnt, leaf1 = v2 | 1u << 12 | 1u << 22 | 1u << 28 | 1u << 29;
    constexpr uint32_t avx2 = 1u << 3 | 1u << 5 | 1u << 8, wide_a = 1u << 16 | 1u << 17 | 1u << 28;
    constexpr uint32_t wide_b = 1u << 30 | 1u << 31, leaf7 = avx2 | wide_a | wide_b, lzcnt = 1u << 5;
    constexpr uint64_t b3 = 8, b4 = 16, b5 = 32, b6 = 64, b8 = 256, b9 = 512;
    struct Row {
        Identity identity;
        uint64_t mask;
    };
    const Row rows[] = {
        {{0, 0, 0, 0}, 0},
        {{ssse3, leaf7, lzcnt, 0xe6}, b3},
        {{ssse3 | sse41, 0, 0, 0}, b3},
        {{ssse3 | sse42, 0, 0, 0}, b3},
        {{ssse3 | sse41 | sse42, 0, 0, 0}, b3 | b4},
        {{v2, leaf7, lzcnt, 0xe6}, b3 | b4 | b5},
        {{leaf1, leaf7, lzcnt, 0xe6}, b3 | b4 | b5 | b6 | b8 | b9},
        {{leaf1, avx2, lzcnt, 0x6}, b3 | b4 | b5 | b6},
        {{leaf1, leaf7, lzcnt, 0x2}, b3 | b4 | b5},
        {{leaf1, leaf7, 0, 0xe6}, b3 | b4 | b5},
        {{leaf1 & ~popcnt, leaf7, lzcnt, 0xe6}, b3 | b4},
        {{leaf1 & ~sse42, leaf7, lzcnt, 0xe6}, b3 | b5},
        {{leaf1, avx2 | wide_a, lzcnt, 0xe6}, b3 | b4 | b5 | b6 | b8},
        {{leaf1, wide_a | wide_b, lzcnt, 0xe6}, b3 | b4 | b5},
    };
    for (const Row& r : rows)
        EXPECT_EQ(features_of(r.identity), r.mask)
            << std::hex << r.identity.leaf1_c << " " << r.identity.leaf7_b << " " << r.identity.extended_c;
}

TEST(level, is_the_same_when_selected_twice) {
    EXPECT_EQ(select_level(), kOk);
    const int level = active_level, sublevel = active_sublevel;
    EXPECT_EQ(select_level(), kOk);
    EXPECT_EQ(active_level, level);
    EXPECT_EQ(active_sublevel, sublevel);
}

TEST(float_state, is_set_and_put_back) {
    volatile float one = 1.0f, three = 3.0f;
    const float nearest = one / three;
    std::fesetround(FE_DOWNWARD);
    const float down = one / three;
    const uint32_t saved = set_float_state();
    const float inside = one / three;
    restore_float_state(saved);
    const float after = one / three;
    std::fesetround(FE_TONEAREST);
    EXPECT_EQ(inside, nearest);
    EXPECT_EQ(after, down);
    EXPECT_NE(nearest, down);
}

#if defined(__x86_64__)
TEST(float_state, gives_the_callers_exception_flags_back) {
    volatile float one = 1.0f, three = 3.0f, zero = 0.0f, result;
    std::feclearexcept(FE_ALL_EXCEPT);
    result = one / zero;  // the caller's own
    const uint32_t saved = set_float_state();
    result = one / three;
    EXPECT_TRUE(std::fetestexcept(FE_INEXACT));
    restore_float_state(saved);
    EXPECT_EQ(std::fetestexcept(FE_ALL_EXCEPT), FE_DIVBYZERO);
    std::feclearexcept(FE_ALL_EXCEPT);
    (void)result;
}
#endif
