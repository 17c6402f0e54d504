// "tarn::scale-resize" through the module. How far results lie from the real values: kernels/resize_test.cpp.
#include "ipp/fixture.h"

using namespace tarn::test;

namespace {

constexpr uint32_t kModes[] = {TARN_NEAREST, TARN_LINEAR, TARN_CUBIC, TARN_LANCZOS};
constexpr std::initializer_list<LumoELEMTYPE> kKinds = {LUMO_U8, LUMO_S16, LUMO_F32};

int64_t resize(LumoMAT* dst, const LumoMAT* src, const LumoRECT* region, uint32_t mode, QuelERR* err = nullptr,
               const float* range = nullptr, KaSMEMSTG* storage = nullptr) {
    return call<TarnScaleResize>("scaleresize", err, storage, dst, src, region,
                                 reinterpret_cast<const uint32_t*>(range), mode);
}

// Expects of the colours of dst that they are those of `of` from left, top on.
void expect_part(const Array& dst, const Array& of, int left = 0, int top = 0, int channels = 3) {
    for (int y = 0; y < dst.mat.height; ++y)
        for (int x = 0; x < dst.mat.width; ++x)
            for (int c = 0; c < std::min(dst.channels, channels); ++c)
                ASSERT_EQ(get(&dst, x, y, c), get(&of, left + x, top + y, c)) << x << ", " << y << ", channel " << c;
    EXPECT_TRUE(dst.intact());
}

}  // namespace

TEST(scaleresize, of_a_region_gives_that_part_of_the_whole_resized) {
    const LumoRECT region = {6, 5, 24, 14};
    for (const uint32_t mode : kModes)
        each_type(kKinds, {1, 2, 3, 4}, [&](LumoELEMTYPE type) {
            for (const bool upwards : {false, true}) {
                const Array src = Array(type, 40, 21, 12, upwards).filled(3);
                Array whole(type, 80, 42), dst(type, 36, 18, 8, !upwards);
                ASSERT_EQ(resize(&whole, &src, nullptr, mode), 0);
                ASSERT_EQ(resize(&dst, &src, &region, mode), 0);
                expect_part(dst, whole, 12, 10);
                EXPECT_TRUE(src.intact());
            }
        });
}

TEST(scaleresize, keeps_the_fourth_channel_when_it_resamples_and_copies_it_when_it_does_not) {
    const Array src = Array(s16(4), 12, 10).filled(1);
    Array up(s16(4), 24, 20), same(s16(4), 5, 4);
    for (const uint32_t mode : kModes) {
        up.set<int16_t>(-5);
        ASSERT_EQ(resize(&up, &src, nullptr, mode), 0);
        for (int y = 0; y < 20; ++y)
            for (int x = 0; x < 24; ++x) ASSERT_EQ(up.at<int16_t>(x, y, 3), -5);
    }
    const LumoRECT region = {3, 2, 8, 6};
    ASSERT_EQ(resize(&same, &src, &region, TARN_CUBIC), 0);
    expect_part(same, src, 3, 2, 4);
    each_type({LUMO_U8, LUMO_S16, LUMO_S32, LUMO_F32}, {3}, [&](LumoELEMTYPE type) {
        const Array from = Array(type, 12, 10, 5).filled(2);  // a copy serves kinds that no resize serves
        Array to(type, 5, 4);
        ASSERT_EQ(resize(&to, &from, &region, 99), 0);
        expect_part(to, from, 3, 2);
    });
}

TEST(scaleresize, code_2_is_cubic_and_small_sources_get_fewer_taps) {
    struct Row {
        int width, height;
        uint32_t mode, like, unlike;
    };
    for (const Row& r :
         {Row{9, 9, 2, TARN_CUBIC, TARN_LINEAR}, Row{3, 10, TARN_CUBIC, TARN_LINEAR, TARN_NEAREST},
          Row{10, 3, TARN_LANCZOS, TARN_LINEAR, TARN_NEAREST}, Row{5, 5, TARN_LANCZOS, TARN_CUBIC, TARN_LINEAR},
          Row{6, 4, TARN_LANCZOS, TARN_CUBIC, TARN_LINEAR}, Row{4, 4, TARN_CUBIC, TARN_CUBIC, TARN_LINEAR},
          Row{6, 6, TARN_LANCZOS, TARN_LANCZOS, TARN_CUBIC}}) {
        const Array src = Array(u8(1), r.width, r.height).filled(unsigned(r.width));
        Array got(u8(1), 23, 17), like = got, unlike = got;
        ASSERT_EQ(resize(&got, &src, nullptr, r.mode), 0);
        ASSERT_EQ(resize(&like, &src, nullptr, r.like), 0);
        ASSERT_EQ(resize(&unlike, &src, nullptr, r.unlike), 0);
        EXPECT_TRUE(got.same_pixels(like)) << r.width << "x" << r.height << " mode " << r.mode;
        EXPECT_FALSE(got.same_pixels(unlike)) << r.width << "x" << r.height << " mode " << r.mode;
    }
}

