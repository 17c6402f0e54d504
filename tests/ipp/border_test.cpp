// "tarn::copymkb" through the module.
#include <algorithm>

#include "ipp/fixture.h"

using namespace tarn::test;

namespace {

constexpr char kText[] = "@src(.elem-type, .nchannels) -> @dst(.elem-type, .nchannels), @border-type";

int64_t copymkb(LumoMAT* dst, const LumoMAT* src, uint32_t kind, const TarnBORDER* border, QuelERR* err = nullptr) {
    return call<TarnCopymkb>("copymkb", err, nullptr, dst, src, kind, border);
}

// What dst becomes, in the units of the kernels: pixels, or of two channels pairs of them.
void make_border(Array& dst, const Array& src, bool constant, const TarnBORDER& b) {
    const int pixels = src.channels == 2 ? 2 : 1, elements = src.channels * pixels;
    const int width = src.mat.width / pixels, all = (src.mat.width + b.left + b.right) / pixels;
    for (int y = 0; y < src.mat.height + b.top + b.bottom; ++y)
        for (int x = 0; x < all; ++x)
            for (int e = 0; e < (elements == 4 && pixels == 1 ? 3 : elements); ++e) {
                const int sx = std::clamp(x - b.left, 0, width - 1), sy = std::clamp(y - b.top, 0, src.mat.height - 1);
                const bool outside = constant && (sx != x - b.left || sy != y - b.top);
                const double value = !outside ? get(&src, sx * pixels, sy, e)
                                     : src.mat.elemtype >> 8 & 4
                                         ? double(b.values[e % src.channels])
                                         : wrapped(src.mat.elemtype, int64_t(std::floor(b.values[e % src.channels])));
                put(&dst, x * pixels, y, e, value);
            }
}

}  // namespace

TEST(copymkb, makes_the_border_of_every_type_and_form_and_keeps_the_fourth_channel) {
    // Two channels: the left border counts pairs, and what both leave goes to the right.
    const TarnBORDER border = {2, 1, 5, 2, {7.75f, -1.5f, 300.25f, 99}};
    each_type({LUMO_U8, LUMO_S16, LUMO_S32, LUMO_F32}, {1, 2, 3, 4}, [&](LumoELEMTYPE type) {
        for (const uint32_t kind : {2, 3, 4, 5, 6, 7, 8})
            for (const bool upwards : {false, true}) {
                Array src(type, 7, 4, 3, upwards), dst(type, 15, 8, 5, !upwards);  // a column and a row are left over
                src.fill(kind), dst.fill(1);
                Array want = dst;
                make_border(want, src, kind == TARN_BORDER_CONSTANT, border);
                EXPECT_EQ(copymkb(&dst, &src, kind, &border), 0);
                EXPECT_TRUE(dst.same_pixels(want)) << "kind " << kind;
                EXPECT_TRUE(dst.intact());
            }
    });
}

TEST(copymkb, reads_a_negative_right_or_bottom_as_left_or_top) {
    const Array src = Array(u8(1), 4, 3).filled(1);
    Array dst(u8(1), 8, 5), want(u8(1), 8, 5);
    const TarnBORDER given = {2, 1, -1, INT32_MIN, {}}, meant = {2, 1, 2, 1, {}};
    EXPECT_EQ(copymkb(&dst, &src, TARN_BORDER_REPLICATE, &given), 0);
    EXPECT_EQ(copymkb(&want, &src, TARN_BORDER_REPLICATE, &meant), 0);
    EXPECT_TRUE(dst.same_pixels(want));
}

