// "tarn::initmorphstate" and "tarn::morphop-n" through the module.
#include <algorithm>

#include "ipp/fixture.h"

using namespace tarn::test;

namespace {

constexpr char kTexts[] = "(@arrvSrc[i](.elem-type, .nchannels), @roi) -> @arrvDst[i](.elem-type, .nchannels)";
constexpr char kOfState[] = "@arr(.elem-type, .nchannels)";
constexpr uint32_t kCentre = TARN_ANCHOR_CENTRE;

// A structuring element of cells given as text, rows behind each other.
Array element(int width, int height, const std::string& cells) {
    Array e(u8(1), width, height, 2);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) e.at<uint8_t>(x, y) = cells[size_t(y * width + x)] == '#' ? 200 : 0;
    return e;
}

int64_t init(LumoMAT* state, uint32_t category, const LumoARRAY& region, const LumoMAT* cells = nullptr,
             const TarnANCHOR* anchor = nullptr, KaSMEMSTG* storage = nullptr, QuelERR* err = nullptr) {
    return call<TarnInitmorphstate>("initmorphstate", err, storage, state, category, &region, cells, anchor);
}
int64_t morph(const LumoMAT* state, uint32_t operation, std::vector<LumoMAT*> dsts, std::vector<const LumoMAT*> srcs,
              const LumoRECT* region = nullptr, QuelERR* err = nullptr, KaSMEMSTG* storage = nullptr) {
    return call<TarnMorphopN>("morphop_n", err, storage, state, operation, int64_t(dsts.size()), dsts.data(),
                              srcs.data(), region);
}

// A state in a storage of its own.
struct State {
    State(uint32_t category, LumoELEMTYPE type, int width, int height, const LumoMAT* cells = nullptr,
          const TarnANCHOR* anchor = nullptr) {
        size = init(&mat, category, region_of(type, width, height), cells, anchor, &storage);
    }
    Storage storage;
    LumoMAT mat = {};
    int64_t size;
    const LumoMAT* operator&() const { return &mat; }
    const uint8_t* begin() const { return static_cast<const uint8_t*>(mat.data); }
};

uint32_t category_of(uint32_t operation) {
    return operation <= TARN_MORPH_DILATE ? TARN_MORPH_BASIC : TARN_MORPH_ADVANCED;
}

// A region's numbers, one operation after the other. Two channels: of pixels that are pairs.
struct Plain {
    int width, height, pair;
    std::vector<double> v;  // channel by channel
    double at(int x, int y) const {
        const int units = width / pair;
        return v[size_t(std::clamp(y, 0, height - 1) * width + std::clamp(x / pair, 0, units - 1) * pair + x % pair)];
    }
    Plain passed(bool dilates, const Array& cells, int ax, int ay) const {
        Plain to = *this;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                double best = NAN;
                for (int j = 0; j < cells.mat.height; ++j)
                    for (int i = 0; i < cells.mat.width; ++i) {
                        if (!cells.at<uint8_t>(i, j)) continue;
                        const int dx = dilates ? ax - i : i - ax, dy = dilates ? ay - j : j - ay;
                        const int unit = std::clamp(x / pair + dx, 0, width / pair - 1);
                        best = dilates ? std::fmax(best, at(unit * pair + x % pair, y + dy))
                                       : std::fmin(best, at(unit * pair + x % pair, y + dy));
                    }
                to.v[size_t(y * width + x)] = best;
            }
        return to;
    }
};

