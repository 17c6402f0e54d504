// "tarn::warp-affine" and "tarn::warp-affine-quad" through the module. How far results lie from the real values:
// kernels/warp_test.cpp.
#include <sys/mman.h>
#include <unistd.h>

#include "ipp/fixture.h"

using namespace tarn::test;

namespace {

constexpr uint32_t kModes[] = {TARN_NEAREST, TARN_LINEAR, TARN_CUBIC, TARN_LANCZOS};
constexpr std::initializer_list<LumoELEMTYPE> kKinds = {LUMO_U8, LUMO_S16, LUMO_F32};
constexpr LumoAWARP kIdentity = {1, 0, 0, 0, 1, 0}, kTurn = {0.8, -0.6, 7.3, 0.6, 0.8, -4.1};
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN(), kInfinity = std::numeric_limits<double>::infinity();

int64_t warp(LumoMAT* dst, const LumoMAT* src, const LumoAWARP& by, uint32_t mode, QuelERR* err = nullptr,
             KaSMEMSTG* storage = nullptr) {
    return call<TarnWarpAffine>("warpaffine", err, storage, dst, src, &by, mode);
}
int64_t warp_quad(LumoMAT* dst, const LumoMAT* src, const TarnQUAD* from, const TarnQUAD* to, uint32_t mode,
                  QuelERR* err = nullptr, KaSMEMSTG* storage = nullptr) {
    return call<TarnWarpAffineQuad>("warpaffine4", err, storage, dst, src, from, to, mode);
}

// The way back of a warp that carries whole pixels to whole pixels.
struct Back {
    int a, b, tx, c, d, ty;
};

// Expects of dst what the warp brings from src, and elsewhere what it was. Two channels go in pairs of pixels.
void expect_carried(const Array& dst, const Array& before, const Array& src, const Back& back) {
    const int pair = src.channels == 2 ? 2 : 1;
    expect_pixels(dst, before, [&](int x, int y, int c) {
        const int u = back.a * (x / pair) + back.b * y + back.tx, v = back.c * (x / pair) + back.d * y + back.ty;
        const bool mapped = u >= 0 && u < src.mat.width / pair && v >= 0 && v < src.mat.height;
        return mapped ? get(&src, u * pair + x % pair, v, c) : get(&before, x, y, c);
    });
}

// An array of another kind with the same values, as far as they fit.
Array converted(const Array& src, LumoELEMTYPE kind) {
    Array all((src.mat.elemtype & 0xf000) | kind, src.mat.width, src.mat.height);
    for (int y = 0; y < src.mat.height; ++y)
        for (int x = 0; x < src.mat.width; ++x)
            for (int c = 0; c < src.channels; ++c) put(&all, x, y, c, fit(kind, get(&src, x, y, c)));
    return all;
}

// Whole numbers of a few hundred, which every kind can tell apart.
Array values(LumoELEMTYPE type, int width, int height, unsigned seed, int padding = 0) {
    Array all(type, width, height, padding, seed & 1);
    std::mt19937 rng(seed);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width * all.channels; ++x)
            put(&all, x / all.channels, y, x % all.channels, double(rng() % 700) - 200);
    return all;
}

void expect_alike(const Array& got, const Array& want) {
    expect_pixels(
        got, want, [&](int x, int y, int c) { return get(&want, x, y, c); }, got.mat.elemtype & 0x400 ? 1e-3 : 0);
}

}  // namespace

TEST(warp, carries_whole_pixels_of_every_type_and_form_and_leaves_the_others) {
    struct Row {
        LumoAWARP warp;
        Back back;
    };
    for (const Row& r : {Row{kIdentity, {1, 0, 0, 0, 1, 0}}, Row{{1, 0, 3, 0, 1, -2}, {1, 0, -3, 0, 1, 2}},
                         Row{{0, -1, 8, 1, 0, 1}, {0, 1, -1, -1, 0, 8}}, Row{{-1, 0, 9, 0, 1, 0}, {-1, 0, 9, 0, 1, 0}}})
        for (const uint32_t mode : kModes)
            each_type(kKinds, {1, 2, 3, 4}, [&](LumoELEMTYPE type) {
                const Array src = Array(type, 21, 13, 5, true).filled(mode), before = Array(type, 25, 11, 3).filled(9);
                Array dst = before;
                EXPECT_EQ(warp(&dst, &src, r.warp, mode), 1);
                expect_carried(dst, before, src, r.back);
                EXPECT_TRUE(src.intact());
            });
}

