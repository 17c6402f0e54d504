// Origin and reshaping through the module.
#include "ipp/fixture.h"

using namespace tarn::test;

namespace {

int64_t origin(LumoMAT* a, uint32_t from, uint32_t to) { return run<TarnCvtorigin>("tarn::cvtorigin", a, from, to); }
int64_t reshape(Array& dst, Array& src, uint32_t method = 0, QuelERR* err = nullptr) {
    return call<TarnReshape>("tarn::reshape", err, nullptr, &dst, &src, method);
}

}  // namespace

TEST(origin, reverses_the_rows_of_every_kind_with_all_channels) {
    constexpr int kBytes[] = {0, 1, 2, 4, 4, 4, 0, 0, 1, 2, 8, 8, 0};
    for (int kind = 0; kind <= 12; ++kind)
        for (int channels = 1; channels <= 5; ++channels)
            for (int height : {1, 2, 5}) {
                SCOPED_TRACE(testing::Message() << "kind " << kind << " x " << channels << ", " << height << " rows");
                const bool served = kBytes[kind] && channels <= 4;
                const int bytes = kBytes[kind] ? kBytes[kind] : 1, width = 7;
                // The reference host does not know the size of every kind: an array of bytes, seen as another.
                const Array a = Array(u8(1), width * channels * bytes, height, 5).filled(unsigned(kind)), before = a;
                LumoMAT seen = a.mat;
                seen.elemtype = LumoELEMTYPE(kind << 8 | channels << 12), seen.width = width;
                EXPECT_EQ(origin(&seen, 3, 3), 0);
                EXPECT_TRUE(a.same_pixels(before));
                EXPECT_EQ(origin(&seen, 0, 1), 0);
                // Of two channels in pairs of pixels the odd last column stays.
                const int moved = !served ? 0 : (channels == 2 ? width - 1 : width) * channels * bytes;
                for (int y = 0; y < height; ++y)
                    for (int i = 0; i < a.mat.width; ++i)
                        ASSERT_EQ(a.row<uint8_t>(y)[i], before.row<uint8_t>(i < moved ? height - 1 - y : y)[i]);
                EXPECT_TRUE(a.intact());
            }
}

TEST(origin, of_lists_returns_how_many_arrays_it_visited) {
    Operands a(u8(1)), b(f32(3)), c(LUMO_F64 | LUMO_CHANNELS(1));
    LumoMAT* list[] = {&a.dst, &c.dst, &b.dst};
    const auto of_list = [&](uint64_t n, uint32_t from, uint32_t to) {
        return run<TarnCvtoriginN>("tarn::cvtorigin-n", n, list, from, to);
    };
    EXPECT_EQ(of_list(0, 0, 1), 0);
    EXPECT_EQ(of_list(3, 1, 1), 0);
    EXPECT_TRUE(b.dst.same_pixels(b.before));
    EXPECT_EQ(of_list(3, 1, 0), 3);
    EXPECT_TRUE(c.dst.same_pixels(c.before));
    for (const Operands* o : {std::addressof(a), std::addressof(b)})
        expect_pixels(o->dst, o->before, [&](int x, int y, int ch) { return get(&o->before, x, 2 - y, ch); });
}

TEST(origin, with_hostile_sizes_touches_nothing) {
    Operands o(u8(1));
    for (const auto& [w, h] : {std::pair{0, 3}, {-1, 3}, {5, 0}, {5, -2147483647}}) {
        o.dst.mat.width = w, o.dst.mat.height = h;
        EXPECT_EQ(origin(&o.dst, 0, 1), 0);
        EXPECT_EQ(o.dst.memory, o.before.memory);
    }
}

TEST(reshape, pours_the_pixels_in_the_order_of_rows_between_any_two_shapes) {
    constexpr int kPixels = 360;
    for (const LumoELEMTYPE type : {u8(1), u8(3), s16(1), f32(2), f32(3), s16(4), LUMO_F64 | LUMO_CHANNELS(1)})
        for (int ws = 1; ws <= kPixels; ++ws)
            for (int wd = 1; wd <= kPixels; ++wd) {
                if (kPixels % ws || kPixels % wd) continue;
                for (const int padding : {0, 8}) {
                    SCOPED_TRACE(testing::Message() << LumoELEMTYPEshow(type) << " " << ws << " wide to " << wd
                                                    << ", padding " << padding);
                    Array src = Array(type, ws, kPixels / ws, padding, padding && ws % 2).filled(1),
                          dst = Array(type, wd, kPixels / wd, padding * 2).filled(2);
                    const auto before = dst.pixels();
                    auto expected = src.pixels();
                    const size_t pixel = expected.size() / kPixels;
                    const bool typed = wd == ws, one_row = wd == kPixels;
                    // The typed copy keeps the fourth channel; two channels go in pairs and leave an odd last column;
                    // kinds without a copy kernel are poured only.
                    for (size_t i = 0; i < expected.size(); ++i) {
                        const size_t x = i / pixel % size_t(ws);
                        const bool kept = typed && !one_row && src.channels == 4 && i % pixel / 2 == 3;
                        const bool odd = (typed || one_row) && src.channels == 2 && ws % 2 && x == size_t(ws - 1);
                        const bool none = (typed || one_row) && (type >> 8 & 15) == LUMO_KIND_F64;
                        if (kept || odd || none) expected[i] = before[i];
                    }
                    EXPECT_EQ(reshape(dst, src), 0);
                    ASSERT_EQ(dst.pixels(), expected);
                    ASSERT_TRUE(dst.intact());
                }
            }
}

TEST(reshape, refuses_order_method_4_whatever_the_arrays_are) {
    Operands o(u8(1));
    expect_refused(o.dst, "@ArrOrderMethod", [&](QuelERR* err) { return reshape(o.dst, o.src, 4, err); });
    EXPECT_EQ(reshape(o.dst, o.src, 3), 0);
    EXPECT_EQ(o.dst.pixels(), o.src.pixels());
}

TEST(reshape, of_arrays_that_differ_in_pixels_stays_inside_of_both) {
    for (const LumoELEMTYPE type : {u8(1), u32(1), f32(3)})
        for (const auto& [ws, hs, wd, hd] : {std::tuple{3, 50, 7, 2},
                                             {7, 2, 3, 50},
                                             {5, 40, 5, 3},
                                             {5, 3, 5, 40},
                                             {30, 9, 20, 1},
                                             {3, 9, 20, 1},
                                             {0, 4, 4, 4},
                                             {4, 4, 4, 0},
                                             {-3, 4, 4, 4}}) {
            SCOPED_TRACE(testing::Message() << ws << " x " << hs << " to " << wd << " x " << hd);
            Array src(type, ws < 0 ? 4 : ws, hs, 3), dst(type, wd, hd, 5);
            src.mat.width = ws;
            EXPECT_EQ(reshape(dst, src), 0);
            EXPECT_TRUE(dst.intact());
        }
}

TEST(reshape, of_a_kind_without_a_size_copies_the_plane) {
    Operands o(u32(1));
    EXPECT_EQ(reshape(o.dst, o.src), 0);
    EXPECT_EQ(o.dst.pixels(), o.src.pixels());
}