// What an operation makes of one channel of a region.
Plain expected(const LumoMAT* src, const LumoRECT& r, int c, uint32_t operation, const Array& cells, int ax, int ay) {
    Plain source{r.right - r.left, r.bottom - r.top, (src->elemtype >> 12 & 15) == 2 ? 2 : 1, {}};
    source.width -= source.width % source.pair;
    for (int y = r.top; y < r.bottom; ++y)
        for (int x = 0; x < source.width; ++x) source.v.push_back(get(src, r.left + x, y, c));
    const auto pass = [&](const Plain& p, bool dilates) { return p.passed(dilates, cells, ax, ay); };
    const auto less = [](Plain a, const Plain& b) {
        for (size_t i = 0; i < a.v.size(); ++i) a.v[i] = double(float(a.v[i]) - float(b.v[i]));
        return a;
    };
    const Plain eroded = pass(source, false), dilated = pass(source, true);
    switch (operation) {
        case 3:
            return eroded;
        case 4:
            return dilated;
        case 5:
            return pass(eroded, true);
        case 6:
            return pass(dilated, false);
        case 7:
            return less(source, pass(eroded, true));
        case 8:
            return less(pass(dilated, false), source);
        default:
            return less(dilated, eroded);
    }
}

// The module's table with a spy in the place of the copy.
struct Spied {
    static inline int copies;
    static inline int64_t answer;
    static int64_t copy(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage, LumoMAT* dst, const LumoMAT* src) {
        ++copies;
        const int64_t result = reinterpret_cast<TarnCopy>(find("copy").entry)(call, err, storage, dst, src);
        return answer ? answer : result;
    }
    Spied() {
        const QuelOP op = find("morphop_n");
        table = *op.call.iface;
        table.slots[57].entry = reinterpret_cast<QuelENTRY>(copy);
        entry = reinterpret_cast<TarnMorphopN>(op.entry);
        record = op.call;
        record.iface = &table;
        copies = 0, answer = 0;
    }
    int64_t operator()(const LumoMAT* state, std::vector<LumoMAT*> dsts, std::vector<const LumoMAT*> srcs) {
        return entry(&record, nullptr, nullptr, state, TARN_MORPH_OPEN, int64_t(dsts.size()), dsts.data(), srcs.data(),
                     nullptr);
    }
    QuelIFACE table;
    QuelCALL record;
    TarnMorphopN entry;
};

}  // namespace

TEST(morph, of_every_operation_type_and_form_is_what_the_element_says) {
    const Array cells = element(4, 3, ".#.##.####..");
    const TarnANCHOR anchor = {3, 0};
    for (uint32_t operation = TARN_MORPH_ERODE; operation <= TARN_MORPH_GRADIENT; ++operation)
        each_type({LUMO_U8, LUMO_F32}, {1, 2, 3}, [&](LumoELEMTYPE type) {
            for (const LumoRECT& region : {LumoRECT{0, 0, 19, 11}, LumoRECT{4, 3, 17, 9}}) {
                SCOPED_TRACE(testing::Message() << "operation " << operation << " at " << region.left);
                const int width = region.right - region.left, height = region.bottom - region.top;
                const State state(category_of(operation), type, width, height, &cells, &anchor);
                EXPECT_GT(state.size, 0);
                const Array first = Array(type, 19, 11, 5).filled(operation),
                            second = Array(type, 19, 11, 0, true).filled(9);
                const Array before = Array(type, width + 1, height, 4).filled(1);
                Array one = before, two = before;
                EXPECT_EQ(morph(&state, operation, {&one, &two}, {&first, &second}, &region), 0);
                for (const bool last : {false, true}) {
                    std::vector<Plain> want;
                    for (int c = 0; c < one.channels; ++c)
                        want.push_back(expected(last ? &second : &first, region, c, operation, cells, 3, 0));
                    expect_pixels(last ? two : one, before, [&](int x, int y, int c) {
                        const Plain& w = want[size_t(c)];
                        return x < w.width ? w.at(x, y) : get(&before, x, y, c);
                    });
                }
            }
        });
}

