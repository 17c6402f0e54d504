// Logic, comparisons, fills and arithmetic with constants through the module.
#include <cmath>
#include <limits>
#include <memory>

#include "ipp/fixture.h"

using namespace tarn::test;

namespace {

constexpr QuelERR* kNoError = nullptr;
constexpr KaSMEMSTG* kNoStorage = nullptr;

int64_t logic(const char* name, LumoMAT* dst, const LumoMAT* a, const LumoMAT* b) {
    return call<TarnLogic>(name, kNoError, kNoStorage, dst, a, b);
}
int64_t logic_c(const char* name, LumoMAT* dst, const LumoMAT* src, const uint32_t* constants) {
    return call<TarnLogicC>(name, kNoError, kNoStorage, dst, src, constants);
}
int64_t arith_c(const char* name, LumoMAT* dst, const LumoMAT* src, const float* constants) {
    return call<TarnArithC>(name, kNoError, kNoStorage, dst, src, constants);
}
int64_t set(LumoMAT* dst, const float* constants, const LumoMAT* mask = nullptr) {
    return call<TarnSet>("set", kNoError, kNoStorage, dst, constants, mask);
}
int64_t cmp(LumoMAT* dst, const LumoMAT* a, const LumoMAT* b, uint32_t code) {
    return call<TarnCmp>("cmp", kNoError, kNoStorage, dst, a, b, code);
}
int64_t cmp_c(LumoMAT* dst, const LumoMAT* src, const float* constants, uint32_t code) {
    return call<TarnCmpC>("cmp_c", kNoError, kNoStorage, dst, src, constants, code);
}

const LumoELEMTYPE kLogicTypes[] = {u8(1), u8(3), u8(4), s16(1), s16(3), s16(4), s32(1), s32(3), s32(4)};

// Pixels of an array as elements.
template <class T>
std::vector<T> elements(const Array& a) {
    const auto bytes = a.pixels();
    std::vector<T> all(bytes.size() / sizeof(T));
    memcpy(all.data(), bytes.data(), bytes.size());
    return all;
}

uint8_t apply(const std::string& op, uint8_t a, uint8_t b) {
    return op[0] == 'a' ? a & b : op[0] == 'o' ? a | b : a ^ b;
}

}  // namespace

TEST(logic, takes_its_operands_by_record_and_keeps_the_fourth_channel) {
    for (const char* op : {"and", "or", "xor"})
        for (const LumoELEMTYPE type : kLogicTypes)
            for (const int form : {0, 1, 2, 3, 4}) {  // both; only the first; only the second; dst first; dst second
                SCOPED_TRACE(testing::Message()
                             << op << " " << LumoELEMTYPEshow(type) << " x " << (type >> 12) << " form " << form);
                Array dst(type, 19, 4, 6, form % 2), a(type, 19, 4, 0), b(type, 19, 4, 4, true);
                dst.fill(1), a.fill(2), b.fill(3);
                const auto before = dst.pixels();
                const Array &first = form == 0 || form == 4 ? a : dst, &second = form == 0 || form == 2 || form == 3 ? b
                                                                                 : form == 1                         ? a
                                                                                             : dst;
                const auto x = first.pixels(), y = second.pixels();
                EXPECT_EQ(logic(op, &dst,
                                form == 2   ? nullptr
                                : form == 3 ? &dst
                                            : &a,
                                form == 1   ? nullptr
                                : form == 4 ? &dst
                                            : &b),
                          0);
                const auto got = dst.pixels();
                const size_t eb = size_t(dst.element_bytes);
                for (size_t i = 0; i < got.size(); ++i) {
                    const bool kept = dst.channels == 4 && i / eb % 4 == 3;
                    ASSERT_EQ(got[i], kept ? before[i] : apply(op, x[i], y[i])) << "byte " << i;
                }
                EXPECT_TRUE(dst.intact());
            }
}

