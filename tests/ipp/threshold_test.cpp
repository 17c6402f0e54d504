// "tarn::threshold" through the module, and the three operations of the companion that it is made of.
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <filesystem>
#include <map>

#include "ipp/fixture.h"

using namespace tarn::test;

namespace {

constexpr TarnTHRSPEC kBinary = {TARN_GREATER, TARN_ALL_CHANNELS, 0, 0, nullptr, 255, 0, 0, 0};

TarnTHRSPEC spec(uint32_t comparison, float value, int channel = TARN_ALL_CHANNELS, float holds = 200,
                 float fails = 7) {
    return {comparison, channel, value, 0, nullptr, holds, fails, 0, 0};
}

bool holds(uint32_t comparison, double a, double b) {
    return comparison == TARN_LESS            ? a < b
           : comparison == TARN_LESS_EQUAL    ? a <= b
           : comparison == TARN_EQUAL         ? a == b
           : comparison == TARN_GREATER_EQUAL ? a >= b
                                              : a > b;
}

// What the specifications make of an element, one after the other.
double thresholded(LumoELEMTYPE type, double element, int channel, const std::vector<TarnTHRSPEC>& specs,
                   const std::function<double(const TarnTHRSPEC&)>& level) {
    for (const TarnTHRSPEC& s : specs) {
        if (s.channel != TARN_ALL_CHANNELS && s.channel != channel) continue;
        const bool is = holds(s.comparison, element, level(s));
        if (!(s.keep & (is ? TARN_KEEP_HOLDS : TARN_KEEP_FAILS))) element = fit(type, is ? s.holds : s.fails);
    }
    return element;
}

float otsu(const LumoMAT* src, float lower, float upper, int bins, QuelERR* err = nullptr) {
    const float bounds[] = {lower, upper};
    const QuelOP op = find("calcthresh_otsu");
    return reinterpret_cast<TarnCalcthreshOtsu>(op.entry)(&op.call, err, nullptr, src, bounds, bins);
}

// The definition: the first k for which values <= k and > k have the greatest variance between them, in whole numbers.
int otsu_of(const std::vector<int>& values) {
    std::map<int, long> counts;
    for (const int v : values) ++counts[v];
    const long all = long(values.size());
    long sum_of_all = 0, lower = 0, sum = 0;
    for (const auto& [v, n] : counts) sum_of_all += v * n;
    int found = 0;
    long double greatest = 0;
    for (const auto& [v, n] : counts) {
        lower += n, sum += v * n;
        if (lower == all) break;
        const long double apart = (long double)(lower)*sum_of_all - (long double)(sum)*all;
        const long double variance = apart * apart / ((long double)(lower) * (all - lower));
        if (variance > greatest) greatest = variance, found = v;
    }
    return found;
}

// The module's table with spies in the places of the siblings.
struct Spies {
    struct Seen {
        std::string what;
        int width, height;
        int64_t at;  // the source's first pixel in the array that is thresholded
        float value;
    };
    static inline std::vector<Seen> seen;
    static inline int64_t answer;
    static inline float threshold;
    static inline const uint8_t* base;
    static inline TarnMASK mask;
    static inline const LumoMAT* filtered;
    static inline std::vector<TarnTHRSPEC> specs;

