// "tarn::scale-resize" through the module. How far results lie from the real values: kernels/resize_test.cpp.
#include <cfenv>

#include "ipp/fixture.h"

using namespace tarn::test;

namespace {

constexpr uint32_t kModes[] = {TARN_NEAREST, TARN_LINEAR, TARN_CUBIC, TARN_LANCZOS};
constexpr LumoELEMTYPE kKinds[] = {LUMO_U8, LUMO_S16, LUMO_F32};
constexpr char kTypes[] = "@src(.elem-type, .nchannels) -> @dst(.elem-type, .nchannels)";

struct Outcome {
    int64_t result;
    QuelERR err;
};
Outcome resize(LumoMAT* dst, const LumoMAT* src, const LumoRECT* region, uint32_t mode, KaSMEMSTG* storage = nullptr,
               const float* range = nullptr) {
    Outcome o = {};
    o.result = call<TarnScaleResize>("scaleresize", &o.err, storage, dst, src, region,
                                     reinterpret_cast<const uint32_t*>(range), mode);
    return o;
}

// The pixels of a part of an array, packed, the first `carried` channels.
std::vector<uint8_t> part(const Array& a, const LumoRECT& r, int carried) {
    std::vector<uint8_t> all;
    const int pixel = a.channels * a.element_bytes;
    for (int y = r.top; y < r.bottom; ++y)
        for (int x = r.left; x < r.right; ++x)
            all.insert(all.end(), a.row<uint8_t>(y) + x * pixel,
                       a.row<uint8_t>(y) + x * pixel + carried * a.element_bytes);
    return all;
}
LumoRECT all_of(const Array& a) { return {0, 0, a.mat.width, a.mat.height}; }

}  // namespace

TEST(scaleresize, of_a_region_gives_that_part_of_the_whole_resized) {
    for (const uint32_t mode : kModes)
        for (const LumoELEMTYPE kind : kKinds)
            for (int channels = 1; channels <= 4; ++channels)
                for (const bool upwards : {false, true}) {
                    SCOPED_TRACE(testing::Message() << mode << " " << LumoELEMTYPEshow(kind) << " x " << channels);
                    const LumoELEMTYPE type = kind | LUMO_CHANNELS(channels);
                    Array src(type, 40, 21, 12, upwards), whole(type, 80, 42), dst(type, 36, 18, 8, !upwards);
                    src.fill(3);
                    ASSERT_EQ(resize(&whole, &src, nullptr, mode).result, 0);
                    dst.set<uint8_t>(7);
                    const LumoRECT region = {6, 5, 24, 14};
                    ASSERT_EQ(resize(&dst, &src, &region, mode).result, 0);
                    const int carried = channels == 4 ? 3 : channels;
                    EXPECT_EQ(part(dst, all_of(dst), carried), part(whole, {12, 10, 48, 28}, carried));
                    EXPECT_TRUE(dst.intact());
                    EXPECT_TRUE(src.intact());
                }
}

TEST(scaleresize, keeps_the_fourth_channel_when_it_resamples_and_copies_it_when_it_does_not) {
    Array src(s16(4), 12, 10), up(s16(4), 24, 20), same(s16(4), 5, 4);
    src.fill(1);
    for (const uint32_t mode : kModes) {
        up.set<int16_t>(-5);
        ASSERT_EQ(resize(&up, &src, nullptr, mode).result, 0);
        for (int y = 0; y < 20; ++y)
            for (int x = 0; x < 24; ++x) ASSERT_EQ(up.at<int16_t>(x, y, 3), -5);
    }
    const LumoRECT region = {3, 2, 8, 6};
    ASSERT_EQ(resize(&same, &src, &region, TARN_CUBIC).result, 0);
    EXPECT_EQ(same.pixels(), part(src, region, 4));
    for (const LumoELEMTYPE kind :
         {LUMO_U8, LUMO_S16, LUMO_S32, LUMO_F32}) {  // a copy serves kinds that no resize serves
        Array from(kind | LUMO_CHANNELS(3), 12, 10, 5), to(kind | LUMO_CHANNELS(3), 5, 4);
        from.fill(2);
        ASSERT_EQ(resize(&to, &from, &region, 99).result, 0);
        EXPECT_EQ(to.pixels(), part(from, region, 3));
    }
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
        Array src(u8(1), r.width, r.height), got(u8(1), 23, 17), like(u8(1), 23, 17), unlike(u8(1), 23, 17);
        src.fill(unsigned(r.width));
        ASSERT_EQ(resize(&got, &src, nullptr, r.mode).result, 0);
        ASSERT_EQ(resize(&like, &src, nullptr, r.like).result, 0);
        ASSERT_EQ(resize(&unlike, &src, nullptr, r.unlike).result, 0);
        EXPECT_TRUE(got.same_pixels(like)) << r.width << "x" << r.height << " mode " << r.mode;
        EXPECT_FALSE(got.same_pixels(unlike)) << r.width << "x" << r.height << " mode " << r.mode;
    }
}

