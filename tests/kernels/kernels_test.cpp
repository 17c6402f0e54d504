// Every kernel at every level. A family: its cases' header and its name here.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <utility>

#include "cases/arith.h"
#include "cases/border.h"
#include "cases/compare.h"
#include "cases/contour.h"
#include "cases/convert.h"
#include "cases/copy.h"
#include "cases/filter.h"
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

// X for every family.
#define FAMILIES(X) \
    X(arith)        \
    X(border)       \
    X(compare) X(contour) X(convert) X(copy) X(filter) X(logic) X(mapping) X(mirror) X(net) X(resize) X(set) X(stats)

#define CHECK(family) \
    TEST(kernels, family) { tarn::cases::family##_cases(Check{}); }
FAMILIES(CHECK)

// Outputs of every size stored around the cache, as only large ones are otherwise.
class kernels_streamed : public testing::Test {
    const int64_t before_ = std::exchange(tarn::k::stream_bytes, 0);
    void TearDown() override { tarn::k::stream_bytes = before_; }
};
TEST_F(kernels_streamed, border) { tarn::cases::border_cases(Check{}); }
TEST_F(kernels_streamed, convert) { tarn::cases::convert_cases(Check{}); }
TEST_F(kernels_streamed, copy) { tarn::cases::copy_cases(Check{}); }
TEST_F(kernels_streamed, mapping) { tarn::cases::mapping_cases(Check{}); }

TEST(kernels_coverage, every_kernel_has_a_case) {
    std::set<std::string> with_case;
    const auto collect = [&](const tarn::cases::Case& c) { with_case.insert(c.name.substr(0, c.name.find(' '))); };
#define COLLECT(family) tarn::cases::family##_cases(collect);
    FAMILIES(COLLECT)
    for (const std::string& name : tarn::test::all_kernels()) EXPECT_TRUE(with_case.count(name)) << name;
    const std::vector<int>& levels = tarn::test::checked_levels();
    std::printf("%zu kernels, checked at %zu levels\n", tarn::test::all_kernels().size(), levels.size());
    for (int l = levels.back() + 1; l < tarn::k::kLevelCount; ++l)
        std::printf("level %s skipped: this machine lacks it\n", tarn::k::kLevelNames[l]);
}
