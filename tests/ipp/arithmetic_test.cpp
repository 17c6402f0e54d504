// Arithmetic over lists of planes through the module.
#include <algorithm>
#include <cmath>

#include "ipp/fixture.h"

using namespace tarn::test;

namespace {

int64_t list_op(const char* name, LumoMAT* dst, std::vector<const LumoMAT*> sources, QuelERR* err = nullptr,
                KaSMEMSTG* storage = nullptr) {
    return call<TarnArithN>(name, err, storage, dst, int32_t(sources.size()), sources.data());
}

// The promised sequence, on arrays that may share memory: source 0 copied unless it is dst's own record, then source by
// source; a mean divides at the end, that of 8 bits an exact sum.
void sequence(const std::string& op, const LumoMAT& dst, const std::vector<const LumoMAT*>& sources,
              bool first_is_dst) {
    const int channels = int(dst.elemtype >> 12), count = int(sources.size());
    const auto each = [&](const LumoMAT* src, auto fn) {
        for (int y = 0; y < dst.height; ++y)
            for (int x = 0; x < dst.width; ++x)
                for (int c = 0; c < std::min(channels, 3); ++c)
                    put(&dst, x, y, c, fn(get(&dst, x, y, c), get(src, x, y, c), x, y, c));
    };
    if (op == "avgarith_n" && (dst.elemtype & 0xfff) == LUMO_U8)
        return each(&dst, [&](double, double, int x, int y, int c) {
            double sum = 0;
            for (const LumoMAT* s : sources) sum += get(s, x, y, c);
            return sum / count;
        });
    if (!first_is_dst) each(sources[0], [](double, double s, auto...) { return s; });
    for (int i = 1; i < count; ++i)
        each(sources[size_t(i)], [&](double d, double s, auto...) {
            return op == "sub_n" ? d - s : op == "mul_n" ? d * s : d + s;
        });
    if (op == "avgarith_n") each(&dst, [&](double d, auto...) { return d / count; });
}

}  // namespace

TEST(lists, saturate_after_every_step) {
    struct Row {
        const char* op;
        LumoELEMTYPE type;
        std::vector<int> sources;
        int want;
    };
    const Row rows[] = {
        {"add_n", u8(1), {200, 100, 50}, 255},
        {"sub_n", u8(1), {10, 20, 5}, 0},
        {"sub_n", u8(1), {200, 20, 5}, 175},
        {"mul_n", u8(1), {20, 20, 0}, 0},
        {"mul_n", u8(3), {3, 5, 7}, 105},
        {"add_n", s16(1), {20000, 20000, -5}, 32762},
        {"sub_n", s16(1), {-20000, 20000, -5}, -32763},
        {"mul_n", s16(1), {200, -200, 2}, -32768},
        {"add_n", u8(1), {1, 2, 3, 4, 5, 6, 7, 8, 9}, 45},
        {"mul_n", f32(1), {300, -200, 2}, -120000},
        {"avgarith_n", u8(1), {1, 2}, 2},
        {"avgarith_n", u8(1), {1, 4}, 2},
        {"avgarith_n", u8(3), {255, 255, 254}, 255},
        {"avgarith_n", s16(1), {20000, 20000, 20000}, 10922},
        {"avgarith_n", s16(1), {-1, -4}, -2},
        {"avgarith_n", s16(1), {3, 4}, 4},
        {"avgarith_n", f32(1), {1, 2, 6}, 3},
        {"add_n", u8(1), {9}, 9},
        {"avgarith_n", u8(1), {9}, 9},
    };
    for (const Row& r : rows) {
        std::vector<Array> arrays;
        for (const int v : r.sources) put_all(&arrays.emplace_back(r.type, 7, 2, 3), v);
        std::vector<const LumoMAT*> sources;
        for (const Array& a : arrays) sources.push_back(&a);
        Array dst(r.type, 7, 2, 3);
        EXPECT_EQ(list_op(r.op, &dst, sources), int64_t(sources.size()));
        SCOPED_TRACE(testing::Message() << r.op << " should give " << r.want);
        expect_pixels(dst, dst, [&](int, int, int) { return r.want; });
    }
}