    static void note(const char* what, const LumoMAT* src, float value) {
        seen.push_back({what, src->width, src->height, static_cast<const uint8_t*>(src->data) - base, value});
    }
    static float calcthresh(const QuelCALL*, QuelERR*, KaSMEMSTG*, const LumoMAT* src, const float* bounds,
                            int32_t bins) {
        note("otsu", src, bounds[1] - bounds[0] + float(bins));
        return threshold;
    }
    static int64_t imm(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT*, const LumoMAT* src, uint64_t n,
                       const TarnTHRSPEC* s) {
        specs.assign(s, s + n);
        note("imm", src, n ? s[n - 1].value : 0);
        return answer;
    }
    static int64_t adapt(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT*, const LumoMAT* src, uint64_t n,
                         const TarnTHRSPEC* s) {
        specs.assign(s, s + n);
        note("adapt", src, n ? s[n - 1].value : 0);
        return answer;
    }
    static int64_t filter(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src, const LumoRECT*,
                          uint32_t kind, const TarnMASK* m) {
        note("filter", src, float(kind));
        mask = *m, filtered = dst;
        return answer < -100 ? answer : 0;
    }
    Spies() {
        const QuelOP op = find("threshold");
        table = *op.call.iface;
        table.slots[41].entry = reinterpret_cast<QuelENTRY>(calcthresh);
        table.slots[42].entry = reinterpret_cast<QuelENTRY>(imm);
        table.slots[43].entry = reinterpret_cast<QuelENTRY>(adapt);
        table.slots[87].entry = reinterpret_cast<QuelENTRY>(filter);
        entry = reinterpret_cast<TarnThreshold>(op.entry);
        record = op.call;
        record.iface = &table;
        answer = 0, threshold = 40;
    }
    // What the siblings saw: "imm 12x9+0 =5".
    std::string operator()(LumoMAT* dst, const LumoMAT* src, const LumoRECT* region, const TarnTHROPTIONS* options,
                           uint64_t n, TarnTHRSPEC* s, int64_t expected = 0, QuelERR* err = nullptr) {
        seen.clear();
        base = static_cast<const uint8_t*>((src ? src : dst)->data);
        EXPECT_EQ(entry(&record, err, nullptr, dst, src, region, options, n, s), expected);
        std::string all;
        for (const Seen& one : seen) {
            char text[100];
            std::snprintf(text, sizeof text, "%s%s %dx%d+%d =%g", all.empty() ? "" : ", ", one.what.c_str(), one.width,
                          one.height, int(one.at), double(one.value));
            all += text;
        }
        return all;
    }
    QuelIFACE table;
    QuelCALL record;
    TarnThreshold entry;
};

TarnTHROPTIONS otsu_options(int width, int height, int tile, int whole, float value = TARN_THRESHOLD_COMPUTE) {
    TarnTHROPTIONS o = {TARN_THRESHOLD_OTSU, {}};
    o.of.otsu = {width, height, uint16_t(tile), uint16_t(whole), 0, 0, 0, value};
    return o;
}
TarnTHROPTIONS adaptive_options(int x, int y, int width, int height) {
    TarnTHROPTIONS o = {TARN_THRESHOLD_ADAPTIVE, {}};
    o.of.adaptive = {x, y, width, height, {}};
    return o;
}

}  // namespace

// ---- The companion's operations -------------------------------------------------------------------------------------

TEST(threshold_imm, compares_every_kind_and_form_exactly_and_applies_specifications_in_order) {
    TarnTHRSPEC keeps = spec(TARN_LESS, 100.5f, 0);
    keeps.keep = TARN_KEEP_HOLDS;
    const std::vector<std::vector<TarnTHRSPEC>> lists = {
        {},
        {spec(TARN_GREATER, 99.5f)},
        {spec(TARN_LESS, 17.25f, 0), spec(TARN_LESS, -1e9f, 1), keeps},
        {spec(TARN_EQUAL, 7.5f), spec(TARN_GREATER_EQUAL, 200, 0, 1e9f, -1e9f), spec(TARN_LESS_EQUAL, 3e9f, 0, 2.5f)},
        {spec(TARN_GREATER, NAN, TARN_ALL_CHANNELS, 3, 4)},
        {keeps, spec(TARN_GREATER, 150, 0, NAN, 0)}};
    each_type({LUMO_U8, LUMO_S16, LUMO_F32}, {1, 2, 3, 4}, [&](LumoELEMTYPE type) {
        for (const auto& specs : lists) {
            const int most = (type >> 12) - 1;
            if (std::any_of(specs.begin(), specs.end(), [=](const auto& s) { return s.channel > most; })) continue;
            const bool nan = std::any_of(specs.begin(), specs.end(), [](const auto& s) { return s.holds != s.holds; });
            if (nan && type >> 8 & 4) continue;
            const auto value = [&](const Array& of) {
                return [&](int x, int y, int c) {
                    const auto level = [](const TarnTHRSPEC& s) { return double(s.value); };
                    return thresholded(type, get(&of, x, y, c), c, specs, level);
                };
            };
            Operands o(type);
            EXPECT_EQ(run<TarnThresholdImm>("threshold_imm", &o.dst, &o.src, specs.size(), specs.data()), 0);
            expect_pixels(o.dst, o.before, value(o.src));
            Array same = o.src;
            EXPECT_EQ(run<TarnThresholdImm>("threshold_imm", &same, static_cast<const LumoMAT*>(nullptr), specs.size(),
                                            specs.data()),
                      0);
            expect_pixels(same, o.src, value(o.src));
        }
    });
}

