// Filters under masks so large that the counts of the cases' masks would not hold their cells. One row of memory serves as
// many: its stride is 0.
#include <gtest/gtest.h>

#include <vector>

#include "cases/heap.h"
#include "kernels/check.h"
#include "kernels/filter/filter.h"

using namespace tarn;

namespace {

// Rows of 0 0 0 1 1 1 2 2 2 ..., filtered by a mask wider than they vary: the median is the middle column's.
template <class T>
void median_of_steps(const k::Kernel<k::Filter>& median, k::Size mask) {
    constexpr int kWidth = 40;
    std::vector<T> row;
    for (int x = 0; x < kWidth + mask.width - 1; ++x) row.push_back(T(x / 3));
    test::at_every_level([&](int level) {
        T result[2][kWidth] = {};
        ASSERT_EQ(median(row.data(), 0, result, sizeof result[0], {kWidth, 2}, mask, {0, 0}, cases::heap()), k::kOk);
        for (int y = 0; y < 2; ++y)
            for (int x = 0; x < kWidth; ++x)
                ASSERT_EQ(result[y][x], T((x + (mask.width - 1) / 2) / 3))
                    << "level " << level << ", mask " << mask.width << " x " << mask.height << " at " << x << ", " << y;
    });
}

}  // namespace

TEST(filter_large, medians) {
    for (const k::Size mask : {k::Size{260, 255}, {257, 255}, {255, 256}, {700, 300}, {3, 70000}})
        median_of_steps<uint8_t>(k::median_u8_c1, mask);
}