TEST(warp, to_another_kind_equals_a_conversion_of_everything_before_it) {
    // Sources that land as a whole, in part on each side, and with a small part of theirs.
    for (const LumoAWARP& by :
         {kTurn, LumoAWARP{0.8, -0.6, -21.7, 0.6, 0.8, -19.2}, LumoAWARP{2.2, 0.3, -95, -0.4, 1.9, -40},
          LumoAWARP{-0.31, 0.02, 15, 0.03, 0.33, 9}, LumoAWARP{0, -1, 31, 1, 0, -30}})
        for (const uint32_t mode : kModes)
            for (const LumoELEMTYPE kind : {LUMO_U8, LUMO_S16, LUMO_S32, LUMO_F32})
                each_type(kKinds, {1, 2, 3, 4}, [&](LumoELEMTYPE to) {
                    SCOPED_TRACE(testing::Message() << "from " << show(kind) << " by " << by.tx << ", mode " << mode);
                    if (kind == (to & 0xfff)) return;
                    const Array src = values(kind | (to & 0xf000), 91, 52, mode, 4);
                    Array dst = Array(to, 40, 31, 3).filled(2), want = dst;
                    EXPECT_EQ(warp(&want, &converted(src, to & 0xfff), by, mode), 1);
                    EXPECT_EQ(warp(&dst, &src, by, mode), 1);
                    expect_alike(dst, want);
                    // The same by corners.
                    const auto at = [&](double x, double y) {
                        return TarnCORNER{by.a * x + by.b * y + by.tx, by.c * x + by.d * y + by.ty};
                    };
                    const TarnQUAD corners = {{{0, 0}, {64, 0}, {64, 32}, {0, 32}}},
                                   places = {{at(0, 0), at(64, 0), at(64, 32), at(0, 32)}};
                    Array quad = Array(to, 40, 31, 3).filled(2);
                    EXPECT_EQ(warp_quad(&quad, &src, &corners, &places, mode), 0);
                    expect_alike(quad, want);
                });
}

