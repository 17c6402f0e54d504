// Value conversion through the module.
#include <cmath>

#include "ipp/fixture.h"

using namespace tarn::test;

namespace {

int64_t convert(Array& dst, LumoMAT* src, const float* scale, const float* offset, QuelERR* err = nullptr) {
    return call<TarnConvertScale>("tarn::convert-scale", err, nullptr, &dst, src, scale, offset);
}
int64_t stretch_rows(Array& a, const float* range, QuelERR* err = nullptr) {
    return call<TarnCvtvrangeV>("tarn::cvtvrange-v", err, nullptr, &a, range);
}
int64_t stretch(std::vector<LumoMAT*> arrays, const float* range, QuelERR* err = nullptr) {
    return call<TarnCvtvrangeN>("tarn::cvtvrange-n", err, nullptr, uint64_t(arrays.size()), arrays.data(), range);
}

// body(from, to) for every pair of kinds, each with one channel to four.
template <class Fn>
void each_pair(std::initializer_list<LumoELEMTYPE> kinds, Fn body) {
    for (const LumoELEMTYPE from : kinds)
        each_type(kinds, {1, 2, 3, 4}, [&](LumoELEMTYPE to) {
            SCOPED_TRACE("from " + show(from));
            body(from | (to & 0xf000), to);
        });
}
constexpr std::initializer_list<LumoELEMTYPE> kMapped = {LUMO_U8, LUMO_S16, LUMO_F32};

// The mapped value of channel c, by which its own values in rows y0 up to y1 become lo..hi.
double stretched(const Array& a, int x, int y, int c, int y0, int y1, const float* range) {
    double lo = INFINITY, hi = -INFINITY;
    for (int row = y0; row < y1; ++row)
        for (int i = 0; i < a.mat.width - (a.channels == 2 ? a.mat.width % 2 : 0); ++i)
            lo = std::fmin(lo, get(&a, i, row, c)), hi = std::fmax(hi, get(&a, i, row, c));
    return range[0] + (get(&a, x, y, c) - lo) * (double(range[1]) - range[0]) / (hi - lo);
}

// A mapped value's rounding, to integers or of the float steps.
constexpr double kRounding = 0.51;

}  // namespace

TEST(convert_scale, without_arithmetic_converts_every_pair_of_kinds) {
    const float near_one[] = {1.0000001f, 1, 0.99999994f, 1}, near_zero[] = {0, -1e-7f, 1e-7f, 0};
    for (const bool near : {false, true})
        each_pair({LUMO_U8, LUMO_S16, LUMO_S32, LUMO_F32}, [&](LumoELEMTYPE from, LumoELEMTYPE to) {
            Operands o(to, from, near);
            EXPECT_EQ(convert(o.dst, &o.src, near ? near_one : nullptr, near ? near_zero : nullptr), 0);
            expect_pixels(o.dst, o.before, [&](int x, int y, int c) { return get(&o.src, x, y, c); });
        });
}

TEST(convert_scale, maps_every_pair_of_u8_s16_and_f32) {
    const float scale[] = {0.5f, -1.75f, 3.1415926f, 2}, offset[] = {0.25f, 300, -7, 1};
    each_pair(kMapped, [&](LumoELEMTYPE from, LumoELEMTYPE to) {
        Operands o(to, from);
        // Both vectors, one of them alone, and in place.
        for (const auto& [from_itself, s, t] :
             {std::tuple{false, scale, offset}, {false, nullptr, offset}, {from == to, scale, nullptr}}) {
            o.dst.fill(1);
            EXPECT_EQ(convert(o.dst, from_itself ? nullptr : &o.src, s, t), 0);
            const Array& used = from_itself ? o.before : o.src;
            const auto value = [&, s = s, t = t](int x, int y, int c) {
                return get(&used, x, y, c) * (s ? s[c] : 1) + (t ? t[c] : 0);
            };
            expect_pixels(o.dst, o.before, value, kRounding);
        }
    });
}