TEST(logic, has_the_size_of_the_first_operand) {
    Array dst(u8(1), 8, 2), a(u8(1), 5, 2), b(u8(1), 8, 2);
    dst.set<uint8_t>(9), a.set<uint8_t>(0xf0), b.set<uint8_t>(0x3c);
    EXPECT_EQ(logic("and", &dst, &a, &b), 0);
    EXPECT_EQ(elements<uint8_t>(dst), (std::vector<uint8_t>{48, 48, 48, 48, 48, 9, 9, 9, 48, 48, 48, 48, 48, 9, 9, 9}));
    const auto before = dst.pixels();
    EXPECT_EQ(logic("and", &dst, nullptr, nullptr), 0);
    a.mat.width = 0;
    EXPECT_EQ(logic("or", &dst, &a, &b), 0);
    a.mat.width = 5, a.mat.data = nullptr;
    EXPECT_EQ(logic("or", &dst, &a, &b), 0);
    EXPECT_EQ(dst.pixels(), before);
}

TEST(not_, complements_the_source_or_the_destination_itself) {
    for (const int channels : {1, 3, 4})
        for (const bool in_place : {false, true}) {
            Array dst(u8(channels), 21, 3, 5), src(u8(channels), 21, 3, 0, true);
            dst.fill(1), src.fill(2);
            const auto before = dst.pixels(), from = in_place ? before : src.pixels();
            EXPECT_EQ((call<TarnNot>("not", kNoError, kNoStorage, &dst, in_place ? nullptr : &src)), 0);
            const auto got = dst.pixels();
            for (size_t i = 0; i < got.size(); ++i)
                ASSERT_EQ(got[i], channels == 4 && i % 4 == 3 ? before[i] : uint8_t(~from[i])) << channels << " " << i;
            EXPECT_TRUE(dst.intact());
        }
}

TEST(elementwise_death, unsupported_types_end_the_process) {
    GTEST_FLAG_SET(death_test_style, "fast");
    const uint32_t words[4] = {};
    const float floats[4] = {};
    const auto dies = [&](LumoELEMTYPE type, auto run) {
        Array a(type, 4, 2), d(type, 4, 2);
        EXPECT_DEATH(run(d, a), "unsupported") << std::hex << type;
    };
    for (const LumoELEMTYPE type : {u8(2), u32(1), f32(1), s16(2), u8(5), LUMO_F64 | LUMO_CHANNELS(1)}) {
        dies(type, [](Array& d, Array& a) { logic("xor", &d, &a, &a); });
        dies(type, [&](Array& d, Array& a) { logic_c("or_c", &d, &a, words); });
    }
    for (const LumoELEMTYPE type : {u8(2), s16(1), s32(3), f32(1)})
        dies(type, [](Array& d, Array& a) { call<TarnNot>("not", kNoError, kNoStorage, &d, &a); });
    for (const LumoELEMTYPE type : {u8(2), u32(1), f32(2)}) dies(type, [&](Array& d, Array&) { set(&d, floats); });
    for (const LumoELEMTYPE type : {u8(2), s32(1), u32(3)})
        dies(type, [&](Array& d, Array& a) { cmp_c(&d, &a, floats, 5); });
}

TEST(logic_c, uses_the_low_bits_of_one_word_per_channel) {
    const uint32_t words[4] = {0x12345678, 0xfedcba98, 0x80000001, 0x0f0f0f0f};
    for (const char* op : {"and_c", "or_c", "xor_c"})
        for (const LumoELEMTYPE type : kLogicTypes)
            for (const int form : {0, 1, 2}) {  // out of place; null source; another record of the same buffer
                SCOPED_TRACE(testing::Message()
                             << op << " " << LumoELEMTYPEshow(type) << " x " << (type >> 12) << " form " << form);
                Array dst(type, 17, 3, 7, form == 1), src(type, 17, 3, 1);
                dst.fill(1), src.fill(2);
                const auto before = dst.pixels(), from = form ? before : src.pixels();
                const LumoMAT alias = dst.mat;
                EXPECT_EQ(logic_c(op, &dst, form == 0 ? &src : form == 1 ? nullptr : &alias, words), 0);
                const auto got = dst.pixels();
                const size_t eb = size_t(dst.element_bytes);
                for (size_t i = 0; i < got.size(); ++i) {
                    const size_t channel = i / eb % size_t(dst.channels);
                    const uint8_t byte = uint8_t(words[channel] >> i % eb * 8);
                    const bool kept = type == u8(4) && channel == 3;  // only 8 bits keep the fourth
                    ASSERT_EQ(got[i], kept ? before[i] : apply(op, from[i], byte)) << "byte " << i;
                }
                EXPECT_TRUE(dst.intact());
            }
}

