// Logic, comparisons, fills and arithmetic with constants through the module: which kernel each type reaches, and the
// contract around it. The kernels' own values: cases/.
#include <cmath>

#include "ipp/fixture.h"

using namespace tarn::test;

namespace {

constexpr std::initializer_list<LumoELEMTYPE> kIntegers = {LUMO_U8, LUMO_S16, LUMO_S32},
                                              kKinds = {LUMO_U8, LUMO_S16, LUMO_F32};
const LumoMAT* const kNone = nullptr;

// Two's complement of 64 bits has the low bits of every element.
double apply(const std::string& op, double x, double y) {
    const int64_t a = int64_t(x), b = int64_t(y);
    return double(op[0] == 'a' ? a & b : op[0] == 'o' ? a | b : a ^ b);
}

bool holds(uint32_t code, double a, double b) {
    return code == TARN_LESS            ? a < b
           : code == TARN_LESS_EQUAL    ? a <= b
           : code == TARN_EQUAL         ? a == b
           : code == TARN_GREATER_EQUAL ? a >= b
                                        : a > b;
}

}  // namespace

TEST(logic, takes_its_operands_by_record_and_keeps_the_fourth_channel) {
    for (const char* op : {"and", "or", "xor"})
        each_type(kIntegers, {1, 3, 4}, [&](LumoELEMTYPE type) {
            Operands o(type);
            const Array b = Array(type, 5, 3, 4, true).filled(3);
            // Both; only the first; only the second; dst first; dst second.
            const LumoMAT* given[5][2] = {{&o.src, &b}, {&o.src, kNone}, {kNone, &b}, {&o.dst, &b}, {&o.src, &o.dst}};
            const LumoMAT* used[5][2] = {
                {&o.src, &b}, {&o.before, &o.src}, {&o.before, &b}, {&o.before, &b}, {&o.src, &o.before}};
            for (int form = 0; form < 5; ++form) {
                SCOPED_TRACE(testing::Message() << op << " form " << form);
                o.dst.fill(1);
                EXPECT_EQ(run<TarnLogic>(op, &o.dst, given[form][0], given[form][1]), 0);
                expect_pixels(o.dst, o.before, [&](int x, int y, int c) {
                    return apply(op, get(used[form][0], x, y, c), get(used[form][1], x, y, c));
                });
            }
        });
}

TEST(logic, has_the_size_of_the_first_operand) {
    Array dst(u8(1), 8, 2), a(u8(1), 5, 2), b(u8(1), 8, 2);
    dst.set<uint8_t>(9), a.set<uint8_t>(0xf0), b.set<uint8_t>(0x3c);
    EXPECT_EQ(run<TarnLogic>("and", &dst, &a, &b), 0);
    EXPECT_EQ(dst.pixels(), (std::vector<uint8_t>{48, 48, 48, 48, 48, 9, 9, 9, 48, 48, 48, 48, 48, 9, 9, 9}));
    const auto before = dst.pixels();
    EXPECT_EQ(run<TarnLogic>("and", &dst, nullptr, nullptr), 0);
    a.mat.width = 0;
    EXPECT_EQ(run<TarnLogic>("or", &dst, &a, &b), 0);
    a.mat.width = 5, a.mat.data = nullptr;
    EXPECT_EQ(run<TarnLogic>("or", &dst, &a, &b), 0);
    EXPECT_EQ(dst.pixels(), before);
}

TEST(not_, complements_the_source_or_the_destination_itself) {
    each_type({LUMO_U8}, {1, 3, 4}, [](LumoELEMTYPE type) {
        for (const bool in_place : {false, true}) {
            Operands o(type);
            EXPECT_EQ(run<TarnNot>("not", &o.dst, in_place ? nullptr : &o.src), 0);
            const Array& used = in_place ? o.before : o.src;
            expect_pixels(o.dst, o.before, [&](int x, int y, int c) { return 255 - get(&used, x, y, c); });
        }
    });
}

TEST(logic_c, uses_the_low_bits_of_one_word_per_channel) {
    const uint32_t words[4] = {0x12345678, 0xfedcba98, 0x80000001, 0x0f0f0f0f};
    for (const char* op : {"and_c", "or_c", "xor_c"})
        each_type(kIntegers, {1, 3, 4}, [&](LumoELEMTYPE type) {
            Operands o(type);
            const LumoMAT alias = o.dst.mat;
            for (const LumoMAT* from : {static_cast<const LumoMAT*>(&o.src), kNone, &alias}) {
                o.dst.fill(1);
                EXPECT_EQ(run<TarnLogicC>(op, &o.dst, from, words), 0);
                const auto value = [&](int x, int y, int c) {
                    return apply(op, get(from == &o.src ? from : &o.before, x, y, c), wrapped(type, words[c]));
                };
                expect_pixels(o.dst, o.before, value, 0, type == u8(4));  // only 8 bits keep the fourth
            }
        });
}