TEST(convert_scale, rounds_ties_to_the_even_integer_and_takes_any_constants) {
    Array a(u8(1), 1, 1), b(u8(1), 1, 1);
    for (const auto& [value, scale, offset, want] : {std::tuple{1, 0.5f, 0.0f, 0},
                                                     {2, 0.5f, 0.0f, 1},
                                                     {3, 0.5f, 0.0f, 2},
                                                     {1, 0.5f, 0.25f, 1},
                                                     {3, 0.5f, 0.25f, 2},
                                                     {2, 1e9f, -1e9f, 255},
                                                     {2, -1e38f, 0.0f, 0},
                                                     {2, NAN, 0.0f, 0},
                                                     {2, 1.0f, NAN, 0},
                                                     {2, INFINITY, 0.0f, 255}}) {
        a.at<uint8_t>(0, 0) = uint8_t(value);
        convert(b, &a, &scale, &offset);
        EXPECT_EQ(b.at<uint8_t>(0, 0), want) << value << " * " << scale << " + " << offset;
    }
    // Beyond 32 bits, and from elements of 16 only.
    Array wide(s16(1), 1, 1);
    const float scale = 1e5f;
    wide.at<int16_t>(0, 0) = 32767;
    convert(b, &wide, &scale, nullptr);
    EXPECT_EQ(b.at<uint8_t>(0, 0), 255);
}

TEST(convert_scale, of_an_array_to_itself_without_arithmetic_touches_nothing) {
    for (const LumoELEMTYPE type : {u8(1), u8(7), LUMO_F64 | LUMO_CHANNELS(1)}) {
        Operands o(u8(1));
        o.dst.mat.elemtype = type;
        EXPECT_EQ(convert(o.dst, nullptr, nullptr, nullptr), 0);
        EXPECT_EQ(o.dst.memory, o.before.memory);
    }
}

TEST(convert_scale, refuses_what_it_has_no_kernel_for) {
    const float scale[] = {2, 2, 2, 2};
    const auto refused = [&](LumoELEMTYPE from, LumoELEMTYPE to, const float* s, int width) {
        Operands o(to, from);
        o.src.mat.width = width;
        expect_refused(o.dst, kTypesOfBoth, [&](QuelERR* err) { return convert(o.dst, &o.src, s, nullptr, err); });
    };
    refused(s32(1), u8(1), scale, 5);
    refused(u8(1), s32(3), scale, 5);
    refused(u32(1), u8(1), nullptr, 5);
    refused(LUMO_F64 | LUMO_CHANNELS(1), f32(1), nullptr, 5);
    refused(u8(5), u8(5), nullptr, 5);
    refused(u8(1), s16(1), nullptr, 0);
    refused(u8(1), u8(1), scale, -4);
}

TEST(value_range, stretches_each_array_or_each_row_by_its_own_values) {
    const float range[] = {-3.5f, 250};
    each_type(kMapped, {1, 2, 3, 4}, [&](LumoELEMTYPE type) {
        Array a = Array(type, 5, 3, 8).filled(1), b = Array(type, 7, 2, 4, true).filled(2),
              other = Array(s32(1), 4, 4).filled(3), rows = a;
        const Array before[] = {a, b, other};
        EXPECT_EQ(stretch({&a, &other, &b}, range), 3);
        EXPECT_EQ(stretch_rows(rows, range), 0);
        const auto expect = [&](const Array& got, const Array& was, bool by_rows) {
            const auto value = [&](int x, int y, int c) {
                return stretched(was, x, y, c, by_rows ? y : 0, by_rows ? y + 1 : was.mat.height, range);
            };
            expect_pixels(got, was, value, kRounding);
        };
        expect(a, before[0], false);
        expect(b, before[1], false);
        expect(rows, before[0], true);
        EXPECT_TRUE(other.same_pixels(before[2]));
    });
}

