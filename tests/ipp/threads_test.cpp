// Calls on different arrays from several threads at once give what they give alone.
#include <thread>

#include "ipp/fixture.h"

using namespace tarn::test;

TEST(threads, distinct_calls_at_once_do_not_disturb_each_other) {
    const auto results = [](unsigned seed) {
        std::vector<std::vector<uint8_t>> all;
        const Array src = Array(u8(3), 97, 61, 5).filled(seed), other = Array(u8(3), 97, 61).filled(seed + 1);
        for (uint32_t mode = TARN_NEAREST; mode <= TARN_LANCZOS; ++mode) {
            Array small(u8(3), 41, 80), deep(f32(3), 41, 80);
            run<TarnScaleResize>("scaleresize", &small, &src, nullptr, nullptr, mode);
            run<TarnScaleResize>("scaleresize", &deep, &src, nullptr, nullptr, mode);
            all.push_back(small.pixels());
            all.push_back(deep.pixels());
        }
        Array mean(u8(3), 97, 61);
        const LumoMAT* sources[] = {&src, &other};
        run<TarnArithN>("avgarith_n", &mean, 2, sources);
        all.push_back(mean.pixels());
        return all;
    };
    constexpr unsigned kThreads = 4;
    std::vector<std::vector<std::vector<uint8_t>>> alone, together(kThreads);
    for (unsigned i = 0; i < kThreads; ++i) alone.push_back(results(i));
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < kThreads; ++i)
        threads.emplace_back([&, i] {
            for (int repeat = 0; repeat < 20; ++repeat) {
                EXPECT_EQ(run<TarnOnce>("init-once"), 0);  // beside the calls of the others
                together[i] = results(i);
            }
        });
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(together, alone);
}
