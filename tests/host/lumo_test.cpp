// Element types, rectangles, warps and matrices.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <ostream>
#include <utility>

#include "lumo_array.h"
#include "quel/host.h"

static_assert(sizeof(LumoMAT) == 32 && offsetof(LumoMAT, elemtype) == 8 && offsetof(LumoMAT, width) == 12 &&
              offsetof(LumoMAT, height) == 16 && offsetof(LumoMAT, stride) == 20 && offsetof(LumoMAT, data) == 24);
static_assert(offsetof(QuelERR, status) == 24 && offsetof(LumoARRAY, elemtype) == 0 && sizeof(LumoAWARP) == 48);

static bool operator==(const LumoRECT& a, const LumoRECT& b) { return LumoRECTequ(&a, &b); }
static std::ostream& operator<<(std::ostream& out, const LumoRECT& r) {
    return out << '{' << r.left << ", " << r.top << ", " << r.right << ", " << r.bottom << '}';
}

namespace {

TEST(ElementTypes, have_sizes_and_names_by_kind_and_by_code) {
    struct Row {
        LumoELEMTYPE type;
        uint64_t size;
        const char* name;
        uint32_t old;
    };
    const Row rows[] = {
        {LUMO_U8 | LUMO_CHANNELS(3), 1, "u8", 1},
        {LUMO_S16, 2, "s16", 2},
        {LUMO_S32, 4, "s32", 3},
        {LUMO_U32, 4, "u32", 4},
        {LUMO_F32 | LUMO_CHANNELS(4), 4, "f32", 5},
        {LUMO_F64, 8, "f64", 0},
        {LUMO_KIND_S16 << 8, 2, "s16", 1},  // without a code the low byte reads as u8
        {LUMO_CODE_S8, 1, "s8", 0},
        {LUMO_CODE_U16, 2, "u16", 0},
        {LUMO_CODE_U64, 8, "u64", 0},
        {LUMO_CODE_S64, 8, "s64", 0},
        {10, 0, "?", 0},
        {0xff, 0, "?", 0},
        {7 << 8, 0, "?", 1},
        {15 << 8, 0, "?", 1},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(LumoELEMTYPEsizeof(row.type), row.size) << row.type;
        EXPECT_EQ(LumoELEMTYPEalignof(row.type), row.size ? row.size : 1) << row.type;
        EXPECT_STREQ(LumoELEMTYPEshow(row.type), row.name) << row.type;
        EXPECT_EQ(_LumoELEMTYPEto_old(row.type), row.old) << row.type;
    }
}

constexpr int32_t kMin = INT32_MIN, kMax = INT32_MAX;

TEST(Rectangles, are_measured_without_overflow) {
    const LumoRECT all = {kMin, kMin, kMax, kMax}, some = {-3, 2, 4, 12}, inverted = {kMax, 0, kMin, 5};
    EXPECT_EQ(LumoRECTwidth(&all), kMax);
    EXPECT_EQ(LumoRECTheight(&all), kMax);
    EXPECT_EQ(LumoRECTwidth(&inverted), kMin);
    EXPECT_EQ(LumoRECTsize(&some).width, 7);
    EXPECT_EQ(LumoRECTsize(&some).height, 10);
    for (LumoRECT empty : {LumoRECT{0, 0, 0, 5}, LumoRECT{0, 0, 5, 0}, LumoRECT{3, 0, 2, 9}, inverted})
        EXPECT_TRUE(LumoRECTnull(&empty)) << empty;
    EXPECT_FALSE(LumoRECTnull(&all));
    EXPECT_TRUE(LumoRECTprosub(&some, &all));
    EXPECT_FALSE(LumoRECTprosub(&all, &some));
    EXPECT_FALSE(LumoRECTprosub(&some, &some));
}

TEST(Rectangles, are_changed_in_place_and_saturate) {
    struct Row {
        void (*change)(LumoRECT*, int32_t, int32_t);
        LumoRECT before;
        int32_t by[2];
        LumoRECT after;
    };
    const auto extend = [](LumoRECT* r, int32_t x, int32_t y) { _LumoRECTextendI(r, x, y); };
    const auto move = [](LumoRECT* r, int32_t x, int32_t y) { _LumoRECTmovetoltI(r, x, y); };
    const auto move_left = [](LumoRECT* r, int32_t x, int32_t) { _LumoRECTmoveleftI(r, x); };
    const auto set_width = [](LumoRECT* r, int32_t x, int32_t) { _LumoRECTwidthsetlI(r, x); };
    const auto set_height = [](LumoRECT* r, int32_t, int32_t y) { _LumoRECTheightsettI(r, y); };
    const auto cut_width = [](LumoRECT* r, int32_t x, int32_t) { _LumoRECTwidthcutiflI(r, x); };
    const auto cut_height = [](LumoRECT* r, int32_t, int32_t y) { _LumoRECTheightcutiftI(r, y); };
    const auto extend_in_12_x_40 = [](LumoRECT* r, int32_t x, int32_t y) { _LumoExtendROI(r, x, y, 12, 40); };
    const auto extend_in_0_x_40 = [](LumoRECT* r, int32_t x, int32_t y) { _LumoExtendROI(r, x, y, 0, 40); };
    const Row rows[] = {
        {extend, {0, 0, 5, 5}, {2, 3}, {-2, -3, 7, 8}},
        {extend, {kMin + 1, -5, kMax - 1, 5}, {8, kMax}, {kMin, kMin, kMax, kMax}},
        {extend, {0, 0, 5, 5}, {-1, kMin}, {1, kMax, 4, kMin + 5}},
        {move, {1, 2, 4, 9}, {-7, 100}, {-7, 100, -4, 107}},
        {move, {0, 0, 10, 10}, {kMax - 3, kMin}, {kMax - 3, kMin, kMax, kMin + 10}},
        {move_left, {1, 2, 40, 9}, {0, 0}, {0, 2, 39, 9}},
        {set_width, {1, 2, 4, 9}, {50, 0}, {1, 2, 51, 9}},
        {set_width, {100, 2, 104, 9}, {kMax, 0}, {100, 2, kMax, 9}},
        {set_height, {1, 2, 4, 9}, {0, 0}, {1, 2, 4, 2}},
        {cut_width, {1, 2, 40, 9}, {5, 0}, {1, 2, 6, 9}},
        {cut_width, {1, 2, 4, 9}, {3, 0}, {1, 2, 4, 9}},
        {cut_width, {kMin, 0, kMax, 1}, {kMax, 0}, {kMin, 0, -1, 1}},
        {cut_height, {1, 2, 4, 90}, {0, 8}, {1, 2, 4, 10}},
        {cut_height, {1, 2, 4, 9}, {0, 100}, {1, 2, 4, 9}},
        {extend_in_12_x_40, {2, 3, 9, 9}, {8, 8}, {0, 0, 12, 17}},
        {extend_in_0_x_40, {2, 3, 9, 9}, {1, 1}, {1, 2, 1, 2}},
    };
    for (const Row& row : rows) {
        LumoRECT rect = row.before;
        row.change(&rect, row.by[0], row.by[1]);
        EXPECT_EQ(rect, row.after) << "row " << &row - rows;
    }
}

TEST(Rectangles, intersect_to_their_common_pixels_or_to_none_at_the_corner) {
    for (const auto& [with, common] : {std::pair<LumoRECT, LumoRECT>{{5, -5, 20, 5}, {5, 0, 10, 5}},
                                       {{10, 0, 20, 10}, {0, 0, 0, 0}},
                                       {{3, 4, 5, 6}, {3, 4, 5, 6}},
                                       {{9, 9, kMax, kMax}, {9, 9, 10, 10}},
                                       {{kMax, kMax, kMax, kMax}, {0, 0, 0, 0}},
                                       {{kMin, kMin, kMax, kMax}, {0, 0, 10, 10}}}) {
        LumoRECT rect = {0, 0, 10, 10};
        LumoRECTintersecI(&rect, &with);
        EXPECT_EQ(rect, common) << with;
    }
}

TEST(Warps, undo_themselves_and_compose_in_order) {
    const LumoAWARP warp = {1.5, -0.25, 7, 0.5, 2, -3};
    LumoAWARP inverse, both = warp, shift;
    ASSERT_EQ(_LumoAWARPback(&inverse, &warp), 0);
    _LumoAWARPaddI(&both, &inverse);
    const double identity[6] = {1, 0, 0, 0, 1, 0};
    for (int i = 0; i < 6; ++i) EXPECT_NEAR((&both.a)[i], identity[i], 1e-14) << i;
    // Shift first, then warp: (0, 0) goes to (10, 20) and from there through the warp.
    _LumoAWARPshift(&shift, 10, 20);
    _LumoAWARPaddI(&shift, &warp);
    EXPECT_DOUBLE_EQ(shift.tx, 1.5 * 10 - 0.25 * 20 + 7);
    EXPECT_DOUBLE_EQ(shift.ty, 0.5 * 10 + 2 * 20 - 3);
    LumoAWARP in_place = warp;
    EXPECT_EQ(_LumoAWARPback(&in_place, &in_place), 0);
    EXPECT_EQ(memcmp(&in_place, &inverse, sizeof inverse), 0);
    LumoAWARP doubled = {2, 0, 1, 0, 2, 0};
    _LumoAWARPaddI(&doubled, &doubled);
    EXPECT_EQ(doubled.a, 4);
    EXPECT_EQ(doubled.tx, 3);
}

TEST(Warps, without_an_inverse_are_refused) {
    LumoAWARP inverse = {9, 9, 9, 9, 9, 9};
    for (LumoAWARP warp : {LumoAWARP{1, 2, 0, 2, 4, 0}, LumoAWARP{0, 0, 5, 0, 0, 5}, LumoAWARP{NAN, 0, 0, 0, 1, 0},
                           LumoAWARP{INFINITY, 0, 0, 0, 1, 0}, LumoAWARP{1, 0, INFINITY, 0, 1, 0},
                           LumoAWARP{1e-200, 0, 1e200, 0, 1e-100, 0}})
        EXPECT_EQ(_LumoAWARPback(&inverse, &warp), -1);
    EXPECT_EQ(inverse.a, 9);
}

TEST(Warps, bound_the_image_of_the_pixel_centres) {
    struct Row {
        LumoAWARP warp;
        LumoRECT rect, image;
    };
    const Row rows[] = {
        {{1, 0, 0, 0, 1, 0}, {2, 3, 10, 20}, {2, 3, 10, 20}},
        {{1, 0, 0.5, 0, 1, -0.25}, {0, 0, 4, 4}, {0, -1, 5, 4}},
        {{2, 0, 0, 0, 3, 0}, {0, 0, 4, 4}, {0, 0, 7, 10}},   // centres 0..3 go to 0..6 and 0..9
        {{0, -1, 0, 1, 0, 0}, {0, 0, 4, 2}, {-1, 0, 1, 4}},  // a quarter turn
        {{-1, 0, 0, 0, -1, 0}, {1, 1, 3, 3}, {-2, -2, 0, 0}},
        {{1, 0, 0, 0, 1, 0}, {5, 5, 5, 9}, {0, 0, 0, 0}},
        {{1e30, 0, 0, 0, 1, 0}, {-1, 0, 3, 1}, {kMin, 0, kMax, 1}},
        {{NAN, 0, 0, 0, 1, 0}, {0, 0, 3, 3}, {0, 0, 0, 0}},
        {{1, 0, kMax, 0, 1, kMin}, {0, 0, 3, 3}, {kMax, kMin, kMax, kMin + 3}},
        {{1, 0, 0, 0, 1, 0}, {kMin, kMin, kMax, kMax}, {kMin, kMin, kMax, kMax}},
    };
    for (const Row& row : rows) {
        LumoRECT image;
        _LumoAWARPrect(&image, &row.rect, &row.warp);
        EXPECT_EQ(image, row.image) << row.rect;
    }
}

class Matrices : public testing::Test {
protected:
    void SetUp() override { KaSMEMSTGopen(&storage, nullptr, 0, nullptr); }
    void TearDown() override { KaMEMSTGdestroy(&storage.base); }
    KaSMEMSTG storage;
};

TEST_F(Matrices, are_made_aligned_with_the_stride_asked_for) {
    const LumoMATPARM parms[] = {
        {LUMO_U8 | LUMO_CHANNELS(3), 7, 5, 0},   {LUMO_U8 | LUMO_CHANNELS(3), 7, 5, 64},
        {LUMO_F32 | LUMO_CHANNELS(4), 1, 1, 16}, {LUMO_KIND_S16 << 8 | LUMO_CHANNELS(1), 9, 2, 4},
        {LUMO_U8 | LUMO_CHANNELS(1), 0, 9, 0},   {LUMO_U8 | LUMO_CHANNELS(1), 9, 0, 0}};
    const int32_t strides[] = {21, 64, 16, 20, 0, 9};
    for (int i = 0; i < 6; ++i) {
        LumoMAT mat = {};
        ASSERT_EQ(_LumoMATinit(&mat, &parms[i], &storage, nullptr), &mat) << i;
        EXPECT_NE(mat.cls, nullptr);
        EXPECT_EQ(mat.elemtype, parms[i].elemtype);
        EXPECT_EQ(mat.stride, strides[i]) << i;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(mat.data) % 64, 0u);
        const int32_t row = mat.width * int32_t(LumoELEMTYPEsizeof(mat.elemtype) * (mat.elemtype >> 12));
        for (int y = 0; y < mat.height; ++y) memset(static_cast<char*>(mat.data) + y * mat.stride, y, row);
        LumoMATPARM again;
        _LumoARRmatgenparm(&again, &mat);
        EXPECT_EQ(again.width, mat.width);
        EXPECT_EQ(again.elemtype, mat.elemtype);
        if (i % 2)
            _LumoARRfree(&mat, &storage);
        else
            _LumoARRdestroy(&mat, &storage);
        EXPECT_EQ(mat.data, nullptr);
        EXPECT_EQ(mat.cls == nullptr, i % 2 == 0);
    }
    EXPECT_EQ(storage.used, 0u);
}

