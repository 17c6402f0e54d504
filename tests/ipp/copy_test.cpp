// "tarn::copy" through the module.
#include "ipp/fixture.h"

using namespace tarn::test;

namespace {
int64_t copy(Array& dst, Array& src) { return call<TarnCopy>("tarn::copy", nullptr, nullptr, &dst, &src); }
}  // namespace

TEST(copy, of_every_type_and_form_carries_the_pixels_and_keeps_the_fourth_channel) {
    each_type({LUMO_U8, LUMO_S16, LUMO_S32, LUMO_U32, LUMO_F32}, {1, 2, 3, 4}, [](LumoELEMTYPE type) {
        for (const bool upwards : {false, true}) {
            Array src(type, 5, 3, 7, upwards), dst(type, 5, 3, 3);
            src.fill(1), dst.fill(2);
            const Array before = dst;
            EXPECT_EQ(copy(dst, src), 0);
            expect_pixels(dst, before, [&](int x, int y, int c) { return get(&src, x, y, c); });
        }
    });
}

TEST(copy, with_nothing_to_do_writes_nothing_and_succeeds) {
    Array src(u8(1), 8, 4), dst(u8(1), 8, 4);
    src.fill(1);
    dst.set<uint8_t>(3);
    const auto before = dst.pixels();
    for (const LumoELEMTYPE type :
         {LUMO_F64 | LUMO_CHANNELS(1), LUMO_U8, LUMO_U8 | LUMO_CHANNELS(5), LUMO_CHANNELS(1)}) {
        dst.mat.elemtype = type;
        EXPECT_EQ(copy(dst, src), 0);
        EXPECT_EQ(memcmp(dst.mat.data, before.data(), before.size()), 0) << std::hex << type;
    }
    dst.mat.elemtype = u8(1);
    for (const auto& [w, h] : {std::pair{0, 4}, {8, 0}, {-3, 4}, {8, -1}}) {
        src.mat.width = w;
        src.mat.height = h;
        EXPECT_EQ(copy(dst, src), 0);
        EXPECT_EQ(dst.pixels(), before);
    }
    src.mat.width = 8, src.mat.height = 4, src.mat.data = nullptr;
    EXPECT_EQ(copy(dst, src), 0);
    EXPECT_EQ(dst.pixels(), before);
}

TEST(copy, within_one_buffer_moves_pixels_as_if_through_a_temporary) {
    // Shifts in both directions, by less than a row and by rows; rows down and up; carried and kept fourth channel.
    for (const int channels : {1, 3, 4})
        for (const bool upwards : {false, true})
            for (const auto& [dx, dy] :
                 {std::pair{1, 0}, {-1, 0}, {5, 1}, {-5, -1}, {0, 2}, {0, -2}, {70, 0}, {-70, 1}}) {
                SCOPED_TRACE(testing::Message()
                             << channels << " channels, by " << dx << ", " << dy << " up " << upwards);
                Array whole(u8(channels), 300, 12, 4, upwards);
                whole.fill(7);
                Array src(u8(channels), 200, 6);
                LumoMAT from = whole.mat, to = whole.mat;
                from.width = to.width = 200, from.height = to.height = 6;
                from.data = whole.row<uint8_t>(3) + 80 * channels;
                to.data = whole.row<uint8_t>(3 + dy) + (80 + dx) * channels;
                std::vector<uint8_t> want;
                for (int y = 0; y < 6; ++y)
                    for (int i = 0; i < 200 * channels; ++i) {
                        const bool kept = channels == 4 && i % 4 == 3;
                        const uint8_t* row = static_cast<uint8_t*>(kept ? to.data : from.data) + y * from.stride;
                        want.push_back(row[i]);
                    }
                EXPECT_EQ((call<TarnCopy>("copy", nullptr, nullptr, &to, &from)), 0);
                std::vector<uint8_t> got;
                for (int y = 0; y < 6; ++y)
                    got.insert(got.end(), static_cast<uint8_t*>(to.data) + y * to.stride,
                               static_cast<uint8_t*>(to.data) + y * to.stride + 200 * channels);
                EXPECT_EQ(got, want);
            }
}
