// "tarn::copy" through the module.
#include "ipp/fixture.h"

using namespace tarn::test;

TEST(copy, of_every_type_and_form_carries_the_pixels_and_keeps_the_fourth_channel) {
    each_type({LUMO_U8, LUMO_S16, LUMO_S32, LUMO_U32, LUMO_F32}, {1, 2, 3, 4}, [](LumoELEMTYPE type) {
        for (const bool upwards : {false, true}) {
            Operands o(type, type, upwards);
            EXPECT_EQ(run<TarnCopy>("tarn::copy", &o.dst, &o.src), 0);
            expect_pixels(o.dst, o.before, [&](int x, int y, int c) { return get(&o.src, x, y, c); });
        }
    });
}

TEST(copy, with_nothing_to_do_writes_nothing_and_succeeds) {
    Operands o(u8(1));
    const LumoMAT src = o.src.mat, dst = o.dst.mat;
    const auto copies_nothing = [&] {
        EXPECT_EQ(run<TarnCopy>("copy", &o.dst, &o.src), 0);
        EXPECT_EQ(o.dst.memory, o.before.memory);
        o.src.mat = src, o.dst.mat = dst;
    };
    for (const LumoELEMTYPE type : {LUMO_F64 | LUMO_CHANNELS(1), LUMO_U8, u8(5), LUMO_CHANNELS(1)})
        o.dst.mat.elemtype = type, copies_nothing();
    for (const auto& [w, h] : {std::pair{0, 3}, {5, 0}, {-3, 3}, {5, -1}})
        o.src.mat.width = w, o.src.mat.height = h, copies_nothing();
    o.src.mat.data = nullptr, copies_nothing();
}

TEST(copy, within_one_buffer_moves_pixels_as_if_through_a_temporary) {
    // Shifts in both directions, by less than a row and by rows; rows down and up; carried and kept fourth channel.
    for (const int channels : {1, 3, 4})
        for (const bool upwards : {false, true})
            for (const auto& [dx, dy] :
                 {std::pair{1, 0}, {-1, 0}, {5, 1}, {-5, -1}, {0, 2}, {0, -2}, {70, 0}, {-70, 1}}) {
                SCOPED_TRACE(testing::Message()
                             << channels << " channels, by " << dx << ", " << dy << " up " << upwards);
                Array whole = Array(u8(channels), 360, 12, 4, upwards).filled(7);
                const Array before = whole;
                LumoMAT from = whole.mat, to = whole.mat;
                from.width = to.width = 200, from.height = to.height = 6;
                from.data = &whole.at<uint8_t>(80, 3), to.data = &whole.at<uint8_t>(80 + dx, 3 + dy);
                EXPECT_EQ(run<TarnCopy>("copy", &to, &from), 0);
                expect_pixels(whole, before, [&, dx = dx, dy = dy](int x, int y, int c) {
                    const bool moved = x >= 80 + dx && x < 280 + dx && y >= 3 + dy && y < 9 + dy;
                    return moved ? before.at<uint8_t>(x - dx, y - dy, c) : before.at<uint8_t>(x, y, c);
                });
            }
}