TEST(morph, states_are_sized_without_being_made_and_made_where_they_are_to_be) {
    const LumoARRAY region = region_of(u8(3), 30, 20);
    const KaTESTLIVE before = KaTESTlive();
    KaTESTfailnth(1);
    const int64_t size = init(nullptr, TARN_MORPH_ADVANCED, region);
    EXPECT_EQ(KaTESTfailnth(0), 0u);
    EXPECT_EQ(KaTESTlive().blocks, before.blocks);
    const State state(TARN_MORPH_ADVANCED, u8(3), 30, 20);
    EXPECT_EQ(state.size, size);
    EXPECT_EQ(state.mat.width, size);
    EXPECT_EQ(state.mat.height, 1);
    EXPECT_EQ(state.mat.elemtype & 0xff00, u8(1) & 0xff00);

    // Into an array of the caller's, at an odd address; again of another category, which is not looked at but for 3.
    const Array src = Array(u8(3), 30, 20).filled(1);
    Array want(u8(3), 30, 20), dst = want;
    EXPECT_EQ(morph(&state, TARN_MORPH_OPEN, {&want}, {&src}), 0);
    std::vector<uint8_t> memory(size_t(size) + 1);
    LumoMAT own{&own, u8(1), int32_t(size), 1, int32_t(size), memory.data() + 1};
    for (const uint32_t category : {4u, 5u, 77u}) {
        memory.assign(memory.size(), 0);
        EXPECT_EQ(init(&own, category, region), 0);
        EXPECT_EQ(morph(&own, TARN_MORPH_OPEN, {&dst}, {&src}), 0);
        EXPECT_TRUE(dst.same_pixels(want));
    }
    --own.width;
    QuelERR err = {};
    expect_error(init(&own, 4, region, nullptr, nullptr, nullptr, &err), err, QUEL_E_TYPE, QUEL_C_UNSUPPORTED,
                 kOfState);

    // Made for floats, whatever the region's kind is.
    EXPECT_EQ(init(nullptr, TARN_MORPH_FLOATS, region), init(nullptr, TARN_MORPH_ADVANCED, region_of(f32(3), 30, 20)));
    const State floats(TARN_MORPH_FLOATS, u8(3), 30, 20);
    dst.fill(0);
    EXPECT_EQ(morph(&floats, TARN_MORPH_OPEN, {&dst}, {&src}), 0);
    EXPECT_TRUE(dst.same_pixels(want));
}

TEST(morph, an_element_or_an_anchor_that_is_not_given_is_the_middle_of_ones) {
    const Array ones = element(3, 3, "#########"), wide = element(5, 3, std::string(15, '#'));
    // The header and a rectangle's one step; behind them is scratch memory.
    const auto same = [](const State& a, const State& b) {
        return a.size > 0 && a.size == b.size && std::equal(a.begin(), a.begin() + 92, b.begin());
    };
    const TarnANCHOR middle = {1, 1}, of_wide = {2, 1}, centre = {kCentre, kCentre}, half = {2, kCentre}, off = {0, 1};
    EXPECT_TRUE(same(State(3, u8(1), 9, 9), State(3, u8(1), 9, 9, &ones, &middle)));
    EXPECT_TRUE(same(State(3, u8(1), 9, 9, &wide), State(3, u8(1), 9, 9, &wide, &of_wide)));
    EXPECT_TRUE(same(State(3, u8(1), 9, 9, &wide, &centre), State(3, u8(1), 9, 9, &wide, &half)));
    EXPECT_FALSE(same(State(3, u8(1), 9, 9, &wide), State(3, u8(1), 9, 9, &wide, &off)));
}

