// Arithmetic over lists of planes through the module.
#include <algorithm>
#include <cmath>

#include "ipp/fixture.h"

using namespace tarn::test;

namespace {

constexpr const char* kOperations[] = {"add_n", "sub_n", "mul_n", "avgarith_n"};

int64_t list_op(const char* name, LumoMAT* dst, std::vector<const LumoMAT*> sources, QuelERR* err = nullptr,
                KaSMEMSTG* storage = nullptr) {
    return call<TarnArithN>(name, err, storage, dst, int32_t(sources.size()), sources.data());
}

// The promised sequence, on arrays that may share memory: source 0 copied unless it is dst's own record, then source by
// source, saturated at each step; a mean divides at the end, that of 8 bits an exact sum.
void sequence(const std::string& op, const LumoMAT& dst, const std::vector<const LumoMAT*>& sources) {
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
    if (sources[0] != &dst) each(sources[0], [](double, double s, auto...) { return s; });
    for (int i = 1; i < count; ++i)
        each(sources[size_t(i)], [&](double d, double s, auto...) {
            return op == "sub_n" ? d - s : op == "mul_n" ? d * s : d + s;
        });
    if (op == "avgarith_n") each(&dst, [&](double d, auto...) { return d / count; });
}

}  // namespace

TEST(lists, give_what_the_sequence_gives_wherever_the_destination_lies) {
    for (const char* op : kOperations)
        each_type({LUMO_U8, LUMO_S16, LUMO_F32}, {1, 3, 4}, [&](LumoELEMTYPE type) {
            for (const int count : {1, 2, 3, 5, 9})
                for (int place = 0; place < 6; ++place) {
                    // 0: apart. 1: dst is the first source's record. 2: another record of the first source's buffer. 3:
                    // of the last source's. 4: the last source's own record. 5: two sources are one.
                    SCOPED_TRACE(testing::Message() << op << " of " << count << " place " << place);
                    const auto run = [&](bool ours) {
                        std::vector<Array> arrays;
                        std::vector<const LumoMAT*> sources;
                        arrays.reserve(10);
                        for (int i = 0; i < count; ++i)
                            sources.push_back(
                                &arrays.emplace_back(Array(type, 35, 3, i, i % 2 == 1).filled(unsigned(i + 1))));
                        Array& last = arrays[size_t(count) - 1];
                        arrays.push_back(Array(type, 35, 3, 4).filled(99));
                        if (place == 5) sources.back() = sources[0];
                        LumoMAT alias = place == 2 ? arrays[0].mat : last.mat;
                        LumoMAT* dst = place == 1                 ? &arrays[0]
                                       : place == 4               ? &last
                                       : place == 2 || place == 3 ? &alias
                                                                  : &arrays.back();
                        if (ours)
                            EXPECT_EQ(list_op(op, dst, sources), count);
                        else
                            sequence(op, *dst, sources);
                        std::vector<std::vector<uint8_t>> all;
                        for (const Array& a : arrays) all.push_back(a.memory);
                        return all;
                    };
                    ASSERT_EQ(run(true), run(false));
                }
        });
}

TEST(lists, of_views_of_one_image) {
    // Tiles side by side share rows but no pixel; a first source that lies across the destination is moved as a copy
    // moves it; an 8-bit mean reads all sources before it writes.
    for (const char* op : {"add_n", "avgarith_n"})
        for (const auto& [dx, dy] : {std::pair{100, 0}, {0, 40}, {1, 0}, {-1, 0}, {0, 1}, {3, -2}, {99, 1}}) {
            Array whole = Array(u8(1), 330, 130).filled(3);
            const Array before = whole;
            const auto view = [](const Array& of, int x, int y) {
                LumoMAT v = of.mat;
                v.width = 100, v.height = 40, v.data = &of.at<uint8_t>(x, y);
                return v;
            };
            LumoMAT dst = view(whole, 110, 45), first = view(whole, 110 + dx, 45 + dy), second = view(whole, 220, 0);
            const LumoMAT a = view(before, 110 + dx, 45 + dy), b = view(before, 220, 0);
            EXPECT_EQ(list_op(op, &dst, {&first, &second}), 2);
            SCOPED_TRACE(testing::Message() << op << " shifted by " << dx << ", " << dy);
            expect_pixels(whole, before, [&](int x, int y, int) {
                if (x < 110 || x >= 210 || y < 45 || y >= 85) return get(&before, x, y);
                return (get(&a, x - 110, y - 45) + get(&b, x - 110, y - 45)) / (op[1] == 'v' ? 2 : 1);
            });
        }
}