TEST(scaleresize, to_another_kind_equals_a_conversion_of_everything_before_it) {
    struct Row {
        LumoRECT region;
        int32_t width, height;
    };
    // Region corners near each edge, so that the context is cut there; odd ones for pairs of pixels. Strong shrinks,
    // down to single pixels, for which only what the taps reach is converted.
    for (const Row& row : {Row{{0, 0, 12, 9}, 18, 14}, Row{{11, 9, 25, 23}, 18, 14}, Row{{3, 1, 13, 9}, 18, 14},
                           Row{{27, 120, 41, 131}, 18, 14}, Row{{0, 0, 40, 131}, 2, 3}, Row{{1, 2, 40, 130}, 4, 1},
                           Row{{1, 2, 40, 129}, 1, 1}, Row{{5, 0, 36, 131}, 1, 5}})
        for (const uint32_t mode : kModes)
            for (const LumoELEMTYPE kind : kKinds)
                each_type(kKinds, {1, 2, 3, 4}, [&](LumoELEMTYPE to) {
                    SCOPED_TRACE(testing::Message() << show(kind) << " at " << row.region.left << ", mode " << mode);
                    if (kind == (to & 0xfff)) return;
                    const Array src = Array(kind | (to & 0xf000), 41, 131, 4).filled(5);
                    Array converted(to, 41, 131), dst(to, row.width, row.height), want(to, row.width, row.height);
                    // Of two channels the last of an odd row belongs to no pair: the two halves of the pairs' grid.
                    const int pairs = src.channels == 2;
                    for (const LumoRECT& part : {LumoRECT{0, 0, 41 - pairs, 131}, LumoRECT{pairs, 0, 41, 131}}) {
                        LumoMAT view;
                        _LumoMATof(&view, &converted, &part);
                        ASSERT_EQ(resize(&view, &src, &part, mode), 0);
                    }
                    ASSERT_EQ(resize(&want, &converted, &row.region, mode), pairs && row.width == 1 ? -1 : 0);
                    ASSERT_EQ(resize(&dst, &src, &row.region, mode), pairs && row.width == 1 ? -1 : 0);
                    expect_part(dst, want);
                });
}

TEST(scaleresize, of_two_channels_leaves_an_odd_last_column) {
    const Array src = Array(u8(2), 12, 6).filled(1);
    Array dst(u8(2), 9, 9);
    dst.set<uint8_t>(200);
    ASSERT_EQ(resize(&dst, &src, nullptr, TARN_LINEAR), 0);
    for (int y = 0; y < 9; ++y) EXPECT_EQ(dst.at<uint8_t>(8, y, 0) + dst.at<uint8_t>(8, y, 1), 400);
    EXPECT_NE(dst.at<uint8_t>(7, 4, 1), 200);
}

TEST(scaleresize, with_a_value_range_stretches_what_it_made) {
    const float range[2] = {20, 200};
    for (const LumoELEMTYPE from : kKinds)
        each_type(kKinds, {1, 2, 3}, [&](LumoELEMTYPE to) {
            SCOPED_TRACE("from " + show(from));
            const Array src = Array(from | (to & 0xf000), 20, 14, 3).filled(4);
            Array plain(to, 30, 9), dst(to, 30, 9, 5), same(to, 20, 14);
            ASSERT_EQ(resize(&plain, &src, nullptr, TARN_CUBIC), 0);
            LumoMAT* arrays[] = {&plain};
            ASSERT_EQ(run<TarnCvtvrangeN>("cvtvrange_n", uint64_t(1), arrays, range), 1);
            EXPECT_EQ(resize(&dst, &src, nullptr, TARN_CUBIC, nullptr, range), 1);
            EXPECT_TRUE(dst.same_pixels(plain));

            // Not resampled: the source's own range becomes lo..hi.
            EXPECT_EQ(resize(&same, &src, nullptr, TARN_CUBIC, nullptr, range), 0);
            double low = 1e9, high = -1e9;
            for (int y = 0; y < 14; ++y)
                for (int x = 0; x < 20; ++x)
                    low = std::min(low, get(&same, x, y)), high = std::max(high, get(&same, x, y));
            EXPECT_NEAR(low, 20, 0.01);
            EXPECT_NEAR(high, 200, 0.01);
        });
}