TEST(threshold_adapt, compares_with_the_reference_plus_an_offset_and_may_overwrite_it) {
    each_type({LUMO_U8, LUMO_S16, LUMO_F32}, {1, 2, 3, 4}, [&](LumoELEMTYPE type) {
        for (const float offset : {-20.5f, 0.0f, 12.0f, 1e6f}) {
            const Array reference = Array(type, 6, 5, 3).filled(5), src = Array(type, 6, 5).filled(6);
            for (const bool apart : {true, false}) {
                Array dst = reference;
                std::vector<TarnTHRSPEC> specs = {spec(TARN_GREATER, 0), spec(TARN_LESS, 0, 0, 90, 60)};
                for (TarnTHRSPEC& s : specs) s.offset = offset, s.reference = apart ? &reference : &dst;
                EXPECT_EQ(run<TarnThresholdAdapt>("threshold_adapt", &dst, &src, specs.size(), specs.data()), 0);
                expect_pixels(dst, reference, [&](int x, int y, int c) {
                    return thresholded(type, get(&src, x, y, c), c, specs, [&](const TarnTHRSPEC&) {
                        const double r = get(&reference, x, y, c);
                        return (type >> 8 & 15) == 5 ? double(float(r) + offset) : r + double(offset);
                    });
                });
            }
        }
    });
}

TEST(threshold_imm, and_adapt_refuse_and_leave_the_destination) {
    const Array src(u8(1), 5, 4), small(u8(1), 5, 3), other(s16(1), 5, 4);
    Array dst(u8(1), 5, 4), floats(f32(1), 5, 4), five(u8(5), 5, 4), low(u8(1), 4, 4);
    const auto run_both = [&](LumoMAT* to, const LumoMAT* from, TarnTHRSPEC s, QuelERR* err, bool adapt) {
        return adapt ? call<TarnThresholdAdapt>("threshold_adapt", err, nullptr, to, from, uint64_t(1), &s)
                     : call<TarnThresholdImm>("threshold_imm", err, nullptr, to, from, uint64_t(1), &s);
    };
    for (const bool adapt : {false, true}) {
        TarnTHRSPEC s = kBinary;
        s.reference = &src;
        expect_refused(floats, kTypesOfBoth, [&](QuelERR* err) { return run_both(&floats, &src, s, err, adapt); });
        expect_refused(five, kTypesOfBoth, [&](QuelERR* err) { return run_both(&five, &five, s, err, adapt); });
        expect_refused(low, kTypesOfBoth, [&](QuelERR* err) { return run_both(&low, &src, s, err, adapt); });
        for (const auto& [comparison, channel] : {std::pair(2u, 0), {8u, 0}, {5u, 1}, {5u, -2}}) {
            s.comparison = comparison, s.channel = channel;
            QuelERR err = {};
            expect_error(run_both(&dst, &src, s, &err, adapt), err, QUEL_E_OPTION, QUEL_C_ARGUMENT, "@specs[i]");
        }
        EXPECT_TRUE(dst.same_pixels(src));
    }
    for (const LumoMAT* reference : {static_cast<const LumoMAT*>(nullptr), &small, &other}) {
        TarnTHRSPEC s = kBinary;
        s.reference = reference;
        expect_refused(dst, kTypesOfBoth, [&](QuelERR* err) { return run_both(&dst, &src, s, err, true); });
    }
}