TEST(morph, in_place_and_across_itself_gives_the_pixels_of_a_destination_apart) {
    for (const int channels : {1, 2, 3}) {
        const Array src = Array(f32(channels), 20, 12, 4).filled(3);
        const State all(4, f32(channels), 20, 12), part(4, f32(channels), 16, 8);
        Array want = src, same = src;
        EXPECT_EQ(morph(&all, TARN_MORPH_OPEN, {&want}, {&src}), 0);
        EXPECT_EQ(morph(&all, TARN_MORPH_OPEN, {&same}, {&same}), 0);
        EXPECT_TRUE(same.same_pixels(want));
        const LumoRECT region = {2, 2, 18, 10};
        Array across = src, clear = src;
        EXPECT_EQ(morph(&part, TARN_MORPH_CLOSE, {&clear}, {&src}, &region), 0);
        EXPECT_EQ(morph(&part, TARN_MORPH_CLOSE, {&across}, {&across}, &region), 0);
        EXPECT_TRUE(across.same_pixels(clear));
    }
    const State state(4, u8(1), 20, 12);
    const Array apart = Array(u8(1), 20, 12).filled(1);
    Array same = apart, dst = apart;
    Spied spied;
    EXPECT_EQ(spied(&state, {&dst, &same, &dst}, {&apart, &same, &apart}), 0);
    EXPECT_EQ(Spied::copies, 1);
    Spied::answer = -7;
    EXPECT_EQ(spied(&state, {&same}, {&same}), -7);
}