TEST_F(Matrices, that_cannot_be_made_leave_a_status_and_no_memory) {
    struct Row {
        LumoMATPARM parm;
        uint32_t code;
    };
    const Row rows[] = {
        {{LUMO_U8 | LUMO_CHANNELS(1), -1, 5, 0}, QUEL_E_OPTION},
        {{LUMO_U8 | LUMO_CHANNELS(1), 5, INT_MIN, 0}, QUEL_E_OPTION},
        {{LUMO_F32 | LUMO_CHANNELS(4), INT_MAX, 1, 0}, QUEL_E_OPTION},
        {{LUMO_U8 | LUMO_CHANNELS(1), INT_MAX, 1, 64}, QUEL_E_OPTION},
        {{LUMO_U8 | LUMO_CHANNELS(1), 5, 5, 3}, QUEL_E_OPTION},
        {{LUMO_U8 | LUMO_CHANNELS(1), INT_MAX, INT_MAX, 0}, QUEL_E_NOMEM},
        {{LUMO_U8, 5, 5, 0}, QUEL_E_TYPE},
        {{7 << 8 | LUMO_CHANNELS(1), 5, 5, 0}, QUEL_E_TYPE},
    };
    for (const Row& row : rows) {
        LumoMAT mat = {};
        QuelERR err = {};
        EXPECT_EQ(_LumoMATinit(&mat, &row.parm, &storage, &err), nullptr);
        EXPECT_EQ(err.status, row.code) << row.parm.width << ' ' << row.parm.height;
        EXPECT_EQ(err.count, 0u);
    }
    EXPECT_EQ(storage.used, 0u);
}