TEST(logic_c, without_constants_copies) {
    for (const LumoELEMTYPE type : {u8(1), u8(4), f32(3), u8(2)}) {  // types that only the copy serves too
        Array dst(type, 7, 3, 2), src(type, 7, 3, 1), expected(type, 7, 3, 2);
        dst.fill(1), expected.fill(1), src.fill(2);
        EXPECT_EQ((call<TarnCopy>("copy", kNoError, kNoStorage, &expected, &src)), 0);
        EXPECT_EQ(logic_c("and_c", &dst, &src, nullptr), 0);
        EXPECT_TRUE(dst.same_pixels(expected));
        EXPECT_EQ(logic_c("and_c", &dst, nullptr, nullptr), 0);
        EXPECT_TRUE(dst.same_pixels(expected));
    }
}

TEST(cmp, gives_255_where_it_holds_in_every_channel_compared) {
    // Pairs per code: less, less or equal, equal, greater or equal, greater, for a < b, a == b, a > b.
    const bool holds[5][3] = {{1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 1, 1}, {0, 0, 1}};
    for (uint32_t code = 3; code <= 7; ++code)
        for (int order = 0; order < 3; ++order) {
            const int value = order - 1;
            Array a(s16(3), 70, 2, 2), b(s16(3), 70, 2), d(u8(1), 70, 2, 3);
            a.set<int16_t>(int16_t(-300 + value)), b.set<int16_t>(-300);
            EXPECT_EQ(cmp(&d, &a, &b, code), 0);
            for (const uint8_t e : d.pixels()) ASSERT_EQ(e, holds[code - 3][order] ? 255 : 0) << code << " " << order;
            a.at<int16_t>(69, 1, 2) = int16_t(-300 - 1);  // one channel of one pixel is less
            EXPECT_EQ(cmp(&d, &a, &b, code), 0);
            EXPECT_EQ(d.at<uint8_t>(69, 1), holds[code - 3][order] && holds[code - 3][0] ? 255 : 0);
            EXPECT_TRUE(d.intact());
        }
}