TEST(lists, give_what_the_sequence_gives_wherever_the_destination_lies) {
    for (const char* op : {"add_n", "sub_n", "mul_n", "avgarith_n"})
        each_type({LUMO_U8, LUMO_S16, LUMO_F32}, {1, 3, 4}, [&](LumoELEMTYPE type) {
            for (const int count : {2, 3, 5, 9})
                for (int place = 0; place < 6; ++place) {
                    // 0: apart. 1: dst is the first source's record. 2: another record of the first source's buffer. 3:
                    // of the last source's. 4: the last source's own record. 5: two sources are one.
                    SCOPED_TRACE(testing::Message() << op << " of " << count << " place " << place);
                    const auto run = [&](bool ours) {
                        std::vector<Array> arrays;
                        arrays.reserve(10);
                        for (int i = 0; i < count; ++i) {
                            arrays.emplace_back(type, 35, 3, i, i % 2 == 1);
                            arrays.back().fill(unsigned(i + 1));
                        }
                        arrays.emplace_back(type, 35, 3, 4);
                        arrays.back().fill(99);
                        std::vector<const LumoMAT*> sources;
                        for (int i = 0; i < count; ++i) sources.push_back(&arrays[size_t(i)]);
                        if (place == 5) sources.back() = sources[0];
                        LumoMAT alias = place == 2 ? arrays[0].mat : arrays[size_t(count) - 1].mat;
                        LumoMAT* dst = place == 1                 ? &arrays[0]
                                       : place == 4               ? &arrays[size_t(count) - 1]
                                       : place == 2 || place == 3 ? &alias
                                                                  : &arrays.back();
                        if (ours)
                            EXPECT_EQ(list_op(op, dst, sources), count);
                        else
                            sequence(op, *dst, sources, place == 1);
                        std::vector<std::vector<uint8_t>> all;
                        for (const Array& a : arrays) {
                            all.push_back(a.pixels());
                            EXPECT_TRUE(a.intact());
                        }
                        return all;
                    };
                    ASSERT_EQ(run(true), run(false));
                }
        });
}

TEST(lists, of_views_of_one_image) {
    // Tiles side by side share rows but no pixel; a first source that lies across the destination is moved as a copy
    // moves it; an 8-bit mean reads all sources before it writes.
    const auto view = [](Array& whole, int x, int y) {
        LumoMAT v = whole.mat;
        v.width = 100, v.height = 40;
        v.data = whole.row<uint8_t>(y) + x;
        return v;
    };
    for (const char* op : {"add_n", "avgarith_n"})
        for (const auto& [dx, dy] : {std::pair{100, 0}, {0, 40}, {1, 0}, {-1, 0}, {0, 1}, {3, -2}, {99, 1}}) {
            Array whole(u8(1), 330, 130);
            whole.fill(3);
            const Array before = whole;
            LumoMAT dst = view(whole, 110, 45), first = view(whole, 110 + dx, 45 + dy), second = view(whole, 220, 0);
            std::vector<uint8_t> want;
            for (int y = 0; y < 40; ++y)
                for (int x = 0; x < 100; ++x) {
                    const int a = before.memory[size_t(64 + (45 + dy + y) * 330 + 110 + dx + x)],
                              b = before.memory[size_t(64 + y * 330 + 220 + x)];
                    want.push_back(uint8_t(op[1] == 'v' ? std::nearbyint((a + b) / 2.0) : std::min(255, a + b)));
                }
            EXPECT_EQ(list_op(op, &dst, {&first, &second}), 2);
            std::vector<uint8_t> got;
            for (int y = 0; y < 40; ++y)
                got.insert(got.end(), whole.row<uint8_t>(45 + y) + 110, whole.row<uint8_t>(45 + y) + 210);
            EXPECT_EQ(got, want) << op << " shifted by " << dx << ", " << dy;
        }
}

TEST(lists, without_anything_to_do_leave_the_destination) {
    Array a(u8(1), 8, 2), b(u8(1), 8, 2), d(u8(1), 8, 2);
    a.fill(1), b.fill(2), d.set<uint8_t>(9);
    const auto before = d.pixels();
    for (const char* op : {"add_n", "sub_n", "mul_n", "avgarith_n"}) {
        EXPECT_EQ(list_op(op, &d, {}), 0);
        EXPECT_EQ((call<TarnArithN>(op, nullptr, nullptr, &d, 3, nullptr)), 3);
        EXPECT_EQ(list_op(op, &d, {&d}), 1);
        for (const auto& [w, h] : {std::pair{0, 2}, {8, 0}, {-4, 2}, {8, -1}}) {
            d.mat.width = w, d.mat.height = h;
            EXPECT_EQ(list_op(op, &d, {&a, &b}), 2);
            d.mat.width = 8, d.mat.height = 2;
            EXPECT_EQ(d.pixels(), before) << op << " " << w << " x " << h;
        }
    }
    Array none(u8(1), 8, 2);
    none.mat.data = nullptr;
    EXPECT_EQ(list_op("add_n", &d, {&a, &none, &b}), 3);  // a source without pixels is passed over
    Array want(u8(1), 8, 2);
    list_op("add_n", &want, {&a, &b});
    EXPECT_TRUE(d.same_pixels(want));
}