TEST(scaleresize, to_another_kind_equals_a_conversion_of_everything_before_it) {
    // Region corners near each edge, so that the context is cut there; odd ones for pairs of pixels.
    for (const LumoRECT& region :
         {LumoRECT{0, 0, 12, 9}, LumoRECT{11, 9, 25, 23}, LumoRECT{3, 1, 13, 9}, LumoRECT{27, 20, 41, 31}})
        for (const LumoELEMTYPE from : kKinds)
            for (const LumoELEMTYPE to : kKinds)
                for (int channels = 1; channels <= 4; ++channels)
                    for (const uint32_t mode : kModes) {
                        if (from == to) continue;
                        SCOPED_TRACE(testing::Message()
                                     << mode << " " << LumoELEMTYPEshow(from) << " to " << LumoELEMTYPEshow(to) << " x "
                                     << channels << " at " << region.left);
                        Array src(from | LUMO_CHANNELS(channels), 41, 31, 4),
                            converted(to | LUMO_CHANNELS(channels), 41, 31);
                        Array dst(to | LUMO_CHANNELS(channels), 18, 14), want(to | LUMO_CHANNELS(channels), 18, 14);
                        src.fill(5);
                        if (channels == 2) {  // the last of an odd row belongs to no pair: convert the two halves of
                                              // the pairs' grid
                            LumoRECT left = {0, 0, 40, 31}, right = {1, 0, 41, 31};
                            for (const LumoRECT& r : {left, right}) {
                                LumoMAT view;
                                _LumoMATof(&view, &converted, &r);
                                ASSERT_EQ(resize(&view, &src, &r, mode).result, 0);
                            }
                        } else {
                            ASSERT_EQ(resize(&converted, &src, nullptr, mode).result, 0);
                        }
                        ASSERT_EQ(resize(&want, &converted, &region, mode).result, 0);
                        ASSERT_EQ(resize(&dst, &src, &region, mode).result, 0);
                        const int carried = channels == 4 ? 3 : channels;
                        ASSERT_EQ(part(dst, all_of(dst), carried), part(want, all_of(want), carried));
                    }
}

TEST(scaleresize, of_two_channels_leaves_an_odd_last_column) {
    Array src(u8(2), 12, 6), dst(u8(2), 9, 9);
    src.fill(1);
    dst.set<uint8_t>(200);
    ASSERT_EQ(resize(&dst, &src, nullptr, TARN_LINEAR).result, 0);
    for (int y = 0; y < 9; ++y) EXPECT_EQ(dst.at<uint8_t>(8, y, 0) + dst.at<uint8_t>(8, y, 1), 400);
    EXPECT_NE(dst.at<uint8_t>(7, 4, 1), 200);
}