TEST(morph, of_no_pictures_does_nothing_and_opens_nothing) {
    QuelERR err = {};
    KaTESTfailnth(1);
    for (const int64_t count : {int64_t(0), int64_t(-1), INT64_MIN})
        EXPECT_EQ(call<TarnMorphopN>("morphop_n", &err, nullptr, nullptr, 99, count, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(KaTESTfailnth(0), 0u);
    EXPECT_EQ(err.count, 0u);
}

TEST(morph, refuses_what_it_can_not_do_and_leaves_the_destination) {
    const LumoRECT inside = {3, 3, 8, 8};
    struct Row {
        const char* what;
        LumoELEMTYPE dst, src;
        uint32_t operation;
        LumoRECT region;
    };
    const State basic(3, u8(1), 5, 5), advanced(4, u8(1), 5, 5);
    for (const Row& r :
         {Row{"s16", s16(1), s16(1), 3, inside}, Row{"u32", u32(1), u32(1), 3, inside},
          Row{"4 channels", u8(4), u8(4), 3, inside}, Row{"no channels", LUMO_U8, LUMO_U8, 3, inside},
          Row{"no kind", 0, 0, 3, inside}, Row{"other kinds", u8(1), f32(1), 3, inside},
          Row{"other channels", u8(1), u8(3), 3, inside}, Row{"operation 2", u8(1), u8(1), 2, inside},
          Row{"operation 10", u8(1), u8(1), 10, inside}, Row{"an operation of two passes", u8(1), u8(1), 5, inside},
          Row{"floats", f32(1), f32(1), 3, inside}, Row{"three channels", u8(3), u8(3), 3, inside},
          Row{"a wider region", u8(1), u8(1), 3, {2, 3, 8, 8}},
          Row{"region on the left", u8(1), u8(1), 3, {-1, 3, 4, 8}},
          Row{"region on the right", u8(1), u8(1), 3, {8, 3, 13, 8}}, Row{"empty", u8(1), u8(1), 3, {3, 3, 3, 8}},
          Row{"everything", u8(1), u8(1), 3, {INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX}},
          Row{"higher than dst", u8(1), u8(1), 3, {3, 2, 8, 12}}}) {
        SCOPED_TRACE(r.what);
        const Array src(r.src, 12, 12, 200);
        Array dst(r.dst, 9, 9, 200);
        expect_refused(dst, kTexts,
                       [&](QuelERR* err) { return morph(&basic, r.operation, {&dst}, {&src}, &r.region, err); });
    }
    const Array src = Array(u8(1), 12, 12).filled(1);
    Array dst(u8(1), 9, 9), other(u8(3), 9, 9);
    const LumoRECT higher = {3, 3, 8, 9};
    for (const auto& [dsts, srcs] :
         {std::pair<std::vector<LumoMAT*>, std::vector<const LumoMAT*>>{{nullptr}, {&src}}, {{&dst}, {nullptr}}})
        expect_refused(dst, kTexts, [&, &dsts = dsts, &srcs = srcs](QuelERR* err) {
            return morph(&basic, 3, dsts, srcs, &inside, err);
        });
    expect_refused(dst, kTexts, [&](QuelERR* err) { return morph(&advanced, 3, {&dst}, {&src}, &inside, err); });
    expect_refused(dst, kTexts, [&](QuelERR* err) { return morph(&advanced, 5, {&dst}, {&src}, &higher, err); });
    // The pictures before the one at fault are done.
    expect_refused(other, kTexts, [&](QuelERR* err) {
        return morph(&basic, 3, {&dst, &other}, {&src, &src}, &inside, err);
    });
    EXPECT_FALSE(dst.same_pixels(Array(u8(1), 9, 9)));
}

TEST(morph, refuses_states_that_are_not_whole) {
    const Array src = Array(u8(1), 40, 30).filled(1);
    Array dst(u8(1), 40, 30);
    const State state(4, u8(1), 40, 30);
    const std::vector<uint8_t> whole(state.begin(), state.begin() + state.size);
    const auto refused = [&](const LumoMAT* mat) {
        expect_refused(dst, kTexts,
                       [&](QuelERR* err) { return morph(mat, TARN_MORPH_OPEN, {&dst}, {&src}, nullptr, err); });
    };
    refused(nullptr);
    LumoMAT empty = {}, unset = state.mat;
    refused(&empty);
    unset.data = nullptr;
    refused(&unset);
    std::mt19937 random(1);
    for (int trial = 0; trial < 200; ++trial) {
        // Cut off: memory ends where the record ends.
        const size_t kept = trial < 100 ? size_t(trial) : random() % (whole.size() - 1);
        std::vector<uint8_t> bytes(whole.begin(), whole.begin() + long(kept));
        LumoMAT cut{&cut, u8(1), int32_t(kept), 1, int32_t(kept), bytes.data()};
        refused(&cut);
        for (uint8_t& b : bytes) b = uint8_t(random());
        refused(&cut);
    }
    // More bytes, in several rows, are fine.
    LumoMAT rows{&rows, u8(1), int32_t(state.size / 2 + 1), 2, int32_t(state.size / 2 + 1), nullptr};
    std::vector<uint8_t> bytes = whole;
    bytes.resize(whole.size() + 2);
    rows.data = bytes.data();
    EXPECT_EQ(morph(&rows, TARN_MORPH_OPEN, {&dst}, {&src}), 0);
}

TEST(morph, states_that_can_not_be_are_refused_or_not_made) {
    const LumoARRAY region = region_of(u8(1), 9, 9);
    const Array cells = element(3, 2, "######"), deep(f32(1), 3, 3), colours(u8(3), 3, 3), none(u8(1), 0, 3);
    Storage storage;
    QuelERR err = {};
    for (const uint32_t category : {0u, 2u, 6u, UINT32_MAX}) {
        LumoMAT state = {};
        err = {};
        // said first, whatever the element is
        expect_error(init(&state, category, region, category ? nullptr : &deep, nullptr, &storage, &err), err,
                     QUEL_E_OPTION, QUEL_C_ARGUMENT, "@morph-category");
        EXPECT_EQ(state.data, nullptr);
    }
    struct Row {
        const char* what;
        LumoARRAY region;
        const LumoMAT* cells;
        TarnANCHOR anchor;
    };
    for (const Row& r :
         {Row{"anchor on the right", region, &cells, {3, 0}}, Row{"anchor below", region, &cells, {0, 2}},
          Row{"anchor at 2^31", region, &cells, {0x80000000, 0}}, Row{"element of floats", region, &deep, {0, 0}},
          Row{"element of colours", region, &colours, {0, 0}}, Row{"no cells", region, &none, {0, 0}},
          Row{"no columns", region_of(u8(1), 0, 9), &cells, {0, 0}},
          Row{"half a pair", region_of(u8(2), 1, 9), &cells, {0, 0}},
          Row{"no rows", region_of(u8(1), 9, 0), &cells, {0, 0}}}) {
        SCOPED_TRACE(r.what);
        const KaTESTLIVE before = KaTESTlive();
        LumoMAT state = {};
        err = {};
        expect_error(init(&state, 4, r.region, r.cells, &r.anchor, &storage, &err), err, QUEL_E_TYPE,
                     QUEL_C_UNSUPPORTED, kOfState);
        EXPECT_EQ(state.cls, nullptr);
        EXPECT_EQ(state.data, nullptr);
        EXPECT_EQ(KaTESTlive().blocks, before.blocks);
    }
    for (const LumoELEMTYPE type : {u8(4), f32(4), s16(1), s32(3), u32(1), u8(0), u8(5)}) {
        LumoMAT state = {};
        EXPECT_EQ(init(&state, 3, region_of(type, 9, 9), nullptr, nullptr, &storage), 0);
        EXPECT_EQ(state.cls, nullptr);
    }
    // No storage to be made in; an element so large that no array could hold the state.
    LumoMAT state = {};
    err = {};
    EXPECT_EQ(init(&state, 3, region, nullptr, nullptr, nullptr, &err), -1);
    EXPECT_EQ(err.count, 0u);
    EXPECT_EQ(err.status >> 16, 0x05e7u);
    Array tall(u8(1), 1, 1 << 20);
    tall.set(uint8_t(1));
    err = {};
    const LumoARRAY large = region_of(f32(1), INT32_MAX, 1);
    EXPECT_GT(init(nullptr, 4, large, &tall), INT32_MAX);
    EXPECT_EQ(init(&state, 4, large, &tall, nullptr, &storage, &err), -1);
    EXPECT_EQ(err.count, 0u);
    EXPECT_EQ(err.status >> 16, 0x05e7u);
    EXPECT_EQ(state.cls, nullptr);
}

TEST(morph, with_any_allocation_failing_says_so_and_keeps_nothing) {
    const LumoARRAY region = region_of(u8(3), 30, 20);
    Storage storage;
    const auto made = [&](QuelERR* err) {
        LumoMAT state = {};
        const int64_t result = init(&state, 4, region, nullptr, nullptr, &storage, err);
        _LumoARRdestroy(&state, &storage);
        return result;
    };
    QuelERR err;
    EXPECT_GT(each_allocation_failing(
                  [&] { return err = {}, made(&err); },
                  [&](int64_t result) { EXPECT_TRUE(out_of_memory_of_a_temporary(result, err, "initmorphstate")); }),
              0);
    const State state(4, u8(3), 30, 20);
    const Array src = Array(u8(3), 30, 20).filled(1);
    for (KaSMEMSTG* given : {static_cast<KaSMEMSTG*>(nullptr), static_cast<KaSMEMSTG*>(&storage)}) {
        Array same = src;
        const auto once = [&] {
            return err = {}, morph(&state, TARN_MORPH_OPEN, {&same}, {&same}, nullptr, &err, given);
        };
        EXPECT_GT(each_allocation_failing(once,
                                          [&](int64_t result) {
                                              EXPECT_TRUE(out_of_memory_of_a_temporary(result, err, "morphop_n"));
                                              EXPECT_TRUE(same.same_pixels(src));
                                          }),
                  0);
        EXPECT_FALSE(same.same_pixels(src));
    }
}

TEST(morph, of_floats_does_not_depend_on_the_callers_rounding_mode) {
    const Array src = Array(f32(1), 17, 13).filled(1);
    const State state(4, f32(1), 17, 13);
    expect_rounding_of_its_own(Array(f32(1), 17, 13),
                               [&](LumoMAT* dst) { return morph(&state, TARN_MORPH_GRADIENT, {dst}, {&src}); });
}
