// Every kernel at every level. A family: its cases' header and one line here.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "cases/arith.h"
#include "cases/compare.h"
#include "cases/contour.h"
#include "cases/convert.h"
#include "cases/copy.h"
#include "cases/logic.h"
#include "cases/mapping.h"
#include "cases/mirror.h"
#include "cases/net.h"
#include "cases/resize.h"
#include "cases/set.h"
#include "cases/stats.h"
#include "kernels/check.h"
#include "kernels/base/runtime.h"

using tarn::test::Check;

TEST(kernels, arith) { tarn::cases::arith_cases(Check{}); }
TEST(kernels, compare) { tarn::cases::compare_cases(Check{}); }
TEST(kernels, contour) { tarn::cases::contour_cases(Check{}); }
TEST(kernels, convert) { tarn::cases::convert_cases(Check{}); }
TEST(kernels, copy) { tarn::cases::copy_cases(Check{}); }
TEST(kernels, logic) { tarn::cases::logic_cases(Check{}); }
TEST(kernels, mapping) { tarn::cases::mapping_cases(Check{}); }
TEST(kernels, mirror) { tarn::cases::mirror_cases(Check{}); }
TEST(kernels, net) { tarn::cases::net_cases(Check{}); }
TEST(kernels, resize) { tarn::cases::resize_cases(Check{}); }
TEST(kernels, set) { tarn::cases::set_cases(Check{}); }
TEST(kernels, stats) { tarn::cases::stats_cases(Check{}); }

// Outputs of every size stored around the cache, as only large ones are otherwise.
class kernels_streamed : public testing::Test {
    const int64_t before_ = std::exchange(tarn::k::stream_bytes, 0);
    void TearDown() override { tarn::k::stream_bytes = before_; }
};
TEST_F(kernels_streamed, convert) { tarn::cases::convert_cases(Check{}); }
TEST_F(kernels_streamed, copy) { tarn::cases::copy_cases(Check{}); }
TEST_F(kernels_streamed, mapping) { tarn::cases::mapping_cases(Check{}); }

// Last: runs behind the families, in the order of this file.
TEST(kernels_coverage, every_kernel_has_a_case) {
    if (testing::GTEST_FLAG(filter) != "*") GTEST_SKIP() << "only some families were run";
    const auto& checked = tarn::test::checked_kernels();
    int seen = 0;
    for (const std::string& name : tarn::test::all_kernels()) {
        const bool has = std::find(checked.begin(), checked.end(), name) != checked.end();
        EXPECT_TRUE(has) << name << " has no case";
        seen += has;
    }
    const int levels = tarn::test::highest_level() + 1;
    std::printf("%d kernels checked at %d levels\n", seen, levels);
    for (int l = levels; l < tarn::k::kLevelCount; ++l)
        std::printf("level %s skipped: this machine lacks it\n", tarn::k::kLevelNames[l]);
}