TEST(cmp, forms_codes_and_types_that_are_special) {
    Array a(u8(4), 5, 1), b(u8(4), 5, 1), d(u8(1), 5, 1);
    a.set<uint8_t>(1), b.set<uint8_t>(1);
    a.at<uint8_t>(2, 0, 3) = 200;  // the fourth channel does not count
    cmp(&d, &a, &b, TARN_EQUAL);
    EXPECT_EQ(d.pixels(), std::vector<uint8_t>(5, 255));

    Array a2(u8(2), 7, 1), b2(u8(2), 7, 1), d2(u8(1), 7, 1);
    a2.set<uint8_t>(1), b2.set<uint8_t>(1), d2.set<uint8_t>(9);
    a2.at<uint8_t>(3, 0, 1) = 2;  // two channels: one result for two pixels, three units in a width of seven
    cmp(&d2, &a2, &b2, TARN_EQUAL);
    EXPECT_EQ(d2.pixels(), (std::vector<uint8_t>{255, 0, 255, 9, 9, 9, 9}));

    const float nan = std::numeric_limits<float>::quiet_NaN();
    Array f(f32(1), 40, 1), g(f32(1), 40, 1), df(u8(1), 40, 1);
    f.set(nan), g.set(1.0f);
    for (uint32_t code = 3; code <= 7; ++code) {
        df.set<uint8_t>(7);
        cmp(&df, &f, &g, code);
        EXPECT_EQ(df.pixels(), std::vector<uint8_t>(40, 0)) << code;
        cmp(&df, &g, &f, code);
        EXPECT_EQ(df.pixels(), std::vector<uint8_t>(40, 0)) << code;
    }
    for (const uint32_t code : {0u, 1u, 2u, 8u, 9u, 0xffffffffu}) {
        d.set<uint8_t>(7);
        EXPECT_EQ(cmp(&d, &a, &b, code), 0);
        EXPECT_EQ(d.pixels(), std::vector<uint8_t>(5, 7)) << code;
    }
    for (const LumoELEMTYPE type : {s32(1), u32(1), LUMO_F64 | LUMO_CHANNELS(1)}) {
        Array x(type, 5, 1);
        EXPECT_EQ(cmp(&d, &x, &x, TARN_EQUAL), 0);
        EXPECT_EQ(d.pixels(), std::vector<uint8_t>(5, 7));
    }
}

TEST(cmp_c, rounds_and_cuts_its_constants) {
    struct Row {
        LumoELEMTYPE type;
        float constant;
        int equal;  // the element that compares equal
    };
    const Row rows[] = {{u8(1), 300.0f, 44},        {u8(1), 2.5f, 3},    {u8(1), -0.5f, 255},
                        {u8(1), -0.4f, 0},          {u8(1), 1e30f, 0},   {u8(1), NAN, 0},
                        {s16(1), 40000.0f, -25536}, {s16(1), -2.5f, -3}, {s16(1), 65537.0f, 1}};
    for (const Row& r : rows) {
        Array src(r.type, 33, 1), d(u8(1), 33, 1);
        if (r.type == u8(1))
            src.set<uint8_t>(uint8_t(r.equal));
        else
            src.set<int16_t>(int16_t(r.equal));
        EXPECT_EQ(cmp_c(&d, &src, &r.constant, TARN_EQUAL), 0);
        EXPECT_EQ(d.pixels(), std::vector<uint8_t>(33, 255)) << r.constant;
    }
    const float constants[3] = {1, 2.25f, -3};
    for (const int channels : {3, 4}) {
        Array src(f32(channels), 20, 2, 4), d(u8(1), 20, 2, 1);
        for (int y = 0; y < 2; ++y)
            for (int x = 0; x < 20; ++x)
                for (int c = 0; c < channels; ++c)
                    src.at<float>(x, y, c) = c == 3 ? 77 : constants[c] + (x == 7 && c == 1);
        EXPECT_EQ(cmp_c(&d, &src, constants, TARN_LESS_EQUAL), 0);
        for (int x = 0; x < 20; ++x) EXPECT_EQ(d.at<uint8_t>(x, 1), x == 7 ? 0 : 255);
    }
}

