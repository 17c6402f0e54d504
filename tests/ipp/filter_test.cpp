// "tarn::filter" through the module.
#include <algorithm>

#include "ipp/fixture.h"

using namespace tarn::test;

namespace {

constexpr TarnMASK kDefault = {1, 1, 3, 3};

int64_t filter(LumoMAT* dst, const LumoMAT* src, const LumoRECT* region, uint32_t kind, const TarnMASK* mask,
               QuelERR* err = nullptr, KaSMEMSTG* storage = nullptr) {
    return call<TarnFilter>("filter", err, storage, dst, src, region, kind, mask);
}

// What a pixel of the result is: of the region's neighbours in src, or of its own nearest pixels. Of two channels the
// mask counts pairs of pixels.
double filtered(const LumoMAT* src, const LumoRECT& region, uint32_t kind, const TarnMASK& m, bool neighbours, int x,
                int y, int c) {
    const int pixels = (src->elemtype >> 12 & 15) == 2 ? 2 : 1;
    const int units = (region.right - region.left) / pixels, rows = region.bottom - region.top;
    std::vector<double> window;
    for (int j = 0; j < int(m.height); ++j)
        for (int i = 0; i < int(m.width); ++i) {
            int u = x / pixels - int(m.anchor_x) + i, v = y - int(m.anchor_y) + j;
            if (!neighbours) u = std::clamp(u, 0, units - 1), v = std::clamp(v, 0, rows - 1);
            window.push_back(get(src, region.left + u * pixels + x % pixels, region.top + v, c));
        }
    std::sort(window.begin(), window.end());
    double sum = 0;
    for (const double v : window) sum += v;
    return kind == TARN_FILTER_MIN      ? window.front()
           : kind == TARN_FILTER_MAX    ? window.back()
           : kind == TARN_FILTER_MEDIAN ? window[(window.size() - 1) / 2]
                                        : sum / double(window.size());
}

// The module's table with spies in the places of the copies that a filter makes its temporary by.
struct Spies {
    static inline std::vector<std::string> seen;
    static inline int64_t answer;
    static inline TarnBORDER border;
    static int64_t copy(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage, LumoMAT* dst, const LumoMAT* src) {
        seen.push_back("copy");
        const int64_t result = reinterpret_cast<TarnCopy>(find("copy").entry)(call, err, storage, dst, src);
        return answer ? answer : result;
    }
    static int64_t copymkb(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage, LumoMAT* dst, const LumoMAT* src,
                           uint32_t kind, const TarnBORDER* b) {
        seen.push_back("copymkb " + std::to_string(kind));
        border = *b;
        const int64_t result =
            reinterpret_cast<TarnCopymkb>(find("copymkb").entry)(call, err, storage, dst, src, kind, b);
        return answer ? answer : result;
    }
    Spies() {
        const QuelOP op = find("filter");
        table = *op.call.iface;
        table.slots[57].entry = reinterpret_cast<QuelENTRY>(copy);
        table.slots[58].entry = reinterpret_cast<QuelENTRY>(copymkb);
        entry = reinterpret_cast<TarnFilter>(op.entry);
        record = op.call;
        record.iface = &table;
        seen.clear(), answer = 0;
    }
    int64_t operator()(LumoMAT* dst, const LumoMAT* src, const LumoRECT* region, const TarnMASK* mask) {
        seen.clear();
        return entry(&record, nullptr, nullptr, dst, src, region, TARN_FILTER_MAX, mask);
    }
    QuelIFACE table;
    QuelCALL record;
    TarnFilter entry;
};

}  // namespace

