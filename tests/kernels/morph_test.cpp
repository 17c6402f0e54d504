// What the cases of morphology leave open: images of several strips and bands, the laws of the operations, states that
// do not fit a call or are not whole.
#include "kernels/morph/morph.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
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

// A packed image of u8 or f32.
struct Image {
    k::Type type;
    k::Form form;
    Size size;
    std::vector<uint8_t> bytes = {};

    Image(k::Type type, k::Form form, Size size, unsigned seed = 0) : type(type), form(form), size(size) {
        bytes.resize(size_t(row_bytes()) * size_t(size.height));
        std::mt19937 random(seed);
        for (size_t i = 0; i < bytes.size(); i += size_t(element_bytes())) {
            const uint8_t v = uint8_t(random() >> 24);
            const float f = float(v) / 8;
            memcpy(&bytes[i], element_bytes() == 1 ? static_cast<const void*>(&v) : &f, size_t(element_bytes()));
        }
    }
    int element_bytes() const { return type == k::Type::u8 ? 1 : 4; }
    int32_t row_bytes() const { return size.width * channels(form) * element_bytes(); }
    cases::View view() { return {bytes.data(), row_bytes(), size}; }
    uint8_t at(int x, int y) const { return bytes[size_t(y * size.width + x)]; }
};
using cases::Op;
struct Operation {
    Op op;
    const k::KernelSet<k::Morph>* kernels;
};
constexpr Operation kErode{Op::erode, &k::erode_kernels}, kDilate{Op::dilate, &k::dilate_kernels};
constexpr Operation kOpen{Op::open, &k::morph_open_kernels}, kClose{Op::close, &k::morph_close_kernels};
constexpr Operation kComposites[] = {kOpen,
                                     kClose,
                                     {Op::tophat, &k::tophat_kernels},
                                     {Op::blackhat, &k::blackhat_kernels},
                                     {Op::gradient, &k::gradient_kernels}};

Image apply(Operation operation, const Image& image, std::vector<uint8_t>& state) {
    Image result(image.type, image.form, image.size);
    EXPECT_EQ((*operation.kernels->find(image.type, image.form))(image.bytes.data(), image.row_bytes(),
                                                                 result.bytes.data(), image.row_bytes(), image.size,
                                                                 k::kMorphReplicate, state.data()),
              k::kOk);
    return result;
}
Image apply(Operation operation, const Image& image, const Element& e) {
    const bool basic = operation.op == Op::erode || operation.op == Op::dilate;
    std::vector<uint8_t> state =
        cases::make_state(image.type, image.form, basic ? k::kMorphBasic : k::kMorphAdvanced, image.size, e);
    return apply(operation, image, state);
}

// Elements far to one side too, of which whole strips of the second pass see nothing but edge pixels.
TEST(morph, of_images_of_several_strips_and_bands_is_what_it_is_made_of) {
    const Element elements[] = {
        {"rect", {5, 30}, {4, 2}}, {"ellipse", {31, 15}, {3, 14}}, {"triangle", {600, 2}, {599, 0}}};
    for (const Element& e : elements)
        for (const k::Type type : {k::Type::u8, k::Type::f32})
            for (const Operation& operation : kComposites) {
                Image image(type, k::Form::c3, {620, 75}, 5), want = image;
                const auto plainly = [&](auto t) {
                    cases::compose_plainly<decltype(t)>(operation.op, e, image.view(), want.view(), 3);
                };
                type == k::Type::u8 ? plainly(uint8_t()) : plainly(float());
                test::at_every_level([&](int level) {
                    EXPECT_TRUE(apply(operation, image, e).bytes == want.bytes)
                        << "operation " << int(operation.op) << ", " << e.name << ", level " << level;
                });
            }
}

// Floats between one and two, in parts below zero, and among them a few that processors order otherwise: anywhere, and
// where only results of a row's ends see them.
void make_ordinary(Image& image, std::mt19937& random) {
    const size_t n = image.bytes.size() / 4, row = size_t(image.size.width) * channels(image.form);
    for (size_t i = 0; i < n; ++i) {
        image.bytes[4 * i + 3] = i / 250 % 5 < 2 && i % 7 < 5 ? 0xbf : 0x3f;
        image.bytes[4 * i + 2] |= 0x80;
    }
    for (const uint32_t v : {0x80000000u, 0x7fc00000u, 0xff800001u, 0x007fffffu, 0u}) {
        const size_t at = random() % n;
        if (random() % 5 == 0) memcpy(&image.bytes[4 * at], &v, 4);
        if (random() % 5 == 0) memcpy(&image.bytes[4 * (at / row * row + random() % 20)], &v, 4);
    }
}