TEST(calcthresh_otsu, gives_the_first_of_the_greatest_variances) {
    std::mt19937 rng(7);
    for (int trial = 0; trial < 200; ++trial) {
        Array src(u8(1), 1 + int(rng() % 30), 1 + int(rng() % 8), 3);
        const int levels = 2 + int(rng() % 200);
        std::vector<int> values;
        for (int y = 0; y < src.mat.height; ++y)
            for (int x = 0; x < src.mat.width; ++x)
                values.push_back(src.at<uint8_t>(x, y) = uint8_t(30 + int(rng()) % levels * (255 - 30) / levels));
        EXPECT_EQ(otsu(&src, 0, 255, 256), float(otsu_of(values))) << "trial " << trial;
        // The same levels spread over more intervals than are searched in vectors.
        Array wide(s16(1), src.mat.width, src.mat.height);
        for (size_t i = 0; i < values.size(); ++i)
            wide.at<int16_t>(int(i) % src.mat.width, int(i) / src.mat.width) = int16_t(values[i] *= 16);
        EXPECT_EQ(otsu(&wide, 0, 4095, 4096), float(otsu_of(values))) << "trial " << trial;
    }
    // More elements and intervals than 64 bits have room for.
    Array large(s16(1), 4096, 2049);
    for (int y = 0; y < 2049; ++y)
        for (int x = 0; x < 4096; ++x)
            large.at<int16_t>(x, y) = int16_t(y == 0 ? -32768 : y % 2 ? 100 : y % 64 ? 32000 : 32767);
    EXPECT_EQ(otsu(&large, -32768, 32767, 65536), 100.0f);
    // Two of the same: both parts of three equal classes.
    Array even(u8(3), 4, 1);
    for (int x = 0; x < 4; ++x)
        even.at<uint8_t>(x, 0, 0) = 50, even.at<uint8_t>(x, 0, 1) = 100, even.at<uint8_t>(x, 0, 2) = 150;
    EXPECT_EQ(otsu(&even, 0, 255, 256), 50.0f);
    // Two of the same that are made of different numbers.
    Array tie(u8(1), 16 * 211, 1);
    for (int x = 0; x < tie.mat.width; ++x) tie.at<uint8_t>(x, 0) = x < 2110 ? 10 : x < 3165 ? 11 : 13;
    EXPECT_EQ(otsu(&tie, 0, 255, 256), 10.0f);
    // One class, or nothing within the bounds.
    even.set<uint8_t>(90);
    EXPECT_EQ(otsu(&even, 0, 255, 256), 0.0f);
    EXPECT_EQ(otsu(&even, 100, 255, 5), 130.0f);  // the last number of 100 to 131
    // A fourth channel is not looked at; a second one is.
    Array four(u8(4), 2, 1), two(u8(2), 1, 1);
    const uint8_t pixels[] = {10, 10, 10, 255, 60, 60, 60, 0};
    std::copy_n(pixels, 8, four.row<uint8_t>(0));
    EXPECT_EQ(otsu(&four, 0, 255, 256), 10.0f);
    std::copy_n(pixels + 2, 2, two.row<uint8_t>(0));
    EXPECT_EQ(otsu(&two, 0, 255, 256), 10.0f);
}

TEST(calcthresh_otsu, parts_16_bit_and_float_elements_by_the_last_number_of_an_interval) {
    Array words(s16(1), 6, 1), floats(f32(1), 8, 1);
    const int16_t w[] = {-3000, -2990, -2980, 900, 910, 30000};
    std::copy_n(w, 6, words.row<int16_t>(0));
    const float lower = otsu(&words, -4000, 1000, 100);  // intervals of 50; 30000 is not counted
    EXPECT_EQ(lower, -2951.0f);
    const float f[] = {-0.5f, -0.4f, 0.25f, 0.3f, NAN, 7, -INFINITY, 0.3f};
    std::copy_n(f, 8, floats.row<float>(0));
    const float t = otsu(&floats, -1, 1, 384);
    const double end_of_interval = -1 + (std::floor((-0.4f + 1.0) * 192) + 1) / 192;
    EXPECT_LT(double(t), end_of_interval);
    EXPECT_GE(double(std::nextafter(t, 1.0f)), end_of_interval);
    EXPECT_EQ(otsu(&floats, -1, 0.75f, 1), 0.75f);  // the upper bound is part of the last interval
}

TEST(calcthresh_otsu, refuses_and_reports) {
    const Array src(u8(1), 5, 4), none(u8(1), 0, 4), wide(s32(1), 5, 4);
    QuelERR err = {};
    const auto refused = [&](const LumoMAT* of, float lower, float upper, int bins, uint32_t code) {
        err = {};
        EXPECT_TRUE(std::isnan(otsu(of, lower, upper, bins, &err)));
        EXPECT_EQ(err.count, 1u);
        EXPECT_EQ(err.last.code, code);
    };
    refused(&wide, 0, 255, 256, QUEL_E_TYPE);
    refused(&none, 0, 255, 256, QUEL_E_TYPE);
    for (const int bins : {0, -1, 65537, INT32_MIN}) refused(&src, 0, 255, bins, QUEL_E_OPTION);
    refused(&src, 3, 3, 256, QUEL_E_OPTION);
    refused(&src, NAN, 3, 256, QUEL_E_OPTION);
    refused(&src, -INFINITY, 3, 256, QUEL_E_OPTION);
    EXPECT_EQ(otsu(&src, 0, FLT_MAX, 65536), otsu(&src, 0, FLT_MAX, 65536));
    each_allocation_failing([&] { return otsu(&src, 0, 255, 256, &(err = {})) == 0 ? 0 : -1; },
                            [&](int64_t) { EXPECT_EQ(err.last.code, uint32_t(QUEL_E_NOMEM)); });
}