TEST(filter, of_every_kind_type_and_form_takes_the_pixels_under_the_mask) {
    struct Row {
        LumoRECT region;
        TarnMASK mask;
        bool neighbours;  // where src has them
    };
    const Row rows[] = {{{0, 0, 21, 13}, {1, 1, 3, 3}, false},  {{5, 4, 14, 9}, {1, 1, 3, 3}, true},
                        {{8, 4, 13, 9}, {3, 0, 4, 2}, true},    {{7, 3, 14, 11}, {0, 2, 2, 5}, false},
                        {{12, 0, 21, 13}, {2, 1, 5, 3}, false}, {{3, 3, 4, 5}, {30, 8, 50, 9}, false},
                        {{13, 4, 21, 9}, {0, 1, 1, 3}, false}};
    for (const uint32_t kind : {2, 3, 4, 5, 6})
        each_type({LUMO_U8, LUMO_S16, LUMO_F32}, {1, 2, 3, 4}, [&](LumoELEMTYPE type) {
            if (kind == TARN_FILTER_MEDIAN && (type & 0xf00) == (LUMO_F32 & 0xf00)) return;
            for (const Row& r : rows) {
                const int width = r.region.right - r.region.left, height = r.region.bottom - r.region.top;
                if (width == 1 && (type >> 12) == 2) continue;  // not a pair
                const Array src = Array(type, 21, 13, 5, kind & 1).filled(kind),
                            before = Array(type, width, height, 3).filled(1);
                Array dst = before;
                SCOPED_TRACE(testing::Message() << "kind " << kind << ", " << r.mask.width << " x " << r.mask.height
                                                << " at " << r.region.left);
                EXPECT_EQ(filter(&dst, &src, &r.region, kind, &r.mask), 0);
                const auto value = [&](int x, int y, int c) {
                    return filtered(&src, r.region, kind, r.mask, r.neighbours, x, y, c);
                };
                expect_pixels(dst, before, value, 1e-3);
            }
        });
}

TEST(filter, without_a_mask_is_three_by_three_and_without_a_region_is_everything) {
    const Array src = Array(u8(3), 9, 7).filled(1);
    Array dst(u8(3), 9, 7), want(u8(3), 9, 7);
    const LumoRECT all = {0, 0, 9, 7};
    EXPECT_EQ(filter(&dst, &src, nullptr, TARN_FILTER_MIN, nullptr), 0);
    EXPECT_EQ(filter(&want, &src, &all, TARN_FILTER_MIN, &kDefault), 0);
    EXPECT_TRUE(dst.same_pixels(want));
}

TEST(filter, in_place_and_across_itself_gives_the_pixels_of_a_destination_apart) {
    for (const int channels : {1, 2, 3, 4})
        for (const LumoRECT& region : {LumoRECT{0, 0, 20, 12}, LumoRECT{6, 4, 14, 8}, LumoRECT{1, 0, 14, 8}}) {
            SCOPED_TRACE(testing::Message() << channels << " channels at " << region.left);
            const Array src = Array(s16(channels), 20, 12, 4).filled(3);
            Array null = src, same = src, want = src;
            EXPECT_EQ(filter(&want, &src, &region, TARN_FILTER_MAX, nullptr), 0);
            EXPECT_EQ(filter(&null, nullptr, &region, TARN_FILTER_MAX, nullptr), 0);
            EXPECT_TRUE(null.same_pixels(want));
            EXPECT_EQ(filter(&same, &same, &region, TARN_FILTER_MAX, nullptr), 0);
            EXPECT_TRUE(same.same_pixels(want));
        }
    // To the right and below, where pixels are written before they are read.
    Array whole(u8(1), 20, 12), want(u8(1), 8, 4);
    whole.fill(4);
    const LumoRECT region = {6, 4, 14, 8}, to_the_right = {7, 5, 15, 9};
    EXPECT_EQ(filter(&want, &whole, &region, TARN_FILTER_MAX, nullptr), 0);
    LumoMAT within;
    _LumoMATof(&within, &whole, &to_the_right);
    EXPECT_EQ(filter(&within, &whole, &region, TARN_FILTER_MAX, nullptr), 0);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 8; ++x) EXPECT_EQ(get(&within, x, y), get(&want, x, y));
}

