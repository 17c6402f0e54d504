// Value conversion through the module.
#include <cmath>

#include "ipp/fixture.h"

using namespace tarn::test;

namespace {

constexpr char kTypes[] = "@src(.elem-type, .nchannels) -> @dst(.elem-type, .nchannels)";

int64_t convert(Array& dst, LumoMAT* src, const float* scale, const float* offset, QuelERR* err = nullptr) {
    return call<TarnConvertScale>("tarn::convert-scale", err, nullptr, &dst, src, scale, offset);
}
int64_t stretch_rows(Array& a, const float* range, QuelERR* err = nullptr) {
    return call<TarnCvtvrangeV>("tarn::cvtvrange-v", err, nullptr, &a, range);
}
int64_t stretch(std::vector<LumoMAT*> arrays, const float* range, QuelERR* err = nullptr) {
    return call<TarnCvtvrangeN>("tarn::cvtvrange-n", err, nullptr, uint64_t(arrays.size()), arrays.data(), range);
}

// body(from, to, channels) for every pair of kinds and channel count.
template <class Fn>
void each_pair(const std::vector<LumoELEMTYPE>& kinds, Fn body) {
    for (const LumoELEMTYPE from : kinds)
        for (const LumoELEMTYPE to : kinds)
            for (int channels = 1; channels <= 4; ++channels) {
                SCOPED_TRACE(show(from | LUMO_CHANNELS(channels)) + " to " + show(to | LUMO_CHANNELS(channels)));
                body(from | LUMO_CHANNELS(channels), to | LUMO_CHANNELS(channels));
            }
}

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
            Array src(from, 5, 3, 8, near), dst(to, 5, 3, 4);
            src.fill(7), dst.fill(8);
            const Array before = dst;
            EXPECT_EQ(convert(dst, &src, near ? near_one : nullptr, near ? near_zero : nullptr), 0);
            expect_pixels(dst, before, [&](int x, int y, int c) { return get(&src, x, y, c); });
        });
}

TEST(convert_scale, maps_every_pair_of_u8_s16_and_f32) {
    const float scale[] = {0.5f, -1.75f, 3.1415926f, 2}, offset[] = {0.25f, 300, -7, 1};
    each_pair({LUMO_U8, LUMO_S16, LUMO_F32}, [&](LumoELEMTYPE from, LumoELEMTYPE to) {
        Array src(from, 5, 3, 8), dst(to, 5, 3, 4, true);
        src.fill(7), dst.fill(8);
        const Array before = dst;
        // Both vectors, one of them alone, and in place.
        for (const auto& [from_itself, s, o] :
             {std::tuple{false, scale, offset}, {false, nullptr, offset}, {from == to, scale, nullptr}}) {
            dst.fill(8);
            EXPECT_EQ(convert(dst, from_itself ? nullptr : &src, s, o), 0);
            const Array& used = from_itself ? before : src;
            expect_pixels(
                dst, before,
                [&, s = s, o = o](int x, int y, int c) {
                    return get(&used, x, y, c) * (s ? s[c] : 1) + (o ? o[c] : 0);
                },
                kRounding);
        }
    });
}

TEST(convert_scale, rounds_ties_to_the_even_integer) {
    Array a(u8(1), 4, 1);
    for (int x = 0; x < 4; ++x) a.at<uint8_t>(x, 0) = uint8_t(x);
    const float half = 0.5f, quarter = 0.25f;
    Array b(u8(1), 4, 1);
    convert(b, &a, &half, nullptr);
    EXPECT_EQ(b.pixels(), (std::vector<uint8_t>{0, 0, 1, 2}));
    convert(b, &a, &half, &quarter);
    EXPECT_EQ(b.pixels(), (std::vector<uint8_t>{0, 1, 1, 2}));
    // A product that does not fit 32 bits, and constants that are no number.
    for (const auto& [scale, offset, want] :
         {std::tuple{1e9f, -1e9f, 255}, {-1e38f, 0.0f, 0}, {NAN, 0.0f, 0}, {1.0f, NAN, 0}, {INFINITY, 0.0f, 255}}) {
        convert(b, &a, &scale, &offset);
        EXPECT_EQ(b.at<uint8_t>(2, 0), want) << scale << ", " << offset;
    }
}