TEST(lists, without_anything_to_do_leave_the_destination) {
    Array a = Array(u8(1), 8, 2).filled(1), b = Array(u8(1), 8, 2).filled(2), d(u8(1), 8, 2), none = a, want = a;
    d.set<uint8_t>(9);
    const auto before = d.memory;
    for (const char* op : kOperations) {
        EXPECT_EQ(list_op(op, &d, {}), 0);
        EXPECT_EQ(run<TarnArithN>(op, &d, 3, nullptr), 3);
        EXPECT_EQ(list_op(op, &d, {&d}), 1);
        for (const auto& [w, h] : {std::pair{0, 2}, {8, 0}, {-4, 2}, {8, -1}}) {
            d.mat.width = w, d.mat.height = h;
            EXPECT_EQ(list_op(op, &d, {&a, &b}), 2);
            d.mat.width = 8, d.mat.height = 2;
            EXPECT_EQ(d.memory, before) << op << " " << w << " x " << h;
        }
    }
    none.mat.data = nullptr;
    EXPECT_EQ(list_op("add_n", &d, {&a, &none, &b}), 3);  // a source without pixels is passed over
    list_op("add_n", &want, {&a, &b});
    EXPECT_TRUE(d.same_pixels(want));
}

TEST(lists_death, unsupported_channel_counts_end_the_process) {
    Operands o(u8(2));
    for (const char* op : kOperations) {
        EXPECT_DEATH(list_op(op, &o.dst, {&o.src, &o.src}), "unsupported u8 x 2");
        EXPECT_EQ(list_op(op, &o.dst, {&o.src}), 1);  // one source is only copied
    }
    run<TarnCopy>("copy", &o.before, &o.src);
    EXPECT_TRUE(o.dst.same_pixels(o.before));
}

TEST(avgarith_n, marks_the_status_word_when_there_is_no_memory) {
    Operands o(u8(3));
    Storage storage;
    for (KaSMEMSTG* given : {static_cast<KaSMEMSTG*>(nullptr), static_cast<KaSMEMSTG*>(&storage)}) {
        QuelERR err = {};
        o.dst.fill(1);
        const auto mean = [&] { return err = {}, list_op("avgarith_n", &o.dst, {&o.src, &o.before}, &err, given); };
        const int failed = each_allocation_failing(mean, [&](int64_t result) {
            EXPECT_EQ(result, -1);
            EXPECT_EQ(err.count, 0u);  // no error value
            EXPECT_EQ(err.status, 0x05e7u << 16 | QUEL_E_NOMEM);
            EXPECT_EQ(o.dst.memory, o.before.memory);
        });
        EXPECT_GE(failed, 1);
        EXPECT_FALSE(o.dst.same_pixels(o.before));
    }
    KaTESTfailnth(1);
    EXPECT_EQ(list_op("avgarith_n", &o.dst, {&o.src, &o.before}), -1);  // without an error context too
    KaTESTfailnth(0);
}

TEST(avgarith_n, refuses_a_plane_of_its_own_with_rows_beyond_32_bits) {
    Array a = Array(u8(4), 16, 1).filled(1);
    const auto before = a.memory;
    LumoMAT wide = a.mat, shifted = a.mat;  // rows of 4 GiB that are never touched, and lie across each other
    wide.width = shifted.width = 1 << 30;
    shifted.data = a.row<uint8_t>(0) + 4;
    const KaTESTLIVE live = KaTESTlive();
    QuelERR err = {};
    EXPECT_EQ(list_op("avgarith_n", &wide, {&shifted, &wide}, &err), -1);
    EXPECT_EQ(err.count, 0u);
    EXPECT_EQ(err.status, 0x05e7u << 16 | QUEL_E_OPTION);
    EXPECT_EQ(KaTESTlive().blocks, live.blocks);
    EXPECT_EQ(a.memory, before);
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