// Rows of more than one strip; floats below zero in some places and not in others; images lower than the element;
// strides at which rows meet in the cache's sets; cells all to one side of the anchor.
TEST(morph, of_small_elements_is_what_it_is_made_of) {
    Element aside("random", {11, 9}, {10, 8});
    for (size_t i = 0; i < aside.cells.size(); ++i) aside.cells[i] &= i % 11 < 5 && i < 5 * 11;
    const Element elements[] = {{"cross", {3, 3}, {1, 1}},    {"rect", {3, 3}, {1, 1}},
                                {"rect", {5, 5}, {0, 3}},     {"random", {5, 5}, {0, 4}},
                                {"random", {40, 3}, {20, 0}}, {"ring", {7, 9}, {6, 0}},
                                {"random", {11, 11}, {5, 5}}, aside};
    const Operation operations[] = {kErode, kDilate, kOpen, kComposites[3], kComposites[4]};
    std::mt19937 random(3);
    for (const Element& e : elements)
        for (const k::Type type : {k::Type::u8, k::Type::f32})
            for (const auto& [size, form] :
                 {std::pair(Size{2740, 45}, k::Form::c1), {{2800, 9}, k::Form::c3}, {{1024, 20}, k::Form::c4}})
                for (const Operation& operation : operations) {
                    Image image(type, form, size, 2), want = image;
                    if (type == k::Type::f32) make_ordinary(image, random);
                    const auto plainly = [&](auto t) {
                        cases::compose_plainly<decltype(t)>(operation.op, e, image.view(), want.view(),
                                                            channels(image.form));
                    };
                    type == k::Type::u8 ? plainly(uint8_t()) : plainly(float());
                    test::at_every_level([&](int level) {
                        EXPECT_TRUE(apply(operation, image, e).bytes == want.bytes)
                            << "operation " << int(operation.op) << ", " << e.name << ", width " << image.size.width
                            << ", level " << level;
                    });
                }
}

TEST(morph, keeps_its_laws) {
    const Image image(k::Type::u8, k::Form::c1, {90, 70}, 3);
    Image complement = image;
    for (uint8_t& v : complement.bytes) v = uint8_t(~v);
    const Element elements[] = {{"rect", {7, 4}, {6, 1}},
                                {"rect", {1, 12}, {0, 3}},
                                {"ellipse", {15, 15}, {7, 7}},
                                {"random", {6, 5}, {0, 4}},
                                {"cross", {9, 8}, {2, 6}}};
    for (const Element& e : elements) {
        SCOPED_TRACE(e.name);
        Element reflected = e;
        std::reverse(reflected.cells.begin(), reflected.cells.end());
        reflected.anchor = {e.size.width - 1 - e.anchor.x, e.size.height - 1 - e.anchor.y};
        for (const auto& [one, other] : {std::pair(kErode, kDilate), {kOpen, kClose}}) {
            Image dual = apply(one, complement, e);
            for (uint8_t& v : dual.bytes) v = uint8_t(~v);
            EXPECT_TRUE(apply(other, image, reflected).bytes == dual.bytes) << int(one.op);
        }
        // Near the edge elements other than rectangles meet repeated pixels that they do not all see.
        const bool rect = e.name.starts_with("rect");
        const int x0 = rect ? 0 : 2 * e.size.width, y0 = rect ? 0 : 2 * e.size.height;
        const Image opened = apply(kOpen, image, e), closed = apply(kClose, image, e);
        const Image again = apply(kOpen, opened, e), reclosed = apply(kClose, closed, e);
        for (int y = y0; y < image.size.height - y0; ++y)
            for (int x = x0; x < image.size.width - x0; ++x) {
                ASSERT_LE(opened.at(x, y), image.at(x, y)) << x << ", " << y;
                ASSERT_GE(closed.at(x, y), image.at(x, y)) << x << ", " << y;
                ASSERT_EQ(opened.at(x, y), again.at(x, y)) << x << ", " << y;
                ASSERT_EQ(closed.at(x, y), reclosed.at(x, y)) << x << ", " << y;
            }
        EXPECT_TRUE(opened.bytes != image.bytes);
    }
}

