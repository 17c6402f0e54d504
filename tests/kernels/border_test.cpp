// What the borders refuse, with nothing written: destinations too small, negative corners, no constants.
#include "kernels/border/border.h"

#include <gtest/gtest.h>

#include <vector>

#include "kernels/check.h"

using namespace tarn::k;

TEST(border, refuses_a_destination_too_small) {
    const std::vector<uint8_t> src(4 * 3, 7);
    const uint8_t constant = 1;
    struct {
        Size dst;
        Offset corner;
        Status status;
    } const rows[] = {
        {{4, 3}, {0, 0}, kOk},
        {{6, 5}, {2, 2}, kOk},
        {{3, 3}, {0, 0}, kBadSize},
        {{4, 2}, {0, 0}, kBadSize},
        {{6, 5}, {3, 2}, kBadSize},
        {{6, 5}, {2, 3}, kBadSize},
        {{6, 5}, {-1, 0}, kBadArg},
        {{6, 5}, {0, -1}, kBadArg},
        {{-1, 5}, {0, 0}, kBadSize},
        {{6, 5}, {1, INT32_MAX}, kBadSize},
        {{6, 5}, {INT32_MAX, 1}, kBadSize},
        {{INT32_MIN, 5}, {1, 1}, kBadSize},
        {{6, 5}, {INT32_MIN, 1}, kBadArg},
    };
    tarn::test::at_every_level([&](int level) {
        for (const auto& r : rows) {
            std::vector<uint8_t> dst(6 * 5, 9);
            const auto untouched = dst;
            EXPECT_EQ(border_replicate_u8_c1(src.data(), 4, {4, 3}, dst.data(), 6, r.dst, r.corner), r.status);
            EXPECT_TRUE(r.status == kOk || dst == untouched) << "level " << level;
            EXPECT_EQ(border_constant_u8_c1(src.data(), 4, {4, 3}, dst.data(), 6, r.dst, r.corner, &constant),
                      r.status);
            EXPECT_TRUE(r.status == kOk || dst == untouched) << "level " << level;
        }
        std::vector<uint8_t> dst(6 * 5, 9);
        EXPECT_EQ(border_constant_u8_c1(src.data(), 4, {4, 3}, dst.data(), 6, {6, 5}, {1, 1}, nullptr), kNull);
    });
}
