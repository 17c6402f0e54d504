// What the cases of morphology leave open: states that do not fit a call or are not whole.
#include "kernels/morph/morph.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "cases/morph.h"
#include "kernels/check.h"

namespace {

using namespace tarn;
using cases::Element;
using k::Size;

constexpr Size kSize{50, 20};
const Element kElement{"ellipse", {9, 9}, {4, 4}};

k::Status erode(std::vector<uint8_t>& state, Size size = kSize, k::Type type = k::Type::u8, k::Form form = k::Form::c1,
                int32_t border = k::kMorphReplicate) {
    static std::vector<uint8_t> src(1 << 16), dst(1 << 16);
    return (*k::erode_kernels.find(type, form))(src.data(), 1024, dst.data(), 1024, size, border, state.data());
}
std::vector<uint8_t> make(uint32_t category, Size size = kSize, const Element& e = kElement) {
    return cases::make_state(k::Type::u8, k::Form::c1, category, size, e);
}

TEST(morph, refuses_states_of_other_calls) {
    std::vector<uint8_t> state = make(k::kMorphBasic), advanced = make(k::kMorphAdvanced);
    EXPECT_EQ(erode(state), k::kOk);
    EXPECT_EQ(erode(state, {50, 7}), k::kOk);  // of any height
    EXPECT_EQ(erode(state, {49, 20}), k::kBadArg);
    EXPECT_EQ(erode(state, kSize, k::Type::f32), k::kBadArg);
    EXPECT_EQ(erode(state, kSize, k::Type::u8, k::Form::c3), k::kBadArg);
    EXPECT_EQ(erode(state, kSize, k::Type::u8, k::Form::c1, 0), k::kBadArg);
    EXPECT_EQ(erode(advanced), k::kBadArg);
}

TEST(morph, refuses_states_with_a_bit_changed_or_other_bytes) {
    const std::vector<uint8_t> whole = make(k::kMorphBasic);
    k::MorphHeader header;
    memcpy(&header, whole.data(), sizeof header);
    const size_t plan = sizeof header + header.steps * 20;
    ASSERT_LT(plan, whole.size());
    test::at_every_level([&](int level) {
        std::vector<uint8_t> state = whole;
        for (size_t bit = 0; bit < 8 * plan; ++bit) {
            state[bit / 8] ^= uint8_t(1 << bit % 8);
            ASSERT_EQ(erode(state), k::kBadArg) << "level " << level << ", bit " << bit;
            state[bit / 8] ^= uint8_t(1 << bit % 8);
        }
        std::mt19937 random(7);
        for (size_t kept = 0; kept < plan; kept += 4) {
            for (size_t i = kept; i < state.size(); ++i) state[i] = uint8_t(random());
            ASSERT_EQ(erode(state), k::kBadArg) << "level " << level << ", " << kept << " bytes kept";
            state = whole;
        }
        EXPECT_EQ(erode(state), k::kOk);
    });
}

TEST(morph, refuses_elements_and_regions_that_are_none) {
    uint64_t bytes = 0;
    const uint8_t cells[4] = {1, 1, 1, 1};
    const auto size = [&](uint32_t category, Size region, Size mask) {
        return k::morph_size_u8_c1(category, region, cells, 2, mask, &bytes);
    };
    EXPECT_EQ(size(k::kMorphBasic, {9, 0}, {2, 2}), k::kOk);
    EXPECT_EQ(size(k::kMorphAdvanced, {9, 0}, {2, 2}), k::kBadSize);
    EXPECT_EQ(size(k::kMorphBasic, {0, 9}, {2, 2}), k::kBadSize);
    EXPECT_EQ(size(k::kMorphBasic, {9, 9}, {2, -2}), k::kBadSize);
    EXPECT_EQ(size(2, {9, 9}, {2, 2}), k::kBadArg);
    EXPECT_EQ(size(6, {9, 9}, {2, 2}), k::kBadArg);
    ASSERT_EQ(size(k::kMorphBasic, {INT32_MAX, 1}, {2, 2}), k::kOk);
    EXPECT_LT(bytes, 1u << 20);  // a strip's, not a row's
    std::vector<uint8_t> state(4096);
    for (const k::Offset anchor : {k::Offset{2, 0}, {-1, 0}, {0, 2}, {0, -1}})
        EXPECT_EQ(k::morph_init_u8_c1(state.data(), k::kMorphBasic, {9, 9}, cells, 2, {2, 2}, anchor), k::kBadArg);
}

}  // namespace