TEST(convert_scale, of_an_array_to_itself_without_arithmetic_touches_nothing) {
    for (const LumoELEMTYPE type : {u8(1), LUMO_U8 | LUMO_CHANNELS(7), LUMO_F64 | LUMO_CHANNELS(1)}) {
        Array a(u8(1), 8, 2);
        a.fill(1);
        const auto before = a.pixels();
        a.mat.elemtype = type;
        EXPECT_EQ(convert(a, nullptr, nullptr, nullptr), 0);
        EXPECT_EQ(memcmp(a.mat.data, before.data(), before.size()), 0);
    }
}

TEST(convert_scale, refuses_what_it_has_no_kernel_for) {
    const float scale[] = {2, 2, 2, 2};
    const auto refused = [&](LumoELEMTYPE from, LumoELEMTYPE to, const float* s, int width) {
        Array src(from, 8, 2), dst(to, 8, 2);
        src.fill(1), dst.fill(2);
        src.mat.width = width;
        const auto before = dst.memory;
        QuelERR err = {};
        expect_error(convert(dst, &src, s, nullptr, &err), err, QUEL_E_TYPE, QUEL_C_UNSUPPORTED, kTypes);
        EXPECT_EQ(dst.memory, before);
    };
    refused(s32(1), u8(1), scale, 8);
    refused(u8(1), s32(3), scale, 8);
    refused(u32(1), u8(1), nullptr, 8);
    refused(LUMO_F64 | LUMO_CHANNELS(1), f32(1), nullptr, 8);
    refused(u8(5), u8(5), nullptr, 8);
    refused(u8(1), s16(1), nullptr, 0);
    refused(u8(1), u8(1), scale, -4);
}

TEST(value_range, of_lists_stretches_each_array_by_its_own_values) {
    const float range[] = {-3.5f, 250};
    each_type({LUMO_U8, LUMO_S16, LUMO_F32}, {1, 2, 3, 4}, [&](LumoELEMTYPE type) {
        Array a(type, 5, 3, 8), b(type, 7, 2, 4, true), other(s32(1), 4, 4);
        a.fill(1), b.fill(2), other.fill(3);
        const Array before[] = {a, b, other};
        EXPECT_EQ(stretch({&a, &other, &b}, range), 3);
        for (const Array* got : {std::addressof(a), std::addressof(b)}) {
            const Array& was = before[got != std::addressof(a)];
            expect_pixels(
                *got, was, [&](int x, int y, int c) { return stretched(was, x, y, c, 0, was.mat.height, range); },
                kRounding);
        }
        EXPECT_TRUE(other.same_pixels(before[2]));
    });
}

TEST(value_range, of_rows_stretches_each_by_its_own_values) {
    const float range[] = {0, 255};
    Array known(u8(1), 3, 2);
    const uint8_t values[2][3] = {{0, 5, 10}, {5, 6, 5}};
    for (int y = 0; y < 2; ++y) memcpy(known.row<uint8_t>(y), values[y], 3);
    EXPECT_EQ(stretch_rows(known, range), 0);
    EXPECT_EQ(known.pixels(), (std::vector<uint8_t>{0, 128, 255, 0, 255, 0}));
    each_type({LUMO_U8, LUMO_S16, LUMO_F32}, {1, 2, 3, 4}, [&](LumoELEMTYPE type) {
        Array a(type, 5, 3, 8, true);
        a.fill(5);
        const Array before = a;
        EXPECT_EQ(stretch_rows(a, range), 0);
        expect_pixels(
            a, before, [&](int x, int y, int c) { return stretched(before, x, y, c, y, y + 1, range); }, kRounding);
    });
}

TEST(value_range, maps_known_values) {
    const float range[] = {0, 255}, other[] = {7.5f, -1};
    Array a(u8(1), 11, 1), flat(s16(3), 5, 5), nan(f32(1), 3, 1);
    for (int x = 0; x < 11; ++x) a.at<uint8_t>(x, 0) = uint8_t(10 + x);
    flat.set<int16_t>(-77);
    nan.set<float>(NAN);
    EXPECT_EQ(stretch({&a}, range), 1);
    EXPECT_EQ(a.at<uint8_t>(0, 0), 0);
    EXPECT_EQ(a.at<uint8_t>(5, 0), 128);  // 127.5
    EXPECT_EQ(a.at<uint8_t>(10, 0), 255);
    EXPECT_EQ(stretch({&flat, &nan}, other), 2);
    for (int i = 0; i < 15; ++i) EXPECT_EQ(flat.row<int16_t>(2)[i], 8);
    EXPECT_EQ(nan.at<float>(1, 0), 7.5f);  // nothing but NaN is one value
    EXPECT_EQ(stretch({}, range), 0);
}

