// The warp of two quadrangles, and when its fourth corners are told not to fit.
#include "kernels/warp/quad.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using namespace tarn::k;

TEST(quad, is_the_warp_of_the_first_three_corners) {
    const Quad from = {{{3, 4}, {103, 14}, {93, 64}, {-7, 54}}}, to = {{{50, -20}, {450, 10}, {430, 190}, {30, 160}}};
    Affine m;
    EXPECT_EQ(warp_of(from, to, m), kOk);
    for (int i = 0; i < 4; ++i) {
        const Point p = from.corners[i], q = to.corners[i];
        EXPECT_NEAR(m.a * p.x + m.b * p.y + m.tx, q.x, 1e-10);
        EXPECT_NEAR(m.c * p.x + m.d * p.y + m.ty, q.y, 1e-10);
    }
}

TEST(quad, tells_fourth_corners_that_lie_elsewhere_by_a_millionth_of_the_size) {
    const Quad from = {{{0, 0}, {9, 0}, {9, 5}, {0, 5}}};
    for (const double size : {1e-3, 1.0, 1e5})
        for (const bool across : {false, true}) {
            const double w = across ? size / 7 : size, h = across ? size : size / 7;
            for (const auto& [beside, status] : {std::pair{0.9e-6, kOk}, std::pair{1.1e-6, kQuadsDiffer},
                                                 std::pair{-1.1e-6, kQuadsDiffer}, std::pair{0.5, kQuadsDiffer}}) {
                Affine m;
                EXPECT_EQ(warp_of(from, {{{0, 0}, {w, 0}, {w, h}, {beside * size, h}}}, m), status) << beside;
                EXPECT_EQ(warp_of(from, {{{0, 0}, {w, 0}, {w, h}, {0, h + beside * size}}}, m), status) << beside;
                EXPECT_NEAR(m.d, h / 5, 1e-12 * size);
            }
        }
    Affine m;
    EXPECT_EQ(warp_of(from, {{{0, 0}, {9, 0}, {9, 5}, {NAN, 5}}}, m), kQuadsDiffer);
}

TEST(quad, without_length_in_one_direction_keeps_its_scale_there_and_on_a_line_is_refused) {
    const Quad column = {{{4, 1}, {4, 1}, {4, 6}, {4, 6}}}, longer = {{{8, 2}, {8, 2}, {8, 12}, {8, 12}}},
               dot = {{{5, 7}, {5, 7}, {5, 7}, {5, 7}}}, line = {{{0, 0}, {1, 3}, {2, 6}, {1, 3}}},
               square = {{{0, 0}, {1, 0}, {1, 1}, {0, 1}}};
    Affine m;
    const auto expect = [&](double a, double tx, double d, double ty) {
        EXPECT_EQ(std::vector({m.a, m.b, m.tx, m.c, m.d, m.ty}), std::vector({a, 0.0, tx, 0.0, d, ty}));
    };
    EXPECT_EQ(warp_of(column, longer, m), kOk);
    expect(1, 4, 2, 0);
    EXPECT_EQ(warp_of(dot, dot, m), kOk);
    expect(1, 0, 1, 0);
    EXPECT_EQ(warp_of(column, square, m), kBadArg);
    EXPECT_EQ(warp_of(dot, column, m), kBadArg);
    EXPECT_EQ(warp_of(line, square, m), kBadArg);
    EXPECT_EQ(warp_of({{{0, 0}, {NAN, 0}, {1, 1}, {0, 1}}}, square, m), kBadArg);
    EXPECT_EQ(warp_of({{{0, 0}, {1e200, 0}, {1e200, 1e200}, {0, 1}}}, square, m), kBadArg);
}