TEST(set, floors_and_cuts_its_constants_and_keeps_the_fourth_channel) {
    const float constants[3] = {300.75f, -1.0f, -70000.5f};
    const int32_t want8[3] = {44, 255, 143}, want16[3] = {300, -1, -4465}, want32[3] = {300, -1, -70001};
    for (const int kind : {1, 2, 3, 5})
        for (const int channels : {1, 3, 4})
            for (const bool masked : {false, true}) {
                const LumoELEMTYPE base = kind == 1 ? LUMO_U8 : kind == 2 ? LUMO_S16 : kind == 3 ? LUMO_S32 : LUMO_F32;
                Array d(base | LUMO_CHANNELS(channels), 100, 3, 5, true), mask(u8(1), 100, 3, 2);
                d.fill(1), mask.fill(2);
                for (int x = 0; x < 100; x += 3) mask.at<uint8_t>(x, 1) = 0;
                const auto old = d.pixels();
                EXPECT_EQ(set(&d, constants, masked ? &mask : nullptr), 0);
                const auto got = d.pixels();
                for (int y = 0; y < 3; ++y)
                    for (int x = 0; x < 100; ++x)
                        for (int c = 0; c < channels; ++c) {
                            const size_t e = (size_t(y) * 100 + size_t(x)) * size_t(channels) + size_t(c);
                            if (c == 3 || (masked && !mask.at<uint8_t>(x, y))) {
                                ASSERT_EQ(memcmp(&got[e * size_t(d.element_bytes)], &old[e * size_t(d.element_bytes)],
                                                 size_t(d.element_bytes)),
                                          0);
                                continue;
                            }
                            if (kind == 1)
                                ASSERT_EQ(d.at<uint8_t>(x, y, c), want8[c]);
                            else if (kind == 2)
                                ASSERT_EQ(d.at<int16_t>(x, y, c), want16[c]);
                            else if (kind == 3)
                                ASSERT_EQ(d.at<int32_t>(x, y, c), want32[c]);
                            else
                                ASSERT_EQ(d.at<float>(x, y, c), constants[c]);
                        }
                EXPECT_TRUE(d.intact());
            }
    Array d(s32(1), 9, 1);
    for (const auto& [value, want] :
         {std::pair{3e9f, INT32_MIN}, {-3e9f, INT32_MIN}, {NAN, INT32_MIN}, {2147483520.0f, 2147483520}}) {
        EXPECT_EQ(set(&d, &value), 0);
        EXPECT_EQ(d.at<int32_t>(8, 0), want) << value;
    }
    EXPECT_EQ(set(&d, nullptr), 0);
    EXPECT_EQ(d.at<int32_t>(8, 0), 0);
}

TEST(arith_c, floors_cuts_and_saturates) {
    struct Row {
        const char* op;
        LumoELEMTYPE type;
        float element, constant, want;
    };
    const Row rows[] = {
        {"add_c", u8(1), 10, 2.7f, 12},          {"add_c", u8(1), 0, -0.5f, 255},
        {"add_c", u8(1), 10, 256.0f, 10},        {"add_c", u8(1), 200, 100.0f, 255},
        {"sub_c", u8(1), 10, 20.0f, 0},          {"sub_c", u8(1), 255, -1.0f, 0},
        {"mul_c", u8(1), 77, 0.9f, 0},           {"mul_c", u8(1), 77, 3.9f, 231},
        {"mul_c", u8(1), 77, 4.0f, 255},         {"add_c", s16(1), 10, 40000.0f, -25526},
        {"add_c", s16(1), 32000, 900.0f, 32767}, {"sub_c", s16(1), -32000, 900.0f, -32768},
        {"mul_c", s16(1), 300, -200.0f, -32768}, {"mul_c", s16(1), -181, 181.0f, -32761},
        {"add_c", s16(1), 5, 1e30f, 5},          {"add_c", f32(1), 10, 2.75f, 12.75f},
        {"sub_c", f32(1), 10, -0.5f, 10.5f},     {"mul_c", f32(1), 10, 0.5f, 5},
    };
    for (const Row& r : rows) {
        Array d(r.type, 37, 2, 3), src(r.type, 37, 2, 1);
        for (Array* a : {std::addressof(d), std::addressof(src)})
            for (int y = 0; y < 2; ++y)
                for (int x = 0; x < 37; ++x) {
                    if (r.type == u8(1))
                        a->at<uint8_t>(x, y) = uint8_t(r.element);
                    else if (r.type == s16(1))
                        a->at<int16_t>(x, y) = int16_t(r.element);
                    else
                        a->at<float>(x, y) = r.element;
                }
        const bool in_place = (&r - rows) % 2;
        if (!in_place) memset(d.mat.data, 1, 37);
        EXPECT_EQ(arith_c(r.op, &d, in_place ? nullptr : &src, &r.constant), 1);
        for (int y = 0; y < 2; ++y)
            for (int x = 0; x < 37; ++x) {
                const float got = r.type == u8(1)    ? float(d.at<uint8_t>(x, y))
                                  : r.type == s16(1) ? float(d.at<int16_t>(x, y))
                                                     : d.at<float>(x, y);
                ASSERT_EQ(got, r.want) << r.op << " " << r.element << " and " << r.constant;
            }
        EXPECT_TRUE(d.intact());
    }
}