TEST_F(Matrices, views_share_the_pixels_of_their_region) {
    uint8_t pixels[10 * 32];
    // The class word of a view filled in by hand may be anything.
    const LumoMAT mat = {reinterpret_cast<const void*>(uintptr_t(0x33)), LUMO_U8 | LUMO_CHANNELS(3), 8, 10, 32, pixels};
    const LumoMAT upwards = {nullptr, mat.elemtype, 8, 10, -32, pixels + 9 * 32};
    const LumoRECT region = {2, 3, 7, 9}, partly_outside = {6, 8, 99, 99}, outside = {50, 50, 60, 60};
    LumoMAT view;
    LumoRECT roi;
    _LumoARRroi(&roi, _LumoMATof(&view, &mat, &region));
    EXPECT_EQ(roi, (LumoRECT{0, 0, 5, 6}));
    EXPECT_EQ(view.data, pixels + 3 * 32 + 2 * 3);
    EXPECT_EQ(view.stride, 32);
    EXPECT_EQ(_LumoMATof(&view, &upwards, &region)->data, pixels + 6 * 32 + 2 * 3);
    _LumoMATof(&view, &mat, &partly_outside);
    EXPECT_EQ(view.width, 2);
    EXPECT_EQ(view.height, 2);
    _LumoMATof(&view, &mat, &outside);
    EXPECT_EQ(view.width, 0);
    LumoMAT in_place = mat;
    EXPECT_EQ(_LumoMATof(&in_place, &in_place, &region)->data, pixels + 3 * 32 + 2 * 3);
    // Offsets beyond 2^32 bytes; the pointer is only compared.
    const LumoMAT huge = {nullptr, LUMO_U8 | LUMO_CHANNELS(1), 1, INT_MAX, 1 << 20, pixels};
    const LumoRECT last = {0, INT_MAX - 1, 1, INT_MAX};
    EXPECT_EQ(reinterpret_cast<uintptr_t>(_LumoMATof(&view, &huge, &last)->data) - reinterpret_cast<uintptr_t>(pixels),
              uintptr_t(INT_MAX - 1) << 20);
    const LumoMAT negative = {nullptr, LUMO_U8 | LUMO_CHANNELS(1), -5, 3, 8, pixels};
    _LumoARRroi(&roi, &negative);
    EXPECT_TRUE(LumoRECTnull(&roi));
}

}  // namespace