TEST(value_range, maps_known_values) {
    const float range[] = {0, 255}, other[] = {7.5f, -1};
    Array a(u8(1), 11, 1), flat(s16(3), 5, 5), nan(f32(1), 3, 1), rows(u8(1), 3, 2);
    for (int x = 0; x < 11; ++x) a.at<uint8_t>(x, 0) = uint8_t(10 + x);
    flat.set<int16_t>(-77);
    nan.set<float>(NAN);
    EXPECT_EQ(stretch({&a}, range), 1);
    EXPECT_EQ(a.pixels(), (std::vector<uint8_t>{0, 26, 51, 76, 102, 128, 153, 178, 204, 230, 255}));
    EXPECT_EQ(stretch({&flat, &nan}, other), 2);
    for (int i = 0; i < 15; ++i) EXPECT_EQ(flat.row<int16_t>(2)[i], 8);
    EXPECT_EQ(nan.at<float>(1, 0), 7.5f);  // nothing but NaN is one value
    EXPECT_EQ(stretch({}, range), 0);
    const uint8_t values[2][3] = {{0, 5, 10}, {5, 6, 5}};
    for (int y = 0; y < 2; ++y) memcpy(rows.row<uint8_t>(y), values[y], 3);
    EXPECT_EQ(stretch_rows(rows, range), 0);
    EXPECT_EQ(rows.pixels(), (std::vector<uint8_t>{0, 128, 255, 0, 255, 0}));
}

TEST(value_range, of_an_unsupported_or_empty_array_does_nothing) {
    const float range[] = {0, 255};
    const auto untouched = [&](LumoELEMTYPE type, int width) {
        Operands o(type);
        o.dst.mat.width = width;
        EXPECT_EQ(stretch_rows(o.dst, range), 0);
        EXPECT_EQ(stretch({&o.dst}, range), 1);
        EXPECT_EQ(o.dst.memory, o.before.memory);
    };
    for (const LumoELEMTYPE type : {s32(1), u32(3), u8(5), LUMO_F64 | LUMO_CHANNELS(1)}) untouched(type, 5);
    untouched(u8(1), 0);
}

// Every cell of the range table takes scratch memory, and so do large results of scales; without it nothing is written.
TEST(conversion, reports_scratch_memory_that_cannot_be_had) {
    const float scale[] = {2, 2, 2, 2}, range[] = {1, 9};
    Array large = Array(u8(1), 2048, 2048).filled(7);
    Array larger(f32(1), 2048, 2048);
    const auto mapped = [&](QuelERR* err) { return convert(larger, &large, scale, nullptr, err); };
    EXPECT_GT(each_allocation_reported("convscale", larger, mapped), 0);
    each_pair(kMapped, [&](LumoELEMTYPE from, LumoELEMTYPE to) {
        if (from != to) return;
        Operands o(to, from);
        const auto of_list = [&](QuelERR* err) { return stretch({&o.dst}, range, err); };
        EXPECT_GT(each_allocation_reported("cvtvrange_n", o.dst, of_list), 0);
        // Rows that were done before stay.
        QuelERR err;
        const auto rows = [&] { return err = {}, stretch_rows(o.dst, range, &err); };
        EXPECT_GE(
            each_allocation_failing(
                rows, [&](int64_t result) { expect_error(result, err, QUEL_E_NOMEM, QUEL_C_NOMEM, "cvtvrange_v"); }),
            3);
    });
}

TEST(conversion, gives_scratch_back_to_the_storage_of_the_caller) {
    Storage storage;
    Operands o(u8(3));
    LumoMAT* list[] = {&o.dst};
    const float range[] = {1, 9}, scale[] = {2, 2, 2};
    EXPECT_EQ(call<TarnCvtvrangeN>("tarn::cvtvrange-n", nullptr, &storage, uint64_t(1), list, range), 1);
    EXPECT_EQ(call<TarnCvtvrangeV>("tarn::cvtvrange-v", nullptr, &storage, &o.dst, range), 0);
    EXPECT_EQ(call<TarnConvertScale>("tarn::convert-scale", nullptr, &storage, &o.dst, &o.dst, scale, nullptr), 0);
    EXPECT_EQ(storage.used, 0u);
}