TEST(value_range, of_an_unsupported_array_does_nothing) {
    const float range[] = {0, 255};
    for (const LumoELEMTYPE type : {s32(1), u32(3), u8(5), LUMO_F64 | LUMO_CHANNELS(1)}) {
        Array a(type, 6, 3);
        a.fill(1);
        const auto before = a.memory;
        EXPECT_EQ(stretch_rows(a, range), 0);
        EXPECT_EQ(stretch({&a}, range), 1);
        EXPECT_EQ(a.memory, before);
    }
    Array empty(u8(1), 6, 3);
    empty.mat.width = 0;
    EXPECT_EQ(stretch_rows(empty, range), 0);
    EXPECT_EQ(stretch({&empty}, range), 1);
}

// Every cell of the mapping tables takes scratch memory; without it nothing is written.
TEST(conversion, reports_scratch_memory_that_cannot_be_had) {
    const float scale[] = {2, 2, 2, 2}, range[] = {1, 9};
    each_pair({LUMO_U8, LUMO_S16, LUMO_F32}, [&](LumoELEMTYPE from, LumoELEMTYPE to) {
        Array src(from, 9, 3), dst(to, 9, 3);
        src.fill(1), dst.fill(2);
        const auto before = dst.memory;
        QuelERR err;
        EXPECT_GT(each_allocation_failing(
                      [&] {
                          err = {};
                          dst.memory.assign(before.begin(), before.end());
                          return convert(dst, &src, scale, nullptr, &err);
                      },
                      [&](int64_t result) {
                          expect_error(result, err, QUEL_E_NOMEM, QUEL_C_NOMEM, "convscale");
                          EXPECT_EQ(dst.memory, before);
                      }),
                  0);
    });
    for (const LumoELEMTYPE kind : {LUMO_U8, LUMO_S16, LUMO_F32})
        for (int channels = 1; channels <= 4; ++channels) {
            Array a(kind | LUMO_CHANNELS(channels), 9, 3);
            QuelERR err;
            a.fill(1);
            const auto before = a.memory;
            EXPECT_GT(each_allocation_failing([&] { return err = {}, stretch({&a}, range, &err); },
                                              [&](int64_t result) {
                                                  expect_error(result, err, QUEL_E_NOMEM, QUEL_C_NOMEM, "cvtvrange_n");
                                                  EXPECT_EQ(a.memory, before);
                                              }),
                      0);
            EXPECT_GE(each_allocation_failing([&] { return err = {}, stretch_rows(a, range, &err); },
                                              [&](int64_t result) {
                                                  expect_error(result, err, QUEL_E_NOMEM, QUEL_C_NOMEM, "cvtvrange_v");
                                              }),
                      3);
        }
}

TEST(conversion, gives_scratch_back_to_the_storage_of_the_caller) {
    KaSMEMSTG storage = {};
    QuelERR err = {};
    ASSERT_NE(KaSMEMSTGopen(&storage, nullptr, 0, &err), nullptr);
    Array a(u8(3), 9, 3);
    LumoMAT* list[] = {&a};
    const float range[] = {1, 9}, scale[] = {2, 2, 2};
    EXPECT_EQ(call<TarnCvtvrangeN>("tarn::cvtvrange-n", &err, &storage, uint64_t(1), list, range), 1);
    EXPECT_EQ(call<TarnCvtvrangeV>("tarn::cvtvrange-v", &err, &storage, &a, range), 0);
    EXPECT_EQ(call<TarnConvertScale>("tarn::convert-scale", &err, &storage, &a, &a, scale, nullptr), 0);
    EXPECT_EQ(storage.used, 0u);
    KaMEMSTGdestroy(&storage.base);
}