TEST(scaleresize, with_a_value_range_stretches_what_it_made) {
    const float range[2] = {20, 200};
    for (const LumoELEMTYPE from : kKinds)
        for (const LumoELEMTYPE to : kKinds)
            for (const int channels : {1, 2, 3}) {
                SCOPED_TRACE(testing::Message()
                             << LumoELEMTYPEshow(from) << " to " << LumoELEMTYPEshow(to) << " x " << channels);
                Array src(from | LUMO_CHANNELS(channels), 20, 14, 3), plain(to | LUMO_CHANNELS(channels), 30, 9);
                Array dst(plain.mat.elemtype, 30, 9, 5), copied(plain.mat.elemtype, 20, 14),
                    same(plain.mat.elemtype, 20, 14);
                src.fill(4);
                ASSERT_EQ(resize(&plain, &src, nullptr, TARN_CUBIC).result, 0);
                LumoMAT* arrays[] = {&plain};
                ASSERT_EQ((call<TarnCvtvrangeN>("cvtvrange_n", nullptr, nullptr, uint64_t(1), arrays, range)), 1);
                EXPECT_EQ(resize(&dst, &src, nullptr, TARN_CUBIC, nullptr, range).result, 1);
                EXPECT_TRUE(dst.same_pixels(plain));

                // Not resampled: the source's own range becomes lo..hi.
                EXPECT_EQ(resize(&same, &src, nullptr, TARN_CUBIC, nullptr, range).result, 0);
                double low = 1e9, high = -1e9;
                for (int y = 0; y < 14; ++y)
                    for (int i = 0; i < 20 * channels; i += channels) {
                        const double v = to == LUMO_U8    ? same.row<uint8_t>(y)[i]
                                         : to == LUMO_S16 ? same.row<int16_t>(y)[i]
                                                          : same.row<float>(y)[i];
                        low = std::min(low, v), high = std::max(high, v);
                    }
                EXPECT_NEAR(low, 20, 0.01);
                EXPECT_NEAR(high, 200, 0.01);
            }
}

TEST(scaleresize, cuts_the_region_to_the_source_before_it_computes_factors) {
    Array src(f32(3), 20, 20), dst(f32(3), 16, 16), want(f32(3), 16, 16);
    src.fill(1);
    for (const auto& [given, cut] :
         {std::pair{LumoRECT{-5, -3, 8, 8}, LumoRECT{0, 0, 8, 8}},
          std::pair{LumoRECT{12, 4, 100, 12}, LumoRECT{12, 4, 20, 12}},
          std::pair{LumoRECT{INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX}, LumoRECT{0, 0, 20, 20}}}) {
        ASSERT_EQ(resize(&dst, &src, &given, TARN_CUBIC).result, 0);
        ASSERT_EQ(resize(&want, &src, &cut, TARN_CUBIC).result, 0);
        EXPECT_TRUE(dst.same_pixels(want)) << given.left;
    }
}

TEST(scaleresize, refuses_what_it_can_not_do_and_leaves_the_destination) {
    struct Row {
        const char* what;
        LumoELEMTYPE dst, src;
        LumoRECT region;
        uint32_t mode;
    };
    const LumoRECT inside = {1, 1, 5, 5};
    for (const Row& r : {Row{"code 0", u8(1), u8(1), inside, 0}, Row{"code 1", u8(1), u8(1), inside, 1},
                         Row{"code 7", u8(1), u8(1), inside, 7}, Row{"code 2^32 - 1", u8(3), u8(3), inside, UINT32_MAX},
                         Row{"s32", s32(1), s32(1), inside, 4}, Row{"u8 to s32", s32(1), u8(1), inside, 4},
                         Row{"u32 to u8", u8(1), u32(1), inside, 4}, Row{"other channels", u8(3), u8(1), inside, 4},
                         Row{"no channels", LUMO_U8, LUMO_U8, inside, 4},
                         Row{"no kind", LUMO_CHANNELS(1), LUMO_CHANNELS(1), inside, 4},
                         Row{"outside", u8(1), u8(1), {50, 50, 60, 60}, 4}, Row{"empty", u8(1), u8(1), {4, 4, 4, 8}, 4},
                         Row{"inside out", u8(1), u8(1), {8, 8, 2, 2}, 4}}) {
        Array src(r.src, 12, 12, 200), dst(r.dst, 9, 9, 200);
        const std::vector<uint8_t> before = dst.memory;
        const Outcome o = resize(&dst, &src, &r.region, r.mode);
        SCOPED_TRACE(r.what);
        expect_error(o.result, o.err, QUEL_E_TYPE, QUEL_C_UNSUPPORTED, kTypes);
        EXPECT_EQ(dst.memory, before);
    }
    Array src(u8(1), 12, 12), dst(u8(1), 9, 9);
    for (const LumoSIZE size : {LumoSIZE{0, 9}, LumoSIZE{9, 0}, LumoSIZE{-4, 9}, LumoSIZE{9, INT32_MIN}}) {
        dst.mat.width = size.width, dst.mat.height = size.height;
        const Outcome o = resize(&dst, &src, nullptr, TARN_LANCZOS);
        expect_error(o.result, o.err, QUEL_E_TYPE, QUEL_C_UNSUPPORTED, kTypes);
    }
}