TEST(filter, makes_its_temporary_by_the_tables_copies_and_hands_their_results_on) {
    Array src(u8(1), 20, 20), dst(u8(1), 20, 20);
    src.fill(1);
    const LumoRECT inside = {2, 3, 17, 18}, edge = {1, 3, 17, 18};
    const TarnMASK mask = {0, 2, 2, 3};  // reaches 2 and 2
    const std::vector<std::string> copy = {"copy"}, border = {"copymkb 4"};
    Spies spied;
    EXPECT_EQ(spied(&dst, &src, &inside, &mask), 0);
    EXPECT_TRUE(spied.seen.empty());
    EXPECT_EQ(spied(&dst, nullptr, &inside, &mask), 0);
    EXPECT_EQ(spied.seen, copy);
    EXPECT_EQ(spied(&dst, &src, &edge, &mask), 0);
    EXPECT_EQ(spied.seen, border);
    const TarnMASK wide = {1, 4, 7, 6};
    EXPECT_EQ(spied(&dst, &src, nullptr, &wide), 0);
    EXPECT_EQ(spied.seen, border);
    EXPECT_EQ(spied.border.left, 6);
    EXPECT_EQ(spied.border.top, 4);
    EXPECT_EQ(spied.border.right, 6);
    EXPECT_EQ(spied.border.bottom, 4);

    spied.answer = 7;
    EXPECT_EQ(spied(&dst, &src, &edge, &mask), 7);
    const Array before = dst;
    src.fill(2);
    spied.answer = -5;
    EXPECT_EQ(spied(&dst, &src, &edge, &mask), -5);
    EXPECT_TRUE(dst.same_pixels(before));
}

TEST(filter, refuses_what_it_can_not_do_and_leaves_the_destination) {
    const LumoRECT inside = {3, 3, 8, 8};
    const uint32_t huge = 0x80000000, most = INT32_MAX;
    struct Row {
        const char* what;
        LumoELEMTYPE dst, src;
        uint32_t kind;
        LumoRECT region;
        TarnMASK mask;
    };
    for (const Row& r : {Row{"a median of floats", f32(1), f32(1), 6, inside, kDefault},
                         Row{"s32", s32(1), s32(1), 3, inside, kDefault},
                         Row{"u32", u32(3), u32(3), 4, inside, kDefault},
                         Row{"5 channels", u8(5), u8(5), 3, inside, kDefault},
                         Row{"no channels", LUMO_U8, LUMO_U8, 3, inside, kDefault},
                         Row{"other kinds", u8(1), s16(1), 3, inside, kDefault},
                         Row{"other channels", u8(3), u8(1), 3, inside, kDefault},
                         Row{"mask of width 0", u8(1), u8(1), 3, inside, {0, 1, 0, 3}},
                         Row{"mask of height 0", u8(1), u8(1), 4, inside, {1, 0, 3, 0}},
                         Row{"anchor on the right", u8(1), u8(1), 5, inside, {3, 1, 3, 3}},
                         Row{"anchor below", u8(1), u8(1), 6, inside, {1, 3, 3, 3}},
                         Row{"anchor -1", u8(1), u8(1), 3, inside, {UINT32_MAX, 1, 3, 3}},
                         Row{"anchor beyond", u8(1), u8(1), 3, inside, {most, most, 3, 3}},
                         Row{"mask of 2^31", u8(1), u8(1), 3, inside, {1, 1, huge, huge}},
                         Row{"mask of 2^32 - 1", u8(1), u8(1), 3, inside, {1, 1, UINT32_MAX, 3}},
                         Row{"region on the left", u8(1), u8(1), 3, {-1, 3, 8, 8}, kDefault},
                         Row{"region on the right", u8(1), u8(1), 3, {8, 3, 13, 8}, kDefault},
                         Row{"region outside", u8(1), u8(1), 3, {50, 50, 55, 55}, kDefault},
                         Row{"region of everything", u8(1), u8(1), 3, {INT32_MIN, INT32_MIN, most, most}, kDefault},
                         Row{"empty", u8(1), u8(1), 3, {3, 3, 3, 8}, kDefault},
                         Row{"inside out", u8(1), u8(1), 3, {8, 8, 3, 3}, kDefault},
                         Row{"wider than dst", u8(1), u8(1), 3, {2, 3, 12, 8}, kDefault},
                         Row{"higher than dst", u8(1), u8(1), 3, {3, 2, 8, 12}, kDefault},
                         Row{"half a pair", u8(2), u8(2), 3, {3, 3, 4, 8}, kDefault}}) {
        SCOPED_TRACE(r.what);
        const Array src(r.src, 12, 12, 200);
        Array dst(r.dst, 9, 9, 200);
        expect_refused(dst, kTypesOfBoth,
                       [&](QuelERR* err) { return filter(&dst, &src, &r.region, r.kind, &r.mask, err); });
    }
    const Array none(u8(1), 0, 0);
    Array dst(u8(1), 9, 9);
    for (const uint32_t kind : {0u, 1u, 7u, UINT32_MAX}) {
        QuelERR err = {};
        EXPECT_EQ(filter(&dst, nullptr, nullptr, kind, &kDefault, &err), 0);
        EXPECT_EQ(err.count, 0u);
    }
    EXPECT_TRUE(dst.same_pixels(Array(u8(1), 9, 9)));
    expect_refused(dst, kTypesOfBoth,
                   [&](QuelERR* err) { return filter(&dst, &none, nullptr, TARN_FILTER_BOX, nullptr, err); });
}

