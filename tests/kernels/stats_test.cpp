// Statistics over planes so large that the counters and sums of every level are emptied on the way, which the shapes of
// the family's cases do not reach. One row of memory serves as many: its stride is 0.
#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "kernels/check.h"
#include "kernels/stats/stats.h"

using namespace tarn;

// check(row of one value, value, kernel) at every level for an operation's kernels of element types Ts.
template <class... Ts>
void over_large_planes(const auto& kernels, auto check) {
    cases::each_kernel<Ts...>("", kernels, [&]<class T>(T, const auto& kernel) {
        for (const T value : {std::numeric_limits<T>::min(), std::numeric_limits<T>::max(), T(5)}) {
            const std::vector<T> row(size_t(99999 * kernel.channels), value);
            test::at_every_level([&](int level) {
                SCOPED_TRACE(kernel.name + " of " + std::to_string(value) + ", level " + std::to_string(level));
                check(row.data(), value, kernel);
            });
        }
    });
}
constexpr k::Size kLarge{99999, 90};  // 9 million pixels; an odd end in every row

TEST(stats_large, means_are_exact) {
    over_large_planes<uint8_t, int16_t>(k::plane_mean_kernels, [](const auto* row, auto value, const auto& mean) {
        double means[3];
        ASSERT_EQ(mean(row, 0, kLarge, means), k::kOk);
        for (int c = 0; c < mean.used; ++c) EXPECT_EQ(means[c], value);
    });
}

TEST(stats_large, counts_are_exact) {
    over_large_planes<uint8_t>(k::count_in_range_kernels, [](const auto* row, uint8_t value, const auto& count) {
        const uint8_t lower[3] = {value, 0, 1}, upper[3] = {value, 255, 0};
        int32_t counts[3];
        ASSERT_EQ(count(row, 0, kLarge, lower, upper, counts), k::kOk);
        for (int c = 0; c < count.used; ++c) EXPECT_EQ(counts[c], c == 2 ? 0 : kLarge.width * kLarge.height);
    });
}