// ---- What "threshold" asks of its siblings --------------------------------------------------------------------------

TEST(threshold, with_a_plain_method_hands_the_region_and_the_specifications_on) {
    Array src(u8(1), 20, 10), dst(u8(1), 20, 10), small(u8(1), 6, 3);
    TarnTHRSPEC s[3] = {spec(TARN_GREATER, 5), spec(TARN_GREATER, 6), spec(TARN_GREATER, 9)};
    Spies spied;
    EXPECT_EQ(spied(&dst, &src, nullptr, nullptr, 3, s), "imm 20x10+0 =9");
    EXPECT_EQ(spied(&dst, nullptr, nullptr, nullptr, 1, s), "imm 20x10+0 =5");
    const LumoRECT region = {5, 2, 50, 8}, elsewhere = {20, 0, 30, 10};
    EXPECT_EQ(spied(&dst, &src, &region, nullptr, 1, s), "imm 15x6+45 =5");
    EXPECT_EQ(spied(&small, &src, &region, nullptr, 1, s), "imm 6x3+45 =5");
    EXPECT_EQ(spied(&small, &src, nullptr, nullptr, 1, s), "imm 6x3+0 =5");
    EXPECT_EQ(spied(&dst, &src, &elsewhere, nullptr, 1, s), "");
    Array none(u8(1), 0, 10);
    EXPECT_EQ(spied(&none, &src, nullptr, nullptr, 1, s), "");
    const TarnTHROPTIONS other = {77, {}};
    Spies::answer = 5;
    EXPECT_EQ(spied(&dst, &src, nullptr, &other, 1, s, 5), "imm 20x10+0 =5");
    Spies::answer = -3;
    EXPECT_EQ(spied(&dst, &src, nullptr, &other, 1, s, -3), "imm 20x10+0 =5");
}

TEST(threshold, of_otsu_covers_the_region_by_tiles_of_weighted_thresholds) {
    Array src(u8(1), 20, 10), dst(u8(1), 20, 10), floats(f32(1), 20, 10);
    TarnTHRSPEC s[3] = {kBinary, kBinary, kBinary};
    Spies spied;
    const TarnTHROPTIONS plain = otsu_options(0, 0, 0, 0, 77);
    EXPECT_EQ(spied(&dst, &src, nullptr, &plain, 3, s), "otsu 20x10+0 =511, imm 20x10+0 =40");
    EXPECT_EQ(Spies::specs.size(), 2u);
    EXPECT_EQ(s[1].value, 40);
    EXPECT_EQ(s[2].value, 0);
    EXPECT_EQ(spied(&floats, &floats, nullptr, &plain, 1, s), "otsu 20x10+0 =386, imm 20x10+0 =40");
    const LumoRECT region = {5, 2, 15, 9};
    EXPECT_EQ(spied(&dst, &src, &region, &plain, 1, s), "otsu 10x7+45 =511, imm 10x7+45 =40");
    // 10 wide by tiles of 4: 4 and 6; 7 high: 3 and 4.
    const TarnTHROPTIONS tiles = otsu_options(4, 3, 1, 0);
    EXPECT_EQ(spied(&dst, &src, &region, &tiles, 1, s),
              "otsu 4x3+45 =511, imm 4x3+45 =40, otsu 6x3+49 =511, imm 6x3+49 =40, "
              "otsu 4x4+105 =511, imm 4x4+105 =40, otsu 6x4+109 =511, imm 6x4+109 =40");
    const TarnTHROPTIONS mixed = otsu_options(100, 100, 1, 3, 80);
    EXPECT_EQ(spied(&dst, &src, &region, &mixed, 1, s), "otsu 10x7+45 =511, imm 10x7+45 =70");
    const TarnTHROPTIONS given = otsu_options(0, 0, 0, 3, 80);
    EXPECT_EQ(spied(&dst, &src, &region, &given, 1, s), "imm 10x7+45 =80");
    TarnTHROPTIONS bounds = tiles;
    bounds.of.otsu.lower = -4, bounds.of.otsu.upper = 6, bounds.of.otsu.bins = 5, bounds.of.otsu.width = 10;
    EXPECT_EQ(spied(&dst, &src, &region, &bounds, 0, s),
              "otsu 10x3+45 =15, imm 10x3+45 =0, otsu 10x4+105 =15, imm 10x4+105 =0");
    bounds.of.otsu.lower = TARN_THRESHOLD_COMPUTE;
    EXPECT_EQ(spied(&dst, &src, &region, &bounds, 0, s),
              "otsu 10x3+45 =511, imm 10x3+45 =0, otsu 10x4+105 =511, imm 10x4+105 =0");
    // A sibling that fails ends it.
    Spies::answer = -9;
    EXPECT_EQ(spied(&dst, &src, &region, &tiles, 1, s, -9), "otsu 4x3+45 =511, imm 4x3+45 =40");
    Spies::threshold = NAN;
    EXPECT_EQ(spied(&dst, &src, &region, &tiles, 1, s, -1), "otsu 4x3+45 =511");
}

