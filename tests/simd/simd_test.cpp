// The words of the vector vocabulary: each against a plain expression, at every level (simd/words.cpp) that this
// machine has, portable, and emulated where the highest is lacking. That none is without: simd/words_test.py.
#include <gtest/gtest.h>

#include <vector>

#include "kernels/base/runtime.h"
#include "simd/words.h"

#define DECLARE(level, ...)                                        \
    namespace tarn::k::level {                                     \
    int check_words(tarn::test::WrongWord* wrong, const char* at); \
    }
TARN_LEVELS(DECLARE)
DECLARE(portable)
#ifdef TARN_EMULATED
DECLARE(emulated)
#endif

TEST(simd, words_give_what_their_plain_expressions_give) {
    struct Level {
        const char* name;
        int (*check)(tarn::test::WrongWord* wrong, const char* at);
    };
    std::vector<Level> levels;
#define LEVEL(level, ...) levels.push_back({#level, tarn::k::level::check_words});
    TARN_LEVELS(LEVEL)
    tarn::k::select_level();
    levels.resize(size_t(tarn::k::active_level) + 1);
    LEVEL(portable)
#ifdef TARN_EMULATED
    LEVEL(emulated)
#endif
    for (const Level& level : levels) {
        const int checked = level.check(
            [](const char* at, const char* word, int element, double got, double wanted) {
                ADD_FAILURE() << word << " at level " << at << ": element " << element << " is " << got << ", not "
                              << wanted;
            },
            level.name);
        EXPECT_GE(checked, 140) << level.name;
    }
}
