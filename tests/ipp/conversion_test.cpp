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

// An element of any kind.
double get(const Array& a, int x, int y, int c) {
    switch (a.mat.elemtype >> 8 & 15) {
        case LUMO_KIND_U8:
            return a.at<uint8_t>(x, y, c);
        case LUMO_KIND_S16:
            return a.at<int16_t>(x, y, c);
        case LUMO_KIND_S32:
            return a.at<int32_t>(x, y, c);
        default:
            return a.at<float>(x, y, c);
    }
}
// What a value becomes in an array's type.
double fit(const Array& a, double v) {
    switch (a.mat.elemtype >> 8 & 15) {
        case LUMO_KIND_U8:
            return std::fmin(std::fmax(std::nearbyint(v), 0), 255);
        case LUMO_KIND_S16:
            return std::fmin(std::fmax(std::nearbyint(v), -32768), 32767);
        case LUMO_KIND_S32:
            return std::fmin(std::fmax(std::nearbyint(v), -2147483648.0), 2147483647.0);
        default:
            return float(v);
    }
}
// value x scale + offset in float, each step rounded.
double mapped(double value, float scale, float offset) {
    const volatile float product = float(value) * scale;
    return float(product + offset);
}

// Expects value(x, y, channel) everywhere but in what stays: the fourth of four channels, the odd last pixel of two.
template <class Fn>
void expect_pixels(const Array& got, const Array& before, Fn value) {
    const int width = got.channels == 2 ? got.mat.width / 2 * 2 : got.mat.width;
    for (int y = 0; y < got.mat.height; ++y)
        for (int x = 0; x < got.mat.width; ++x)
            for (int c = 0; c < got.channels; ++c) {
                const bool stays = c == 3 || x >= width;
                const double want = stays ? get(before, x, y, c) : fit(got, value(x, y, c));
                ASSERT_EQ(get(got, x, y, c), want) << "at " << x << ", " << y << ", channel " << c;
            }
    EXPECT_TRUE(got.intact());
}

// body(from, to, channels) for every pair of kinds and channel count.
template <class Fn>
void each_pair(const std::vector<LumoELEMTYPE>& kinds, Fn body) {
    for (const LumoELEMTYPE from : kinds)
        for (const LumoELEMTYPE to : kinds)
            for (int channels = 1; channels <= 4; ++channels) {
                SCOPED_TRACE(testing::Message()
                             << LumoELEMTYPEshow(from) << " to " << LumoELEMTYPEshow(to) << " x " << channels);
                body(from | LUMO_CHANNELS(channels), to | LUMO_CHANNELS(channels));
            }
}

// What stretches one channel of rows y0 up to y1 to lo..hi.
struct Range {
    float scale, offset;
};
Range range_of(const Array& a, int c, int y0, int y1, float lo, float hi) {
    const int width = a.channels == 2 ? a.mat.width / 2 * 2 : a.mat.width;
    float m = INFINITY, top = -INFINITY;
    for (int y = y0; y < y1; ++y)
        for (int x = 0; x < width; ++x) {
            m = std::fmin(m, float(get(a, x, y, c)));
            top = std::fmax(top, float(get(a, x, y, c)));
        }
    if (!(top - m > 1.1920929e-07f)) return {0, lo};
    const volatile float scale = (hi - lo) / (top - m), product = scale * m;
    return {scale, lo - product};
}

}  // namespace

TEST(convert_scale, without_arithmetic_converts_every_pair_of_kinds) {
    const float near_one[] = {1.0000001f, 1, 0.99999994f, 1}, near_zero[] = {0, -1e-7f, 1e-7f, 0};
    for (const bool near : {false, true})
        each_pair({LUMO_U8, LUMO_S16, LUMO_S32, LUMO_F32}, [&](LumoELEMTYPE from, LumoELEMTYPE to) {
            Array src(from, 19, 3, 8, near), dst(to, 19, 3, 4), before(to, 19, 3, 4);
            src.fill(7), dst.fill(8), before.fill(8);
            EXPECT_EQ(convert(dst, &src, near ? near_one : nullptr, near ? near_zero : nullptr), 0);
            expect_pixels(dst, before, [&](int x, int y, int c) { return get(src, x, y, c); });
        });
}