TEST(logic_c, without_constants_copies) {
    for (const LumoELEMTYPE type : {u8(1), u8(4), f32(3), u8(2)}) {  // types that only the copy serves too
        Operands o(type);
        EXPECT_EQ(run<TarnCopy>("copy", &o.before, &o.src), 0);
        for (const LumoMAT* from : {static_cast<const LumoMAT*>(&o.src), kNone}) {
            EXPECT_EQ(run<TarnLogicC>("and_c", &o.dst, from, nullptr), 0);
            EXPECT_TRUE(o.dst.same_pixels(o.before));
        }
    }
}

TEST(cmp, gives_255_where_it_holds_in_every_channel_compared) {
    each_type(kKinds, {1, 2, 3, 4}, [](LumoELEMTYPE type) {
        constexpr int kWidth = 29;
        Array a(type, kWidth, 3, 4), b(type, kWidth, 3), d(u8(1), kWidth, 3, 3);
        // Of two channels one result for two pixels; of four the last does not count.
        const int unit = a.channels == 2 ? 4 : a.channels, compared = a.channels == 4 ? 3 : unit,
                  units = kWidth * a.channels / unit;
        // Less, equal and greater by turns; in some units one element is larger than the others.
        const auto value = [&](int i, int y, int c) {
            return c >= compared ? 9 : 99 + (i + y) % 3 + (i % 4 == 1 && c == i / 4 % compared);
        };
        put_all(&b, 100);
        for (int y = 0; y < 3; ++y)
            for (int i = 0; i < units * unit; ++i) put(&a, 0, y, i, value(i / unit, y, i % unit));
        for (uint32_t code = TARN_LESS; code <= TARN_GREATER; ++code) {
            d.set<uint8_t>(7);
            EXPECT_EQ(run<TarnCmp>("cmp", &d, &a, &b, code), 0);
            for (int y = 0; y < 3; ++y)
                for (int x = 0; x < kWidth; ++x) {
                    bool all = true;
                    for (int c = 0; c < compared; ++c) all &= holds(code, value(x, y, c), 100);
                    ASSERT_EQ(d.at<uint8_t>(x, y), x >= units ? 7 : all ? 255 : 0) << code << " at " << x;
                }
            EXPECT_TRUE(d.intact());
        }
    });
}

TEST(cmp, of_other_codes_and_types_writes_nothing) {
    Array d(u8(1), 5, 1);
    d.set<uint8_t>(7);
    const auto compare = [&](LumoELEMTYPE type, uint32_t code) {
        Array x(type, 5, 1);
        EXPECT_EQ(run<TarnCmp>("cmp", &d, &x, &x, code), 0);
    };
    for (const uint32_t code : {0u, 1u, 2u, 8u, 9u, 0xffffffffu}) compare(u8(4), code);
    for (const LumoELEMTYPE type : {s32(1), u32(1), LUMO_F64 | LUMO_CHANNELS(1)}) compare(type, TARN_EQUAL);
    EXPECT_EQ(d.pixels(), std::vector<uint8_t>(5, 7));
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
        Array src(r.type, 3, 1), d(u8(1), 3, 1);
        put_all(&src, r.equal);
        EXPECT_EQ(run<TarnCmpC>("cmp_c", &d, &src, &r.constant, TARN_EQUAL), 0);
        EXPECT_EQ(d.pixels(), std::vector<uint8_t>(3, 255)) << r.constant;
    }
    const float constants[3] = {1, 2.25f, 30};
    each_type(kKinds, {1, 3, 4}, [&](LumoELEMTYPE type) {
        Array src(type, 9, 2, 4), d(u8(1), 9, 2, 1);
        for (int i = 0; i < 18 * src.channels; ++i)  // the fourth is never compared
            put(&src, 0, i % 2, i / 2, i / 2 % src.channels == 3 ? 77 : constants[i / 2 % src.channels]);
        put(&src, 7, 1, src.channels / 2, 33);
        EXPECT_EQ(run<TarnCmpC>("cmp_c", &d, &src, constants, TARN_LESS_EQUAL), 0);
        for (int i = 0; i < 18; ++i) EXPECT_EQ(d.at<uint8_t>(i / 2, i % 2), i == 15 ? 0 : 255) << i;
    });
}

