// Layouts and arrays.
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstring>
#include <utility>

#include "lumo_array.h"

namespace {

LumoARRLO layout(const char* dims) {
    LumoARRLO result = {};
    strncpy(result.dims, dims, sizeof result.dims - 1);
    return result;
}

TEST(Layouts, are_parts_of_one_another_in_order) {
    struct Row {
        const char *a, *b;
        bool sub;
    };
    for (const Row& row :
         {Row{"HWC", "NHWC", true}, Row{"HW", "HWC", true}, Row{"HW", "NCHW", true}, Row{"", "HWC", true},
          Row{"NHWC", "NHWC", true}, Row{"NW", "NHWC", true}, Row{"CHW", "NHWC", false}, Row{"CHW", "NCHW", true},
          Row{"WH", "NHWC", false}, Row{"NHWC", "HWC", false}, Row{"HWX", "NHWC", false}, Row{"WW", "NHWC", false},
          Row{"HWC", "", false}}) {
        const LumoARRLO a = layout(row.a), b = layout(row.b);
        EXPECT_EQ(LumoARRLOsub(&a, &b), row.sub) << row.a << ' ' << row.b;
        EXPECT_EQ(LumoARRLOsame(&a, &b), strcmp(row.a, row.b) == 0);
    }
    const LumoARRLO unterminated = {{'H', 'W', 'C', 'N', 'H', 'W', 'C', 'N'}};
    for (const LumoARRLO& none : {unterminated, layout("HH"), layout("HD")}) EXPECT_STREQ(LumoARRLOshow(&none), "?");
    EXPECT_STREQ(LumoARRLOshow(&_G_Lumo_NCHW_arrlo), "NCHW");
    EXPECT_EQ(LumoARRLOsub(&unterminated, &_G_Lumo_NHWC_arrlo), 0);
}

TEST(Layouts, colour_classes_have_channel_counts) {
    const int32_t channels[] = {0, 1, 3, 3, 4, 0};
    for (uint32_t cls = 0; cls < 6; ++cls) EXPECT_EQ(LumoARRCLSnchannels(cls), channels[cls]);
    EXPECT_EQ(LumoARRCLSnchannels(UINT32_MAX), 0);
}

LumoARRAY describe(const LumoARRLO& layout, std::initializer_list<int32_t> sizes, LumoELEMTYPE type = LUMO_F32) {
    LumoARRAY parms;
    EXPECT_EQ(LumoARRPARMS(&parms, int32_t(sizes.size()), sizes.begin(), _G_Lumo_strides_corder, &layout, type, 0),
              &parms);
    return parms;
}

// Sizes and strides of the dimensions W, H, C, N.
void expect_shape(const LumoARRAY& a, const char* layout, std::array<int32_t, 4> sizes,
                  std::array<int64_t, 4> strides) {
    EXPECT_STREQ(LumoARRLOshow(&a.layout), layout);
    for (int dim = 0; dim < LUMO_DIMS; ++dim) {
        EXPECT_EQ(LumoARRPARMSsizedim(&a, dim), sizes[size_t(dim)]) << layout << dim;
        EXPECT_EQ(LumoARRPARMSstridedim(&a, dim), strides[size_t(dim)]) << layout << dim;
    }
}

TEST(Arrays, in_c_order_are_packed_with_the_last_dimension_fastest) {
    const LumoARRAY hw = describe(layout("HW"), {5, 7});
    expect_shape(describe(_G_Lumo_NHWC_arrlo, {2, 5, 7, 3}), "NHWC", {7, 5, 3, 2}, {12, 84, 4, 420});
    expect_shape(describe(_G_Lumo_NCHW_arrlo, {2, 3, 5, 7}), "NCHW", {7, 5, 3, 2}, {4, 28, 140, 420});
    expect_shape(hw, "HW", {7, 5, 1, 1}, {4, 28, 0, 0});
    EXPECT_EQ(LumoARRPARMSsizedim(&hw, 9), 1);
    EXPECT_EQ(LumoARRPARMSstridedim(&hw, -1), 0);
    EXPECT_EQ(hw.data, nullptr);
}

TEST(Arrays, take_strides_in_the_order_of_the_layout) {
    LumoARRAY parms;
    const int32_t sizes[] = {5, 7, 3};
    const int64_t strides[] = {-128, 3, 1};
    ASSERT_NE(LumoARRPARMS(&parms, 3, sizes, strides, &_G_Lumo_HWC_arrlo, LUMO_U8, LUMO_CLASS_RGB), nullptr);
    expect_shape(parms, "HWC", {7, 5, 3, 1}, {3, -128, 1, 0});
    EXPECT_EQ(parms.cls, uint32_t(LUMO_CLASS_RGB));
}

TEST(Arrays, that_cannot_be_described_are_null) {
    struct Row {
        int32_t ndims;
        int32_t sizes[4];
        const char* layout;
        LumoELEMTYPE type;
    };
    for (const Row& row : {Row{3, {5, -1, 3, 0}, "HWC", LUMO_U8}, Row{2, {5, 7, 3, 0}, "HWC", LUMO_U8},
                           Row{3, {5, 7, 3, 0}, "HHC", LUMO_U8}, Row{3, {5, 7, 3, 0}, "HXC", LUMO_U8},
                           Row{-1, {5, 7, 3, 0}, "?", LUMO_U8}, Row{3, {5, 7, 3, 0}, "HWC", 7 << 8},
                           Row{4, {INT_MAX, INT_MAX, INT_MAX, INT_MAX}, "NHWC", LUMO_F64},
                           Row{3, {INT_MAX, INT_MAX, 2, 0}, "HWC", LUMO_F32}}) {
        LumoARRAY parms;
        memset(&parms, 0x11, sizeof parms);
        const LumoARRLO lo = layout(row.layout);
        EXPECT_EQ(LumoARRPARMS(&parms, row.ndims, row.sizes, _G_Lumo_strides_corder, &lo, row.type, 0), nullptr)
            << row.layout;
        EXPECT_TRUE(LumoARRPARMSnull(&parms));
    }
    EXPECT_TRUE(LumoARRPARMSnull(nullptr));
    for (auto sizes : {std::initializer_list<int32_t>{2, 0, 7, 3}, {2, 5, 0, 3}, {2, 5, 7, 0}}) {
        const LumoARRAY parms = describe(_G_Lumo_NHWC_arrlo, sizes);
        EXPECT_TRUE(LumoARRPARMSnull(&parms));
    }
    const LumoARRAY no_images = describe(_G_Lumo_NHWC_arrlo, {0, 5, 7, 3});
    EXPECT_FALSE(LumoARRPARMSnull(&no_images));
}

TEST(Arrays, change_layout_and_strides_and_keep_sizes) {
    LumoARRAY parms = describe(_G_Lumo_HWC_arrlo, {5, 7, 3}), planar;
    parms.data = &parms;
    parms.cls = LUMO_CLASS_BGR;
    ASSERT_EQ(LumoARRPARMSmodify(&planar, &parms, &_G_Lumo_NCHW_arrlo, _G_Lumo_strides_corder), &planar);
    expect_shape(planar, "NCHW", {7, 5, 3, 1}, {4, 28, 140, 420});
    EXPECT_EQ(planar.cls, uint32_t(LUMO_CLASS_BGR));
    EXPECT_EQ(planar.data, nullptr);
    parms.stride[LUMO_DIM_H] = 1000;
    ASSERT_EQ(LumoARRPARMSmodify(&parms, &parms, nullptr, _G_Lumo_strides_corder), &parms);
    expect_shape(parms, "HWC", {7, 5, 3, 1}, {12, 84, 4, 0});
    const LumoARRLO flat = layout("HW");
    EXPECT_EQ(LumoARRPARMSmodify(&planar, &parms, &flat, _G_Lumo_strides_corder), nullptr);
    EXPECT_TRUE(LumoARRPARMSnull(&planar));
}

TEST(Arrays, lose_their_dimensions_of_size_1_when_squeezed) {
    LumoARRAY parms = describe(_G_Lumo_NHWC_arrlo, {1, 5, 7, 1}), one = describe(_G_Lumo_HWC_arrlo, {1, 1, 1});
    LumoARRPARMSsqueezeI(&parms);
    expect_shape(parms, "HW", {7, 5, 1, 1}, {4, 28, 0, 0});
    LumoARRAYsqueezeI(&one);
    EXPECT_STREQ(LumoARRLOshow(&one.layout), "");
    EXPECT_FALSE(LumoARRPARMSnull(&one));  // it still is one pixel
}

TEST(Arrays, project_onto_an_index_of_a_dimension) {
    LumoARRAY batch = describe(_G_Lumo_NHWC_arrlo, {4, 5, 7, 3}), image;
    uint8_t data[8];
    batch.data = data;
    ASSERT_EQ(LumoARRAYprojdim(&image, &batch, LUMO_DIM_N, 3), &image);
    EXPECT_STREQ(LumoARRLOshow(&image.layout), "HWC");
    EXPECT_EQ(reinterpret_cast<uintptr_t>(image.data) - reinterpret_cast<uintptr_t>(data), 3u * 420);
    EXPECT_EQ(LumoARRPARMSsizedim(&image, LUMO_DIM_N), 1);
    EXPECT_EQ(LumoARRAYprojdim(&image, &batch, LUMO_DIM_N, 4), nullptr);
    EXPECT_EQ(LumoARRAYprojdim(&image, &batch, LUMO_DIM_N, -1), nullptr);
    EXPECT_EQ(LumoARRAYprojdim(&image, &batch, 4, 0), nullptr);
    ASSERT_NE(LumoARRAYprojdim(&image, &image, LUMO_DIM_N, 0), nullptr);  // it has none any more: index 0 is all of it
    EXPECT_STREQ(LumoARRLOshow(&image.layout), "HWC");
    LumoARRAY empty = describe(_G_Lumo_NHWC_arrlo, {0, 5, 7, 3});
    EXPECT_NE(LumoARRAYprojdim(&image, &empty, LUMO_DIM_N, 0), nullptr);
}

TEST(Arrays, are_made_in_a_storage_and_wholly_usable) {
    KaSMEMSTG storage;
    KaSMEMSTGopen(&storage, nullptr, 0, nullptr);
    LumoARRAY parms = describe(_G_Lumo_NCHW_arrlo, {2, 3, 5, 7}, LUMO_S16), array;
    ASSERT_EQ(LumoARRAYinit_memstg(&array, &parms, &storage, nullptr), &array);
    EXPECT_EQ(storage.used, 2u * 3 * 5 * 7 * 2);
    memset(array.data, 1, storage.used);
    KaSMEMSTGfree(&storage, array.data);

    parms = describe(_G_Lumo_HWC_arrlo, {1, 1, 1}, LUMO_F64);
    LumoARRPARMSsqueezeI(&parms);
    ASSERT_NE(LumoARRAYinit_memstg(&array, &parms, &storage, nullptr), nullptr);
    EXPECT_EQ(storage.used, 8u);
    KaSMEMSTGclear(&storage);

    const int32_t sizes[] = {4, 10};
    const LumoARRLO hw = layout("HW");
    QuelERR err = {};
    for (const auto& [stride, status] :
         {std::pair<int64_t, uint64_t>{64, 0}, {-64, QUEL_E_OPTION}, {INT64_MAX, QUEL_E_NOMEM}}) {
        const int64_t strides[] = {stride, 1};
        LumoARRPARMS(&parms, 2, sizes, strides, &hw, LUMO_U8, 0);
        EXPECT_EQ(LumoARRAYinit_memstg(&array, &parms, &storage, &err), status ? nullptr : &array);
        EXPECT_EQ(err.status, status);
        EXPECT_EQ(storage.used, 3u * 64 + 10);
    }
    parms.elemtype = 7 << 8;
    EXPECT_EQ(LumoARRAYinit_memstg(&array, &parms, &storage, &err), nullptr);
    EXPECT_EQ(err.status, uint64_t(QUEL_E_TYPE));
    KaMEMSTGdestroy(&storage.base);
}

}  // namespace
