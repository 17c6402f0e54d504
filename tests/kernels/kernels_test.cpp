// What concerns the kernels of all families. Each family's own test is made of its cases: families.h.
#include <cstdio>
#include <set>
#include <utility>

#include "kernels/base/runtime.h"
#include "kernels/families.h"

namespace tarn::test {

std::map<std::string, void (*)(const Visit&)>& families() {
    static std::map<std::string, void (*)(const Visit&)> all;
    return all;
}

}  // namespace tarn::test

using namespace tarn::test;

// Outputs of every size stored around the cache, as only large ones are otherwise.
class kernels_streamed : public testing::TestWithParam<const char*> {
    const int64_t before_ = std::exchange(tarn::k::stream_bytes, 0);
    void TearDown() override { tarn::k::stream_bytes = before_; }
};
TEST_P(kernels_streamed, checked) { families().at(GetParam())(Check{}); }
INSTANTIATE_TEST_SUITE_P(, kernels_streamed, testing::Values("border", "colour", "convert", "copy", "mapping"),
                         [](const auto& family) { return std::string(family.param); });

TEST(kernels_coverage, every_kernel_has_a_case) {
    std::set<std::string> with_case;
    for (const auto& [name, cases] : families())
        cases([&](const tarn::cases::Case& c) { with_case.insert(c.name.substr(0, c.name.find(' '))); });
    for (const std::string& name : all_kernels()) EXPECT_TRUE(with_case.count(name)) << name;
    const std::vector<int>& levels = checked_levels();
    std::printf("%zu kernels, checked at %zu levels\n", all_kernels().size(), levels.size());
    for (int l = levels.back() + 1; l < tarn::k::kLevelCount; ++l)
        std::printf("level %s skipped: this machine lacks it\n", tarn::k::kLevelNames[l]);
}