TEST(filter, with_any_allocation_failing_says_so_writes_nothing_and_keeps_nothing) {
    const Array src = Array(u8(3), 30, 20).filled(1), before(u8(3), 30, 20);
    Storage storage;
    const TarnMASK mask = {2, 2, 5, 5};
    const LumoRECT inside = {5, 5, 20, 15};
    for (const uint32_t kind : {3, 4, 5, 6})
        for (KaSMEMSTG* given : {static_cast<KaSMEMSTG*>(nullptr), static_cast<KaSMEMSTG*>(&storage)})
            for (const LumoRECT* region : {static_cast<const LumoRECT*>(nullptr), &inside}) {
                Array dst = before;
                QuelERR err;
                int64_t last = -1;
                bool temporary_failed = false;
                const auto once = [&] { return err = {}, last = filter(&dst, &src, region, kind, &mask, &err, given); };
                each_allocation_failing(once, [&](int64_t result) {
                    EXPECT_TRUE(dst.same_pixels(before));
                    temporary_failed |= out_of_memory_of_a_temporary(result, err, "filter");
                });
                EXPECT_EQ(last, 0);
                EXPECT_EQ(temporary_failed, region == nullptr);
                EXPECT_FALSE(dst.same_pixels(before));
            }

    // A border beyond what an array can have.
    for (const TarnMASK& m :
         {TarnMASK{0, 0, INT32_MAX, 1}, TarnMASK{0, 0, 1, INT32_MAX}, TarnMASK{0, 0, 1u << 30, 1}}) {
        Array dst(u8(3), 30, 20);
        QuelERR err = {};
        EXPECT_EQ(filter(&dst, &src, nullptr, TARN_FILTER_BOX, &m, &err), -1);
        EXPECT_EQ(err.count, 0u);
        EXPECT_EQ(err.status >> 16, 0x05e7u);
    }
}

TEST(filter, of_floats_does_not_depend_on_the_callers_rounding_mode) {
    const Array src = Array(f32(1), 17, 13).filled(1);
    expect_rounding_of_its_own(Array(f32(1), 17, 13),
                               [&](LumoMAT* dst) { return filter(dst, &src, nullptr, TARN_FILTER_BOX, nullptr); });
}