TEST(copymkb, of_a_source_in_the_destination_equals_that_of_one_apart) {
    const TarnBORDER border = {3, 2, 4, 1, {1, 2, 3, 4}};
    for (const int channels : {1, 3, 4})
        for (const uint32_t kind : {TARN_BORDER_CONSTANT, TARN_BORDER_REPLICATE})
            for (const LumoRECT& place : {LumoRECT{3, 2, 12, 7}, LumoRECT{5, 1, 14, 6}}) {
                const Array before = Array(u8(channels), 16, 8, 5).filled(9);
                Array dst = before, want = before;
                LumoMAT within, apart;
                _LumoMATof(&within, &dst, &place);
                _LumoMATof(&apart, &before, &place);
                EXPECT_EQ(copymkb(&want, &apart, kind, &border), 0);
                EXPECT_EQ(copymkb(&dst, &within, kind, &border), 0);
                EXPECT_TRUE(dst.same_pixels(want)) << channels << " channels, kind " << kind;
            }
}

TEST(copymkb, without_a_border_or_a_source_is_a_copy_or_nothing) {
    const Array src = Array(s16(3), 5, 4).filled(1), before = Array(s16(3), 5, 4).filled(2);
    Array dst = before;
    const TarnBORDER border = {1, 1, 1, 1, {}};
    EXPECT_EQ(copymkb(&dst, nullptr, TARN_BORDER_REPLICATE, &border), 0);
    EXPECT_EQ(copymkb(&dst, nullptr, TARN_BORDER_REPLICATE, nullptr), 0);
    EXPECT_EQ(copymkb(&dst, &dst, 99, nullptr), 0);
    EXPECT_TRUE(dst.same_pixels(before));
    EXPECT_EQ(copymkb(&dst, &src, 99, nullptr), 0);
    EXPECT_TRUE(dst.same_pixels(src));
}

TEST(copymkb, refuses_what_it_can_not_do_and_leaves_the_destination) {
    const TarnBORDER good = {1, 1, 1, 1, {}};
    struct Row {
        const char* what;
        LumoELEMTYPE dst, src;
        uint32_t kind;
        TarnBORDER border;
    };
    const auto refused = [](const Array& dst, const Array& src, uint32_t kind, const TarnBORDER& border) {
        LumoMAT to = dst.mat;
        expect_refused(dst, kText, [&](QuelERR* err) { return copymkb(&to, &src, kind, &border, err); });
    };
    const LumoELEMTYPE f64 = LUMO_F64 | LUMO_CHANNELS(1);
    for (const Row& r :
         {Row{"kind 0", u8(1), u8(1), 0, good}, Row{"kind 1", u8(1), u8(1), 1, good},
          Row{"kind 9", u8(1), u8(1), 9, good}, Row{"kind 2^32 - 1", u8(1), u8(1), UINT32_MAX, good},
          Row{"u32", u32(1), u32(1), 4, good}, Row{"f64", f64, f64, 3, good},
          Row{"no channels", LUMO_U8, LUMO_U8, 4, good}, Row{"5 channels", u8(5), u8(5), 4, good},
          Row{"other kinds", u8(1), s16(1), 4, good}, Row{"other channels", u8(3), u8(1), 3, good},
          Row{"too wide", u8(1), u8(1), 4, {1, 1, 2, 1, {}}}, Row{"too high", u8(1), u8(1), 3, {1, 1, 1, 2, {}}},
          Row{"left negative", u8(1), u8(1), 4, {-1, 1, 1, 1, {}}},
          Row{"top negative", u8(1), u8(1), 3, {1, INT32_MIN, 1, INT32_MIN, {}}},
          Row{"huge", u8(1), u8(1), 4, {INT32_MAX, INT32_MAX, -1, -1, {}}},
          Row{"pairs too wide", u8(2), u8(2), 4, {2, 0, 0, 0, {}}}}) {
        SCOPED_TRACE(r.what);
        const Array src(r.src, 8, 4, 200), dst(r.dst, 10, 6, 200);
        refused(dst, src, r.kind, r.border);
    }
    for (const auto& [w, h] : {std::pair{0, 4}, {8, -1}, {INT32_MIN, 4}}) {
        Array src(u8(1), 8, 4), dst(u8(1), 10, 6);
        src.mat.width = w, src.mat.height = h;
        refused(dst, src, TARN_BORDER_REPLICATE, good);
    }
}