TEST(set, floors_and_cuts_its_constants_and_keeps_the_fourth_channel) {
    const float constants[3] = {300.75f, -1.0f, -70000.5f};
    each_type({LUMO_U8, LUMO_S16, LUMO_S32, LUMO_F32}, {1, 3, 4}, [&](LumoELEMTYPE type) {
        for (const bool masked : {false, true}) {
            Operands o(type);
            Array mask(u8(1), 5, 3, 2);
            mask.set<uint8_t>(0);
            for (int x = 0; x < 5; x += 2) mask.at<uint8_t>(x, 1) = uint8_t(x + 1);
            EXPECT_EQ(run<TarnSet>("set", &o.dst, constants, masked ? &mask : nullptr), 0);
            expect_pixels(o.dst, o.before, [&](int x, int y, int c) -> double {
                if (masked && !mask.at<uint8_t>(x, y)) return get(&o.before, x, y, c);
                return (type & 0xfff) == LUMO_F32 ? constants[c] : wrapped(type, int64_t(std::floor(constants[c])));
            });
        }
    });
    Array d(s32(1), 9, 1);
    for (const auto& [value, want] :
         {std::pair{3e9f, INT32_MIN}, {-3e9f, INT32_MIN}, {NAN, INT32_MIN}, {2147483520.0f, 2147483520}}) {
        EXPECT_EQ(run<TarnSet>("set", &d, &value, nullptr), 0);
        EXPECT_EQ(d.at<int32_t>(8, 0), want) << value;
    }
    EXPECT_EQ(run<TarnSet>("set", &d, nullptr, nullptr), 0);
    EXPECT_EQ(d.at<int32_t>(8, 0), 0);
}

TEST(arith_c, floors_and_cuts_its_constants) {
    struct Row {
        const char* op;
        LumoELEMTYPE type;
        float element, constant, want;
    };
    const Row rows[] = {
        {"add_c", u8(1), 10, 2.7f, 12},          {"add_c", u8(1), 0, -0.5f, 255},
        {"add_c", u8(1), 10, 256.0f, 10},        {"sub_c", u8(1), 255, -1.0f, 0},
        {"mul_c", u8(1), 77, 0.9f, 0},           {"mul_c", u8(1), 77, 3.9f, 231},
        {"add_c", s16(1), 10, 40000.0f, -25526}, {"add_c", s16(1), 5, 1e30f, 5},
        {"mul_c", s16(1), -181, 181.0f, -32761}, {"add_c", f32(1), 10, 2.75f, 12.75f},
        {"sub_c", f32(1), 10, -0.5f, 10.5f},     {"mul_c", f32(1), 10, 0.5f, 5},
    };
    for (const Row& r : rows) {
        Array d(r.type, 7, 2, 3), src(r.type, 7, 2, 1);
        const bool in_place = (&r - rows) % 2;
        put_all(in_place ? &d : &src, r.element);
        EXPECT_EQ(run<TarnArithC>(r.op, &d, in_place ? nullptr : &src, &r.constant), 1);
        SCOPED_TRACE(testing::Message() << r.op << " " << r.element << " and " << r.constant);
        expect_pixels(d, d, [&](int, int, int) { return r.want; });
    }
}

TEST(arith_c, has_one_constant_per_channel_and_keeps_the_fourth) {
    const float constants[3] = {2, 20, 30};
    for (const char* op : {"add_c", "sub_c", "mul_c"})
        each_type(kKinds, {1, 3, 4}, [&](LumoELEMTYPE type) {
            Operands o(type);
            EXPECT_EQ(run<TarnArithC>(op, &o.dst, &o.src, constants), 1);
            expect_pixels(o.dst, o.before, [&](int x, int y, int c) {
                const double v = get(&o.src, x, y, c);
                return op[0] == 'a' ? v + constants[c] : op[0] == 's' ? v - constants[c] : v * constants[c];
            });
        });
}

TEST(arith_c, returns_whether_there_were_constants_whatever_was_done) {
    const float two[3] = {2, 2, 2};
    Operands o(u8(2));
    EXPECT_EQ(run<TarnCopy>("copy", &o.before, &o.src), 0);
    // Two channels: copied at half the width, not multiplied.
    EXPECT_EQ(run<TarnArithC>("mul_c", &o.dst, &o.src, two), 1);
    EXPECT_TRUE(o.dst.same_pixels(o.before));
    EXPECT_EQ(run<TarnArithC>("mul_c", &o.dst, &o.src, nullptr), 0);
    EXPECT_EQ(run<TarnArithC>("mul_c", &o.dst, nullptr, nullptr), 0);
    EXPECT_TRUE(o.dst.same_pixels(o.before));

    Array one(u8(1), 9, 1), other(u8(1), 9, 1);
    one.set<uint8_t>(3), other.set<uint8_t>(100);
    LumoMAT alias = one.mat;
    EXPECT_EQ(run<TarnArithC>("add_c", &one, &alias, two), 1);  // the same buffer through another record: in place
    EXPECT_EQ(one.pixels(), std::vector<uint8_t>(9, 5));
    one.mat.width = 0;
    EXPECT_EQ(run<TarnArithC>("add_c", &one, &other, two), 1);
    one.mat.width = 9;
    EXPECT_EQ(one.pixels(), std::vector<uint8_t>(9, 5));

    Array wide(s32(1), 8, 1);  // 32-bit integers: the 8-bit kernel over as many bytes as the width says
    put_all(&wide, 0x01010101);
    EXPECT_EQ(run<TarnArithC>("add_c", &wide, nullptr, two), 1);
    for (int x = 0; x < 8; ++x) EXPECT_EQ(wide.at<int32_t>(x, 0), x < 2 ? 0x03030303 : 0x01010101);
}