TEST(scaleresize, with_any_allocation_failing_says_so_and_keeps_nothing) {
    Array src(u8(3), 30, 20), same(u8(3), 40, 30), other(f32(3), 40, 30);
    src.fill(1);
    for (const uint32_t mode : kModes) {
        Outcome o;
        const auto out_of_memory = [&](int64_t result) {
            expect_error(result, o.err, QUEL_E_NOMEM, QUEL_C_NOMEM, "scaleresize");
        };
        const float range[2] = {0, 1};
        const int made =
            each_allocation_failing([&] { return (o = resize(&same, &src, nullptr, mode)).result; }, out_of_memory);
        EXPECT_EQ(o.result, 0);
        const int made_with_range = each_allocation_failing(
            [&] { return (o = resize(&same, &src, nullptr, mode, nullptr, range)).result; }, out_of_memory);
        EXPECT_EQ(o.result, 1);
        EXPECT_GT(made, 0);
        EXPECT_GT(made_with_range, made);

        // The temporary of a conversion makes no error value; what comes after it does.
        bool temporary_failed = false, kernel_failed = false;
        each_allocation_failing([&] { return (o = resize(&other, &src, nullptr, mode)).result; },
                                [&](int64_t result) {
                                    if (o.err.count) return kernel_failed = true, out_of_memory(result);
                                    EXPECT_EQ(result, -1);
                                    EXPECT_EQ(o.err.status >> 16 & 0xffff, 0x05e7u);
                                    temporary_failed = true;
                                });
        EXPECT_TRUE(temporary_failed);
        EXPECT_TRUE(kernel_failed);
        EXPECT_EQ(o.result, 0);
    }
}

TEST(scaleresize, gives_all_it_took_of_the_callers_storage_back) {
    Array src(u8(1), 30, 20), dst(f32(1), 40, 30);
    src.fill(1);
    KaSMEMSTG storage = {};
    ASSERT_NE(KaSMEMSTGopen(&storage, nullptr, 0, nullptr), nullptr);
    const KaTESTLIVE before = KaTESTlive();
    for (const uint32_t mode : kModes) EXPECT_EQ(resize(&dst, &src, nullptr, mode, &storage).result, 0);
    EXPECT_EQ(resize(&dst, &src, nullptr, 0, &storage).result, -1);
    EXPECT_EQ(KaTESTlive().blocks, before.blocks);
    KaMEMSTGdestroy(&storage.base);
}

TEST(scaleresize, does_not_depend_on_the_callers_rounding_mode) {
    Array src(f32(1), 17, 13), dst(f32(1), 29, 31), want(f32(1), 29, 31);
    src.fill(1);
    ASSERT_EQ(resize(&want, &src, nullptr, TARN_LANCZOS).result, 0);
    std::fesetround(FE_UPWARD);
    const int64_t result = resize(&dst, &src, nullptr, TARN_LANCZOS).result;
    EXPECT_EQ(std::fegetround(), FE_UPWARD);
    std::fesetround(FE_TONEAREST);
    ASSERT_EQ(result, 0);
    EXPECT_TRUE(dst.same_pixels(want));
}