TEST(arith_c, has_one_constant_per_channel_and_keeps_the_fourth) {
    const float constants[3] = {1, 20, 30};
    for (const LumoELEMTYPE type : {u8(3), u8(4), s16(3), s16(4), f32(3), f32(4)}) {
        Array d(type, 31, 3, 3, true), src(type, 31, 3, 1);
        d.fill(4), src.fill(5);
        const auto old = d.pixels();
        EXPECT_EQ(arith_c("add_c", &d, &src, constants), 1);
        const auto got = d.pixels();
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < 31; ++x)
                for (int c = 0; c < d.channels; ++c) {
                    const size_t e = size_t((y * 31 + x) * d.channels + c), eb = size_t(d.element_bytes);
                    if (c == 3)
                        ASSERT_EQ(memcmp(&got[e * eb], &old[e * eb], eb), 0);
                    else if (eb == 1)
                        ASSERT_EQ(got[e], std::min(255, src.at<uint8_t>(x, y, c) + int(constants[c])));
                    else if (eb == 2)
                        ASSERT_EQ(d.at<int16_t>(x, y, c),
                                  std::min(32767, src.at<int16_t>(x, y, c) + int(constants[c])));
                    else
                        ASSERT_EQ(d.at<float>(x, y, c), src.at<float>(x, y, c) + constants[c]);
                }
        EXPECT_TRUE(d.intact());
    }
}

TEST(arith_c, returns_whether_there_were_constants_whatever_was_done) {
    const float two[3] = {2, 2, 2};
    Array src(u8(2), 7, 2), d(u8(2), 7, 2), copied(u8(2), 7, 2);
    src.fill(1), d.set<uint8_t>(5), copied.set<uint8_t>(5);
    call<TarnCopy>("copy", kNoError, kNoStorage, &copied, &src);
    EXPECT_EQ(arith_c("mul_c", &d, &src, two), 1);  // two channels: copied at half the width, not multiplied
    EXPECT_TRUE(d.same_pixels(copied));
    EXPECT_EQ(arith_c("mul_c", &d, &src, nullptr), 0);
    EXPECT_EQ(arith_c("mul_c", &d, nullptr, nullptr), 0);
    EXPECT_TRUE(d.same_pixels(copied));

    Array one(u8(1), 9, 1), other(u8(1), 9, 1);
    one.set<uint8_t>(3), other.set<uint8_t>(100);
    LumoMAT alias = one.mat;
    EXPECT_EQ(arith_c("add_c", &one, &alias, two), 1);  // the same buffer through another record: in place
    EXPECT_EQ(one.pixels(), std::vector<uint8_t>(9, 5));
    one.mat.width = 0;
    EXPECT_EQ(arith_c("add_c", &one, &other, two), 1);
    one.mat.width = 9;
    EXPECT_EQ(one.pixels(), std::vector<uint8_t>(9, 5));

    Array wide(s32(1), 8, 1);  // 32-bit integers: the 8-bit kernel over as many bytes as the width says
    wide.set<int32_t>(0x01010101);
    EXPECT_EQ(arith_c("add_c", &wide, nullptr, two), 1);
    EXPECT_EQ(elements<int32_t>(wide), (std::vector<int32_t>{0x03030303, 0x03030303, 0x01010101, 0x01010101, 0x01010101,
                                                             0x01010101, 0x01010101, 0x01010101}));
}