TEST(scaleresize, cuts_the_region_to_the_source_before_it_computes_factors) {
    const Array src = Array(f32(3), 20, 20).filled(1);
    Array dst(f32(3), 16, 16), want(f32(3), 16, 16);
    for (const auto& [given, cut] :
         {std::pair{LumoRECT{-5, -3, 8, 8}, LumoRECT{0, 0, 8, 8}},
          std::pair{LumoRECT{12, 4, 100, 12}, LumoRECT{12, 4, 20, 12}},
          std::pair{LumoRECT{INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX}, LumoRECT{0, 0, 20, 20}}}) {
        ASSERT_EQ(resize(&dst, &src, &given, TARN_CUBIC), 0);
        ASSERT_EQ(resize(&want, &src, &cut, TARN_CUBIC), 0);
        EXPECT_TRUE(dst.same_pixels(want)) << given.left;
    }
}

TEST(scaleresize, refuses_what_it_can_not_do_and_leaves_the_destination) {
    struct Row {
        const char* what;
        LumoELEMTYPE dst, src;
        LumoRECT region = {1, 1, 5, 5};
        uint32_t mode = TARN_CUBIC;
        LumoSIZE size = {9, 9};
    };
    const LumoRECT inside = {1, 1, 5, 5};
    for (const Row& r :
         {Row{"code 0", u8(1), u8(1), inside, 0}, Row{"code 1", u8(1), u8(1), inside, 1},
          Row{"code 7", u8(1), u8(1), inside, 7}, Row{"code 2^32 - 1", u8(3), u8(3), inside, UINT32_MAX},
          Row{"s32", s32(1), s32(1)}, Row{"u8 to s32", s32(1), u8(1)}, Row{"u32 to u8", u8(1), u32(1)},
          Row{"other channels", u8(3), u8(1)}, Row{"no channels", LUMO_U8, LUMO_U8},
          Row{"no kind", LUMO_CHANNELS(1), LUMO_CHANNELS(1)}, Row{"outside", u8(1), u8(1), {50, 50, 60, 60}},
          Row{"empty", u8(1), u8(1), {4, 4, 4, 8}}, Row{"inside out", u8(1), u8(1), {8, 8, 2, 2}},
          Row{"0 wide", u8(1), u8(1), inside, 6, {0, 9}}, Row{"0 high", u8(1), u8(1), inside, 6, {9, 0}},
          Row{"-4 wide", u8(1), u8(1), inside, 6, {-4, 9}},
          Row{"-2^31 high", u8(1), u8(1), inside, 6, {9, INT32_MIN}}}) {
        SCOPED_TRACE(r.what);
        const Array src(r.src, 12, 12, 200);
        Array dst(r.dst, 9, 9, 200);
        dst.mat.width = r.size.width, dst.mat.height = r.size.height;
        expect_refused(dst, kTypesOfBoth, [&](QuelERR* err) { return resize(&dst, &src, &r.region, r.mode, err); });
    }
}

TEST(scaleresize, with_any_allocation_failing_says_so_and_keeps_nothing) {
    const Array src = Array(u8(3), 30, 20).filled(1);
    Array same(u8(3), 40, 30), other(f32(3), 40, 30);
    const float range[2] = {0, 1};
    for (const uint32_t mode : kModes) {
        int temporaries;
        const auto failing = [&](Array& dst, const float* with_range) {
            QuelERR err;
            int64_t result = -1;
            temporaries = 0;
            const int made = each_allocation_failing(
                [&] { return err = {}, result = resize(&dst, &src, nullptr, mode, &err, with_range); },
                [&](int64_t failed) { temporaries += out_of_memory_of_a_temporary(failed, err, "scaleresize"); });
            EXPECT_EQ(result, with_range != nullptr);
            return made;
        };
        const int made = failing(same, nullptr);
        EXPECT_GT(made, 0);
        EXPECT_EQ(temporaries, 0);
        EXPECT_GT(failing(same, range), made);
        EXPECT_EQ(temporaries, 0);
        // That of a conversion.
        EXPECT_GT(failing(other, nullptr), temporaries);
        EXPECT_GT(temporaries, 0);
    }
}

TEST(scaleresize, gives_all_it_took_of_the_callers_storage_back) {
    const Array src = Array(u8(1), 30, 20).filled(1);
    Array dst(f32(1), 40, 30);
    Storage storage;
    const KaTESTLIVE before = KaTESTlive();
    for (const uint32_t mode : kModes) EXPECT_EQ(resize(&dst, &src, nullptr, mode, nullptr, nullptr, &storage), 0);
    EXPECT_EQ(resize(&dst, &src, nullptr, 0, nullptr, nullptr, &storage), -1);
    EXPECT_EQ(KaTESTlive().blocks, before.blocks);
}

TEST(scaleresize, does_not_depend_on_the_callers_rounding_mode) {
    const Array src = Array(f32(1), 17, 13).filled(1);
    expect_rounding_of_its_own(Array(f32(1), 29, 31),
                               [&](LumoMAT* dst) { return resize(dst, &src, nullptr, TARN_LANCZOS); });
}
