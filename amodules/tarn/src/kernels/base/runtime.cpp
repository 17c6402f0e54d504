// The choice of the processor level. Compiled for the baseline processor.
#include "kernels/base/runtime.h"

namespace tarn::k {

int active_level = 0;
int active_sublevel = 0;
int64_t stream_bytes = int64_t(15) << 20;

#define TARN_LEVEL_NAME(level, ...) #level,
const char* const kLevelNames[kLevelCount] = {TARN_LEVELS(TARN_LEVEL_NAME)};
#undef TARN_LEVEL_NAME

uint64_t features_of(const Identity& id) {
    const auto has = [](uint32_t word, auto... bits) { return (... && (word >> bits & 1)); };
    uint64_t mask = 0;
    if (has(id.leaf1_c, 9)) mask |= kFeatureSsse3;
    if (has(id.leaf1_c, 19, 20)) mask |= kFeatureSse42;
    if (has(id.leaf1_c, 23)) mask |= kFeaturePopcnt;
    // FMA, MOVBE, AVX and F16C above all that the levels below have; BMI1, AVX2 and BMI2; LZCNT.
    const bool v3 = has(id.leaf1_c, 9, 19, 20, 23) && has(id.leaf1_c, 12, 22, 28, 29) && has(id.leaf7_b, 3, 5, 8) &&
                    has(id.extended_c, 5) && (id.enabled_state & 0x6) == 0x6;
    if (v3) mask |= kFeatureV3;
    // Level 4's code uses level 3's instructions too.
    if (v3 && has(id.leaf7_b, 16, 17, 28)) mask |= kFeatureAvx512a;
    if (v3 && has(id.leaf7_b, 30, 31)) mask |= kFeatureAvx512b;
    return mask;
}

Level choose_level(uint64_t mask, bool wide_state) {
    const uint64_t avx512 = kFeatureAvx512a | kFeatureAvx512b;
    if ((mask & avx512) == avx512 && wide_state) return {4, 0};
    if (mask & kFeatureV3) return {3, 0};
    if (mask & kFeatureSse42) return {2, mask & kFeaturePopcnt ? 1 : 0};
    // POPCNT without SSE4.2 gives no level of its own.
    return {mask & kFeatureSsse3 ? 1 : 0, 0};
}

// Calls of kernels read these: another choice of the same level beside them must not write.
static void settle(int* level, int chosen) {
    if (__atomic_load_n(level, __ATOMIC_RELAXED) != chosen) __atomic_store_n(level, chosen, __ATOMIC_RELAXED);
}

Status select_level() {
    uint64_t mask = 0;
    const Level chosen = read_features(&mask) ? choose_level(mask, wide_state_enabled()) : Level{0, 0};
    settle(&active_level, chosen.level);
    settle(&active_sublevel, chosen.sublevel);
    return kOk;  // the kernels keep no state that could fail to be prepared
}

}  // namespace tarn::k