TEST(warp, to_another_kind_reads_only_what_lands_and_eight_pixels_around_it) {
    // A row is a page; rows that may not be read can not be.
    const auto page = size_t(sysconf(_SC_PAGESIZE));
    const auto rows =
        static_cast<uint8_t*>(mmap(nullptr, 100 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(rows, MAP_FAILED);
    std::memset(rows + 49 * page, 200, 1);
    mprotect(rows, 22 * page, PROT_NONE);
    mprotect(rows + 58 * page, 42 * page, PROT_NONE);
    const LumoMAT src = {nullptr, LUMO_U8 | LUMO_CHANNELS(1), int32_t(page), 100, int32_t(page), rows};
    Array dst(f32(1), 50, 20);
    EXPECT_EQ(warp(&dst, &src, {1, 0, 0, 0, 1, -30}, TARN_LINEAR), 1);
    EXPECT_EQ(dst.at<float>(0, 19), 200);
    munmap(rows, 100 * page);
}

TEST(warp, of_nothing_that_lands_in_the_destination_is_no_error) {
    for (const LumoELEMTYPE type : {u8(3), f32(3)}) {
        const Array src = Array(u8(3), 20, 10).filled(1);
        Array dst = Array(type, 20, 10).filled(2);
        const Array before = dst;
        QuelERR err = {};
        for (const LumoAWARP& by : {LumoAWARP{1, 0, 20, 0, 1, 0}, LumoAWARP{1, 0, 0, 0, 1, -1e9},
                                    LumoAWARP{0.01, 0, 0.3, 0, 1, 0}, LumoAWARP{1, 0, 1e300, 0, 1, 0}})
            for (const uint32_t mode : kModes) EXPECT_EQ(warp(&dst, &src, by, mode, &err), 0) << by.tx;
        const TarnQUAD away = {{{30, 0}, {40, 0}, {40, 9}, {30, 9}}};
        EXPECT_EQ(warp_quad(&dst, &src, nullptr, &away, TARN_LINEAR, &err), 0);
        for (const LumoSIZE size : {LumoSIZE{0, 10}, LumoSIZE{20, 0}}) {
            LumoMAT none = src.mat;
            none.width = size.width, none.height = size.height;
            EXPECT_EQ(warp(&dst, &none, kIdentity, 99, &err), 0);
        }
        EXPECT_EQ(err.count, 0u);
        EXPECT_TRUE(dst.same_pixels(before));
    }
}

TEST(warp, of_quads_takes_the_corner_pixels_for_those_that_are_not_given) {
    for (const LumoSIZE size : {LumoSIZE{21, 13}, LumoSIZE{1, 13}, LumoSIZE{21, 1}, LumoSIZE{1, 1}})
        for (const int channels : {1, 3, 4}) {
            const Array src = Array(s16(channels), size.width, size.height, 4).filled(1),
                        before = Array(s16(channels), size.width, size.height).filled(2);
            Array dst = before;
            EXPECT_EQ(warp_quad(&dst, &src, nullptr, nullptr, TARN_LINEAR), 0);
            expect_carried(dst, before, src, {1, 0, 0, 0, 1, 0});
        }
    // A part of the source to all of the destination, all of it to a part, and what lies where; whatever the fourth is.
    const Array src = values(f32(1), 21, 13, 1);
    for (const double fourth : {6.0, 1e6}) {
        const TarnQUAD part = {{{3, 4}, {11, 4}, {11, 9}, {3, fourth + 3}}};
        Array of_part(f32(1), 9, 6), twice(f32(1), 17, 11), into(f32(1), 30, 30);
        QuelERR err = {};
        EXPECT_EQ(warp_quad(&of_part, &src, &part, nullptr, TARN_NEAREST, &err), 0);
        expect_pixels(of_part, of_part, [&](int x, int y, int) { return get(&src, x + 3, y + 4); });
        EXPECT_EQ(warp_quad(&twice, &src, &part, nullptr, TARN_LINEAR, &err), 0);
        EXPECT_EQ(get(&twice, 16, 10), get(&src, 11, 9));
        EXPECT_EQ(get(&twice, 3, 4), (get(&src, 4, 6) + get(&src, 5, 6)) / 2);
        // Turned by a quarter.
        const TarnQUAD turned = {{{14, 2}, {14, 22}, {2, 22}, {fourth, 2}}};
        EXPECT_EQ(warp_quad(&into, &src, nullptr, &turned, TARN_NEAREST, &err), 0);
        for (int y = 0; y < 13; ++y)
            for (int x = 0; x < 21; ++x) ASSERT_EQ(get(&into, 14 - y, 2 + x), get(&src, x, y));
        EXPECT_EQ(err.count, 0u);
    }
}

TEST(warp, of_more_channels_takes_their_elements_for_pixels_of_the_destinations) {
    const Array src = Array(u8(4), 6, 5, 2).filled(1);
    for (const LumoELEMTYPE type : {u8(1), f32(1)}) {
        Array dst(type, 9, 5);
        EXPECT_EQ(warp(&dst, &src, kIdentity, TARN_NEAREST), 1);
        for (int y = 0; y < 5; ++y)
            for (int x = 0; x < 6; ++x) EXPECT_EQ(get(&dst, x, y), src.row<uint8_t>(y)[x]);
    }
}

TEST(warp, reads_code_2_as_cubic) {
    const Array src = Array(u8(3), 30, 20).filled(1);
    Array dst(u8(3), 30, 20), want = dst, quad = dst, linear = dst;
    EXPECT_EQ(warp(&want, &src, kTurn, TARN_CUBIC), 1);
    EXPECT_EQ(warp(&dst, &src, kTurn, TARN_CUBIC_ALIAS), 1);
    EXPECT_TRUE(dst.same_pixels(want));
    const TarnQUAD square = {{{0, 0}, {10, 0}, {10, 10}, {0, 10}}};
    const TarnQUAD turned = {{{7.3, -4.1}, {15.3, 1.9}, {9.3, 9.9}, {1.3, 3.9}}};
    EXPECT_EQ(warp_quad(&quad, &src, &square, &turned, TARN_CUBIC_ALIAS), 0);
    EXPECT_TRUE(quad.same_pixels(want));
    EXPECT_EQ(warp(&linear, &src, kTurn, TARN_LINEAR), 1);
    EXPECT_FALSE(linear.same_pixels(want));
}

TEST(warp, refuses_what_it_can_not_do_and_leaves_the_destination) {
    const TarnQUAD square = {{{0, 0}, {8, 0}, {8, 8}, {0, 8}}}, line = {{{0, 0}, {4, 4}, {8, 8}, {0, 8}}},
                   point = {{{3, 3}, {3, 3}, {3, 3}, {3, 3}}}, nan = {{{0, 0}, {8, kNaN}, {8, 8}, {0, 8}}};
    struct Row {
        const char* what;
        LumoELEMTYPE dst, src;
        LumoAWARP warp = kIdentity;
        TarnQUAD from, to;
        uint32_t mode = TARN_LINEAR;
        LumoSIZE size = {9, 9};
    };
    for (const Row& r : {Row{"code 0", u8(1), u8(1), kIdentity, square, square, 0},
                         Row{"code 1", u8(1), s16(1), kIdentity, square, square, 1},
                         Row{"code 7", f32(1), f32(1), kIdentity, square, square, 7},
                         Row{"code 2^32 - 1", u8(3), u8(3), kIdentity, square, square, UINT32_MAX},
                         Row{"s32", s32(1), s32(1), kIdentity, square, square},
                         Row{"u8 to s32", s32(1), u8(1), kIdentity, square, square},
                         Row{"u32 to u8", u8(1), u32(1), kIdentity, square, square},
                         Row{"u32 to u8 that does not land", u8(1), u32(1), {1, 0, 50, 0, 1, 0}, square, square},
                         Row{"kind 7", 0x1700, 0x1700, kIdentity, square, square},
                         Row{"kind 15", u8(1), 0x1f00, kIdentity, square, square},
                         Row{"fewer channels", u8(3), u8(1), kIdentity, square, square},
                         Row{"fewer channels of another kind", u8(4), s16(3), kIdentity, square, square},
                         Row{"no channels", LUMO_U8, LUMO_U8, kIdentity, square, square},
                         Row{"5 channels", u8(5), u8(5), kIdentity, square, square},
                         Row{"singular", u8(1), u8(1), {1, 2, 0, 2, 4, 0}, square, line},
                         Row{"singular, of another kind", u8(1), s16(1), {1, 2, 0, 2, 4, 0}, line, square},
                         Row{"nothing", u8(1), u8(1), {}, square, point},
                         Row{"nothing, of another kind", f32(1), u8(1), {}, point, square},
                         Row{"NaN", u8(1), u8(1), {1, 0, 0, 0, kNaN, 0}, nan, square},
                         Row{"NaN, of another kind", u8(1), f32(1), {1, 0, kNaN, 0, 1, 0}, square, nan},
                         Row{"infinite", u8(1), u8(1), {1, 0, kInfinity, 0, 1, 0}, square, nan},
                         Row{"infinite, of another kind", u8(1), s16(1), {1, 0, 0, 0, kInfinity, 0}, nan, nan},
                         Row{"0 wide", u8(1), u8(1), kIdentity, square, square, TARN_LINEAR, {0, 9}},
                         Row{"0 high, of another kind", u8(1), f32(1), kIdentity, square, square, TARN_LINEAR, {9, 0}},
                         Row{"-4 wide", u8(1), u8(1), kIdentity, square, square, TARN_LINEAR, {-4, 9}},
                         Row{"half a pair", u8(2), u8(2), kIdentity, square, square, TARN_LINEAR, {1, 9}},
                         Row{"-2^31 high", u8(1), s16(1), kIdentity, square, square, TARN_LINEAR, {9, INT32_MIN}}}) {
        SCOPED_TRACE(r.what);
        Array src(r.src, 12, 12, 200), dst(r.dst, 9, 9, 200);
        dst.mat.width = r.size.width, dst.mat.height = r.size.height;
        expect_refused(dst, kTypesOfBoth, [&](QuelERR* err) { return warp(&dst, &src, r.warp, r.mode, err); });
        expect_refused(dst, kTypesOfBoth,
                       [&](QuelERR* err) { return warp_quad(&dst, &src, &r.from, &r.to, r.mode, err); });
        // A source with such a size is no better; one of 0 has nothing to do for the warp.
        if (r.size.width == 9 && r.size.height == 9) continue;
        std::swap(src.mat.width, dst.mat.width), std::swap(src.mat.height, dst.mat.height);
        if (src.mat.width && src.mat.height)
            expect_refused(dst, kTypesOfBoth, [&](QuelERR* err) { return warp(&dst, &src, r.warp, r.mode, err); });
        expect_refused(dst, kTypesOfBoth,
                       [&](QuelERR* err) { return warp_quad(&dst, &src, nullptr, nullptr, r.mode, err); });
    }
}

TEST(warp, without_memory_for_its_temporary_says_so_by_the_status_alone) {
    const Array src = Array(u8(3), 30, 20).filled(1), before(f32(3), 40, 30);
    Storage storage;
    for (const bool quad : {false, true})
        for (KaSMEMSTG* given : {static_cast<KaSMEMSTG*>(nullptr), static_cast<KaSMEMSTG*>(&storage)}) {
            Array dst = before;
            QuelERR err;
            const auto once = [&] {
                err = {};
                return quad ? warp_quad(&dst, &src, nullptr, nullptr, TARN_LINEAR, &err, given) + 1
                            : warp(&dst, &src, kTurn, TARN_LINEAR, &err, given);
            };
            const int made = each_allocation_failing(once, [&](int64_t result) {
                EXPECT_TRUE(dst.same_pixels(before));
                EXPECT_TRUE(
                    out_of_memory_of_a_temporary(quad ? result - 1 : result, err, quad ? "warpaffine4" : "warpaffine"));
            });
            EXPECT_GT(made, 0);
            EXPECT_FALSE(dst.same_pixels(before));
        }
    // Rows beyond what a temporary can have.
    LumoMAT wide = src.mat;
    wide.width = INT32_MAX / 4, wide.height = 2;
    Array dst(f32(3), 40, 30);
    for (const bool quad : {false, true}) {
        QuelERR err = {};
        const LumoAWARP small = {1e-8, 0, 0, 0, 1, 0};
        EXPECT_EQ(quad ? warp_quad(&dst, &wide, nullptr, nullptr, TARN_LINEAR, &err)
                       : warp(&dst, &wide, small, TARN_LINEAR, &err),
                  -1);
        EXPECT_EQ(err.count, 0u);
        EXPECT_EQ(err.status >> 16, 0x05e7u);
    }
}

TEST(warp, gives_all_it_took_of_the_callers_storage_back) {
    const Array src = Array(u8(1), 30, 20).filled(1);
    Array dst(f32(1), 40, 30);
    Storage storage;
    const KaTESTLIVE before = KaTESTlive();
    const LumoAWARP away = {1, 0, 100, 0, 1, 0};
    EXPECT_EQ(warp(&dst, &src, kTurn, TARN_LINEAR, nullptr, &storage), 1);
    EXPECT_EQ(warp(&dst, &src, away, TARN_LINEAR, nullptr, &storage), 0);
    EXPECT_EQ(warp_quad(&dst, &src, nullptr, nullptr, TARN_LINEAR, nullptr, &storage), 0);
    EXPECT_EQ(warp(&dst, &src, {}, TARN_LINEAR, nullptr, &storage), -1);
    EXPECT_EQ(KaTESTlive().blocks, before.blocks);
}

TEST(warp, does_not_depend_on_the_callers_rounding_mode) {
    const Array src = Array(f32(1), 17, 13).filled(1);
    expect_rounding_of_its_own(Array(f32(1), 29, 31),
                               [&](LumoMAT* dst) { return warp(dst, &src, kTurn, TARN_LINEAR) - 1; });
    expect_rounding_of_its_own(Array(s16(1), 29, 31),
                               [&](LumoMAT* dst) { return warp_quad(dst, &src, nullptr, nullptr, TARN_LINEAR); });
}