TEST(threshold, by_neighbourhoods_filters_and_compares_with_copies_of_the_specifications) {
    Array src(u8(1), 20, 10), dst(u8(1), 20, 10);
    TarnTHRSPEC s[2] = {spec(TARN_GREATER, 5), spec(TARN_LESS, 6)};
    const TarnTHROPTIONS o = adaptive_options(1, 2, 3, 5), large = adaptive_options(30, 2, 41, 51);
    const LumoRECT region = {5, 2, 15, 9};
    Spies spied;
    EXPECT_EQ(spied(&dst, &src, &region, &o, 2, s), "filter 20x10+0 =3, adapt 10x7+45 =3.40282e+38");
    EXPECT_EQ(Spies::filtered, &dst);
    EXPECT_EQ(Spies::mask.anchor_y, 2u);
    EXPECT_EQ(Spies::mask.height, 5u);
    EXPECT_EQ(Spies::specs[0].reference, &dst);
    EXPECT_EQ(Spies::specs[1].comparison, uint32_t(TARN_LESS));
    EXPECT_EQ(s[0].value, 5);
    EXPECT_EQ(s[0].reference, nullptr);
    EXPECT_EQ(spied(&dst, nullptr, &region, &large, 1, s), "filter 20x10+0 =3, adapt 10x7+45 =3.40282e+38");
    EXPECT_NE(Spies::filtered, &dst);  // a temporary
    EXPECT_EQ(Spies::mask.width, 10u);
    EXPECT_EQ(Spies::mask.anchor_x, 9u);
    EXPECT_EQ(Spies::mask.height, 7u);
    Spies::answer = -5;
    EXPECT_EQ(spied(&dst, &src, &region, &o, 2, s, -5), "filter 20x10+0 =3, adapt 10x7+45 =3.40282e+38");
    Spies::answer = -105;
    EXPECT_EQ(spied(&dst, &src, &region, &o, 2, s, -105), "filter 20x10+0 =3");
    // More specifications than memory could hold.
    Spies::answer = 0;
    EXPECT_EQ(spied(&dst, &src, &region, &o, UINT64_MAX / 8, s, -1), "filter 20x10+0 =3");
}

TEST(threshold, refuses_options_out_of_range_and_writes_nothing) {
    Array src(u8(1), 20, 10), dst(u8(1), 20, 10);
    TarnTHRSPEC s = kBinary;
    struct Row {
        TarnTHROPTIONS options;
        const char* text;
    };
    Spies spied;
    for (const Row& r : {Row{adaptive_options(0, 0, 2, 5), "@thopts(.mtho_selshape.sel_size)"},
                         Row{adaptive_options(0, 0, 5, -1), "@thopts(.mtho_selshape.sel_size)"},
                         Row{adaptive_options(3, 0, 3, 3), "@options(.mtho_selshape.sel_anchor)"},
                         Row{adaptive_options(0, -1, 3, 3), "@options(.mtho_selshape.sel_anchor)"},
                         Row{otsu_options(2, 9, 1, 1), "@options(.mtho_ksize)"},
                         Row{otsu_options(9, 2, 1, 0), "@options(.mtho_ksize)"}}) {
        QuelERR err = {};
        EXPECT_EQ(spied(&dst, &src, nullptr, &r.options, 1, &s, -1, &err), "");
        expect_error(-1, err, QUEL_E_OPTION, QUEL_C_ARGUMENT, r.text);
    }
}