TEST(morph, takes_a_state_made_for_floats_for_bytes_too) {
    const Image image(k::Type::u8, k::Form::c3, {300, 50}, 1);
    for (const Element& e : {kElement, Element("ellipse", {5, 5}, {2, 2})}) {
        std::vector<uint8_t> floats = cases::make_state(k::Type::f32, k::Form::c3, k::kMorphFloats, image.size, e);
        for (const Operation& operation : kComposites)
            EXPECT_TRUE(apply(operation, image, floats).bytes == apply(operation, image, e).bytes)
                << int(operation.op) << ", " << e.name;
    }
    std::vector<uint8_t> advanced =
        cases::make_state(k::Type::f32, k::Form::c3, k::kMorphAdvanced, image.size, kElement);
    Image result = image;
    EXPECT_EQ(k::gradient_u8_c3(image.bytes.data(), 900, result.bytes.data(), 900, image.size, 1, advanced.data()),
              k::kBadArg);
}

// The hash that guards a state, so that forged ones come through.
uint64_t hash_of(const std::vector<uint8_t>& state, uint64_t end) {
    uint64_t hash = 0xcbf29ce484222325;
    for (uint64_t i = offsetof(k::MorphHeader, bytes); i < end; i += 4) {
        uint32_t word;
        memcpy(&word, &state[i], 4);
        hash = (hash ^ word) * 0x9fb21c651e98df25;
        hash ^= hash >> 29;
    }
    return hash;
}

void forge(Operation operation, uint32_t category, Size size, const Element& e, int trials) {
    const Image image(k::Type::u8, k::Form::c1, size, 1);
    const std::vector<uint8_t> whole = cases::make_state(image.type, image.form, category, size, e);
    k::MorphHeader header;
    memcpy(&header, whole.data(), sizeof header);
    const uint64_t plan = sizeof header + header.steps * 20;
    ASSERT_EQ(hash_of(whole, plan), header.check);
    std::mt19937 random(1);
    int taken = 0;
    for (int trial = 0; trial < trials; ++trial) {
        std::vector<uint8_t> state = whole;
        state.resize(whole.size() + 8192, 0x5c);
        for (int changes = 0; changes < 1 + trial % 3; ++changes) {
            // Numbers of the plan, or of the header behind the check.
            const uint64_t at = trial % 8 ? sizeof header + random() % (header.steps * 5) * 4
                                          : offsetof(k::MorphHeader, bytes) + random() % 14 * 4;
            int32_t number;
            memcpy(&number, &state[at], 4);
            number = random() % 8 ? number + int32_t(random() % 9) - 4 : int32_t(random());
            memcpy(&state[at], &number, 4);
        }
        k::MorphHeader forged;
        memcpy(&forged, state.data(), sizeof forged);
        if (forged.steps > header.steps) continue;
        forged.check = hash_of(state, sizeof header + forged.steps * 20);
        memcpy(state.data(), &forged, sizeof forged);
        Image result = image;
        const k::Status status = (*operation.kernels->find(image.type, image.form))(
            image.bytes.data(), size.width, result.bytes.data(), size.width, size, 1, state.data());
        taken += status == k::kOk;
        ASSERT_TRUE(status == k::kOk || status == k::kBadArg);
        for (size_t i = whole.size(); i < state.size(); ++i) ASSERT_EQ(state[i], 0x5c) << "trial " << trial;
    }
    EXPECT_GT(taken, 100);
}
TEST(morph, stays_within_a_forged_state) {
    forge(kOpen, k::kMorphAdvanced, kSize, kElement, 20000);
    for (const auto& [operation, category] : {std::pair(kErode, k::kMorphBasic), {kOpen, k::kMorphAdvanced}})
        forge(operation, category, {300, 20}, {"random", {5, 5}, {2, 2}}, 10000);
}

}  // namespace