TEST(lists_death, unsupported_channel_counts_end_the_process) {
    Array a(u8(2), 8, 2), d(u8(2), 8, 2), copied(u8(2), 8, 2);
    a.fill(1), d.set<uint8_t>(3), copied.set<uint8_t>(3);
    for (const char* op : {"add_n", "sub_n", "mul_n", "avgarith_n"}) {
        EXPECT_DEATH(list_op(op, &d, {&a, &a}), "unsupported u8 x 2");
        EXPECT_EQ(list_op(op, &d, {&a}), 1);  // one source is only copied
    }
    call<TarnCopy>("copy", nullptr, nullptr, &copied, &a);
    EXPECT_TRUE(d.same_pixels(copied));
}

TEST(avgarith_n, marks_the_status_word_when_there_is_no_memory) {
    Array a(u8(3), 50, 5), b(u8(3), 50, 5), d(u8(3), 50, 5);
    a.fill(1), b.fill(2), d.set<uint8_t>(9);
    const auto before = d.pixels();
    for (const bool own : {true, false}) {
        KaSMEMSTG storage = {};
        if (!own) KaSMEMSTGopen(&storage, nullptr, 0, nullptr);
        QuelERR err = {};
        const int failed = each_allocation_failing(
            [&] {
                err = {};
                return list_op("avgarith_n", &d, {&a, &b}, &err, own ? nullptr : &storage);
            },
            [&](int64_t result) {
                EXPECT_EQ(result, -1);
                EXPECT_EQ(err.count, 0u);  // no error value
                EXPECT_EQ(err.status >> 16, 0x05e7u);
                EXPECT_EQ(err.status & 0xffff, uint64_t(QUEL_E_NOMEM));
                EXPECT_EQ(d.pixels(), before);
            });
        EXPECT_GE(failed, 1);
        EXPECT_NE(d.pixels(), before);
        d.set<uint8_t>(9);
        if (!own) KaMEMSTGdestroy(&storage.base);
    }
    KaTESTfailnth(1);
    EXPECT_EQ(list_op("avgarith_n", &d, {&a, &b}), -1);  // without an error context too
    KaTESTfailnth(0);
}

TEST(avgarith_n, refuses_a_plane_of_its_own_with_rows_beyond_32_bits) {
    Array a(u8(4), 16, 1);
    a.fill(1);
    const auto before = a.pixels();
    LumoMAT wide = a.mat, shifted = a.mat;  // rows of 4 GiB that are never touched, and lie across each other
    wide.width = shifted.width = 1 << 30;
    shifted.data = a.row<uint8_t>(0) + 4;
    const LumoMAT* sources[] = {&shifted, &wide};
    const KaTESTLIVE live = KaTESTlive();
    QuelERR err = {};
    EXPECT_EQ((call<TarnArithN>("avgarith_n", &err, nullptr, &wide, 2, sources)), -1);
    EXPECT_EQ(err.count, 0u);
    EXPECT_EQ(err.status, 0x05e7u << 16 | QUEL_E_OPTION);
    EXPECT_EQ(KaTESTlive().blocks, live.blocks);
    EXPECT_EQ(a.pixels(), before);
}

TEST(avgarith_n, of_more_sources_than_16_bits_hold) {
    Array black(u8(1), 30, 2), white(u8(1), 30, 2), d(u8(1), 30, 2);
    black.set<uint8_t>(0), white.set<uint8_t>(255);
    for (const int count : {256, 257, 400, 40000}) {
        std::vector<const LumoMAT*> sources(size_t(count), &black);
        for (int i = 0; i < count / 3; ++i) sources[size_t(i * 2)] = &white;
        EXPECT_EQ(list_op("avgarith_n", &d, sources), count);
        EXPECT_EQ(int(d.at<uint8_t>(29, 1)), int(std::nearbyint(255.0 * (count / 3) / count))) << count;
    }
}