TEST(convert_scale, maps_every_pair_of_u8_s16_and_f32) {
    const float scale[] = {0.5f, -1.75f, 3.1415926f, 2}, offset[] = {0.25f, 300, -7, 1};
    each_pair({LUMO_U8, LUMO_S16, LUMO_F32}, [&](LumoELEMTYPE from, LumoELEMTYPE to) {
        Array src(from, 71, 4, 8), dst(to, 71, 4, 4, true), before(to, 71, 4, 4, true);
        src.fill(7), dst.fill(8), before.fill(8);
        EXPECT_EQ(convert(dst, &src, scale, offset), 0);
        expect_pixels(dst, before, [&](int x, int y, int c) { return mapped(get(src, x, y, c), scale[c], offset[c]); });
        // One of the two vectors alone; and in place.
        src.fill(9), dst.fill(8);
        EXPECT_EQ(convert(dst, &src, nullptr, offset), 0);
        expect_pixels(dst, before, [&](int x, int y, int c) { return mapped(get(src, x, y, c), 1, offset[c]); });
        if (from == to) {
            dst.fill(8);
            EXPECT_EQ(convert(dst, nullptr, scale, nullptr), 0);
            expect_pixels(dst, before, [&](int x, int y, int c) { return mapped(get(before, x, y, c), scale[c], 0); });
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
    for (const LumoELEMTYPE kind : {LUMO_U8, LUMO_S16, LUMO_F32})
        for (int channels = 1; channels <= 4; ++channels) {
            SCOPED_TRACE(testing::Message() << LumoELEMTYPEshow(kind) << " x " << channels);
            const LumoELEMTYPE type = kind | LUMO_CHANNELS(channels);
            Array a(type, 43, 5, 8), a0(type, 43, 5), b(type, 7, 2, 4, true), b0(type, 7, 2), other(s32(1), 4, 4),
                other0(s32(1), 4, 4);
            a.fill(1), a0.fill(1), b.fill(2), b0.fill(2), other.fill(3), other0.fill(3);
            EXPECT_EQ(stretch({&a, &other, &b}, range), 3);
            const auto check = [&](const Array& got, const Array& before) {
                std::vector<Range> r;
                for (int c = 0; c < channels; ++c)
                    r.push_back(range_of(before, c, 0, before.mat.height, range[0], range[1]));
                expect_pixels(got, before, [&](int x, int y, int c) {
                    return mapped(get(before, x, y, c), r[size_t(c)].scale, r[size_t(c)].offset);
                });
            };
            check(a, a0);
            check(b, b0);
            EXPECT_TRUE(other.same_pixels(other0));
        }
}

TEST(value_range, of_rows_stretches_each_by_its_own_values) {
    const float range[] = {0, 255};
    Array known(u8(1), 3, 2);
    const uint8_t values[2][3] = {{0, 5, 10}, {5, 6, 5}};
    for (int y = 0; y < 2; ++y) memcpy(known.row<uint8_t>(y), values[y], 3);
    EXPECT_EQ(stretch_rows(known, range), 0);
    EXPECT_EQ(known.pixels(), (std::vector<uint8_t>{0, 128, 255, 0, 255, 0}));
    for (const LumoELEMTYPE kind : {LUMO_U8, LUMO_S16, LUMO_F32})
        for (int channels = 1; channels <= 4; ++channels) {
            const LumoELEMTYPE type = kind | LUMO_CHANNELS(channels);
            Array a(type, 21, 4, 8, true), before(type, 21, 4);
            a.fill(5), before.fill(5);
            EXPECT_EQ(stretch_rows(a, range), 0);
            expect_pixels(a, before, [&](int x, int y, int c) {
                const Range r = range_of(before, c, y, y + 1, range[0], range[1]);
                return mapped(get(before, x, y, c), r.scale, r.offset);
            });
        }
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
