// Calls from several threads at once give what they give alone: sources that all read, a destination for each.
#include <thread>

#include "ipp/contours_collector.h"

using namespace tarn::test;

namespace {
// What all threads read.
struct Shared {
    Array src = Array(u8(3), 97, 61, 5).filled(1), other = Array(u8(3), 97, 61).filled(2);
    Array weights = Array(f32(1), 97, 8).filled(3), samples = Array(f32(1), 97, 4).filled(4),
          picture = Array(u8(1), 50, 40).filled(5);
};

// An operation of each family.
std::vector<std::vector<uint8_t>> results(const Shared& shared, unsigned seed) {
    std::vector<std::vector<uint8_t>> all;
    const auto keep = [&](int64_t result, const Array& dst) {
        EXPECT_GE(result, 0);
        all.push_back(dst.pixels());
    };
    const LumoMAT *src = &shared.src, *other = &shared.other, *sources[] = {src, other};
    const LumoRECT* const everywhere = nullptr;
    Array small(u8(3), 41, 80), deep(f32(3), 97, 61), same = Array(u8(3), 97, 61).filled(seed);
    for (uint32_t mode = TARN_NEAREST; mode <= TARN_LANCZOS; ++mode) {
        keep(run<TarnScaleResize>("scaleresize", &small, src, nullptr, nullptr, mode), small);
        const LumoAWARP warp = {0.8, 0.3, double(seed), -0.2, 1.1, 5};
        keep(run<TarnWarpAffine>("warpaffine", &deep, src, &warp, mode), deep);
    }
    keep(run<TarnArithN>("avgarith_n", &same, 2, sources), same);
    keep(run<TarnLogic>("xor", &same, src, other), same);
    keep(run<TarnConvertScale>("convscale", &deep, src, nullptr, nullptr), deep);
    const TarnTHRSPEC bright = {TARN_GREATER, TARN_ALL_CHANNELS, 100, 0, nullptr, 250, 0, TARN_KEEP_FAILS, 0};
    keep(run<TarnThresholdImm>("threshold_imm", &same, src, uint64_t(1), &bright), same);  // the companion's
    LumoMAT* const ranged = &same;
    const float range[] = {3, 200};
    keep(run<TarnCvtvrangeN>("cvtvrange_n", uint64_t(1), &ranged, range), same);
    for (const uint32_t kind : {TARN_FILTER_BOX, TARN_FILTER_MIN, TARN_FILTER_MEDIAN}) {
        const TarnMASK mask = {seed % 5, 1, 5, 7};
        keep(run<TarnFilter>("filter", &same, src, everywhere, kind, &mask), same);
    }
    Storage storage;
    LumoMAT state = {};
    const LumoARRAY region = region_of(u8(3), 97, 61);
    call<TarnInitmorphstate>("initmorphstate", nullptr, &storage, &state, uint32_t(TARN_MORPH_ADVANCED), &region,
                             static_cast<const LumoMAT*>(nullptr), static_cast<const TarnANCHOR*>(nullptr));
    LumoMAT* const opened = &same;
    keep(run<TarnMorphopN>("morphop_n", &state, uint32_t(TARN_MORPH_OPEN), int64_t(1), &opened, &src, everywhere),
         same);
    Array out(f32(1), 8, 4);
    static const char kMatrix = 0;
    out.mat.cls = &kMatrix;
    const TarnLayer layer = {&shared.weights, nullptr, TARN_ACTIVATION_SOFTMAX, 0};
    keep(run<TarnMultiLineNeuronet>("mlnn", &out, &shared.samples, uint64_t(1), &layer), out);
    Collector outlines;
    keep(run<TarnContourFind>("tarn::contour::find", &outlines, &shared.picture, 0u), small);
    all.back().push_back(uint8_t(outlines.nodes.size()));
    return all;
}
}  // namespace

TEST(threads, calls_at_once_do_not_disturb_each_other) {
    const Shared shared;
    constexpr unsigned kThreads = 8;
    std::vector<std::vector<std::vector<uint8_t>>> alone, together(kThreads);
    for (unsigned i = 0; i < kThreads; ++i) alone.push_back(results(shared, i));
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < kThreads; ++i)
        threads.emplace_back([&, i] {
            for (int repeat = 0; repeat < 10; ++repeat) {
                EXPECT_EQ(run<TarnOnce>("init-once"), 0);  // beside the calls of the others
                together[i] = results(shared, i);
            }
        });
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(together, alone);
}