// ---- The whole ------------------------------------------------------------------------------------------------------

TEST(threshold, through_the_companion_is_what_its_parts_are) {
    Array src = Array(u8(1), 40, 30, 5).filled(3), dst(u8(1), 40, 30), want(u8(1), 40, 30), means(u8(1), 40, 30);
    const auto threshold = [&](LumoMAT* to, const LumoMAT* from, const TarnTHROPTIONS* o, TarnTHRSPEC s) {
        return run<TarnThreshold>("threshold", to, from, static_cast<const LumoRECT*>(nullptr), o, uint64_t(1), &s);
    };
    TarnTHRSPEC s = kBinary;
    const TarnTHROPTIONS plain = otsu_options(0, 0, 0, 0);
    EXPECT_EQ(threshold(&dst, &src, &plain, s), 0);
    s.value = otsu(&src, 0, 255, 256);
    EXPECT_EQ(threshold(&want, &src, nullptr, s), 0);
    EXPECT_TRUE(dst.same_pixels(want));

    const TarnTHROPTIONS o = adaptive_options(3, 4, 7, 9);
    const TarnMASK mask = {3, 4, 7, 9};
    s.offset = -4;
    EXPECT_EQ(threshold(&dst, &src, &o, s), 0);
    EXPECT_EQ(run<TarnFilter>("filter", &means, &src, static_cast<const LumoRECT*>(nullptr), uint32_t(3), &mask), 0);
    for (int y = 0; y < 30; ++y)
        for (int x = 0; x < 40; ++x)
            want.at<uint8_t>(x, y) = src.at<uint8_t>(x, y) > means.at<uint8_t>(x, y) - 4 ? 255 : 0;
    EXPECT_TRUE(dst.same_pixels(want));
    Array same = src;
    EXPECT_EQ(threshold(&same, nullptr, &o, s), 0);
    EXPECT_TRUE(same.same_pixels(want));

    // Memory: nothing is kept and, of the destination, nothing is half done.
    QuelERR err;
    each_allocation_failing(
        [&] {
            err = {};
            same.memory.assign(src.memory.begin(), src.memory.end());
            return call<TarnThreshold>("threshold", &err, nullptr, &same, static_cast<const LumoMAT*>(nullptr),
                                       static_cast<const LumoRECT*>(nullptr), &o, uint64_t(1), &s);
        },
        [&](int64_t result) {
            EXPECT_EQ(result, -1);
            EXPECT_NE(err.status, 0u);
            EXPECT_TRUE(same.same_pixels(src));
        });
}

TEST(threshold, without_the_companion_says_who_lacks) {
    const auto folder = std::filesystem::path(testing::TempDir()) / "alone";
    std::filesystem::create_directories(folder);
    std::filesystem::copy_file(TARN_MODULE_FILE, folder / "tarn-ipp.so",
                               std::filesystem::copy_options::overwrite_existing);
    QuelERR err = {};
    QuelHOST* alone = QuelHOSTopen(&err);
    ASSERT_EQ(QuelHOSTload(alone, (folder / "tarn-ipp.so").c_str(), &err), 0) << err.last.text;
    QuelOP op;
    ASSERT_EQ(QuelHOSTfind(alone, "threshold", &op, &err), 0);
    Array dst = Array(u8(1), 9, 9).filled(1);
    const Array before = dst;
    QuelCALL unrouted = op.call;  // by a host that leaves the module's table as it is
    unrouted.iface = QuelHOSTiface(alone);
    for (const auto& [call, words] : {std::pair(&op.call, "tarn-c"), std::pair(&unrouted, "no loaded module serves")})
        for (const TarnTHROPTIONS& o : {otsu_options(0, 0, 0, 0), adaptive_options(1, 1, 3, 3), TarnTHROPTIONS{}}) {
            err = {};
            TarnTHRSPEC s = kBinary;
            const auto threshold = reinterpret_cast<TarnThreshold>(op.entry);
            EXPECT_EQ(threshold(call, &err, nullptr, &dst, nullptr, nullptr, &o, 1, &s), -1);
            EXPECT_EQ(err.last.code, uint32_t(QUEL_E_UNSERVED));
            EXPECT_NE(std::string(err.last.text).find(words), std::string::npos) << err.last.text;
        }
    EXPECT_TRUE(dst.same_pixels(before));
    QuelHOSTclose(alone);
    std::filesystem::remove_all(folder);
}
