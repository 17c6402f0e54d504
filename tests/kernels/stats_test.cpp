// Statistics over planes so large that the counters and sums of every level are emptied on the way, which the shapes of
// the family's cases do not reach. One row of memory serves as many: its stride is 0.
#include <gtest/gtest.h>

#include <vector>

#include "kernels/check.h"
#include "kernels/stats/stats.h"

using namespace tarn;

namespace {

constexpr k::Size kLarge{99999, 90};  // 9 million pixels; an odd end in every row

template <class T, class Fn>
void over_each(const std::vector<T>& values, int channels, Fn check) {
    for (const T value : values) {
        const std::vector<T> row(size_t(kLarge.width * channels), value);
        test::at_every_level([&](int level) {
            SCOPED_TRACE(testing::Message()
                         << "level " << level << ", value " << double(value) << ", channels " << channels);
            check(row.data(), value);
        });
    }
}

}  // namespace

TEST(stats_large, means_are_exact) {
    for (const auto& [mean, channels] : {std::pair{&k::plane_mean_u8_c1, 1}, {&k::plane_mean_u8_c3, 3}})
        over_each<uint8_t>({255, 1}, channels, [&, mean = mean](const uint8_t* row, uint8_t value) {
            double m[3] = {-1, value * 1.0, value * 1.0};
            ASSERT_EQ((*mean)(row, 0, kLarge, m), k::kOk);
            for (double one : m) EXPECT_EQ(one, value);
        });
    for (const auto& [mean, channels] : {std::pair{&k::plane_mean_s16_c1, 1}, {&k::plane_mean_s16_c3, 3}})
        over_each<int16_t>({-32768, 32767, 5}, channels, [&, mean = mean](const int16_t* row, int16_t value) {
            double m[3] = {-1, value * 1.0, value * 1.0};
            ASSERT_EQ((*mean)(row, 0, kLarge, m), k::kOk);
            for (double one : m) EXPECT_EQ(one, value);
        });
}

TEST(stats_large, counts_are_exact) {
    static constexpr int32_t kAll = kLarge.width * kLarge.height;
    over_each<uint8_t>({0, 7, 255}, 3, [](const uint8_t* row, uint8_t value) {
        const uint8_t lower[3] = {0, value, 1}, upper[3] = {255, value, 0};
        int32_t counts[3];
        ASSERT_EQ(k::count_in_range_u8_c3(row, 0, kLarge, lower, upper, counts), k::kOk);
        EXPECT_EQ(counts[0], kAll);
        EXPECT_EQ(counts[1], kAll);
        EXPECT_EQ(counts[2], 0);
    });
}
