// All that depends on the processor and on what the operating system has enabled of it.
#include "kernels/base/runtime.h"

#if defined(__x86_64__) || defined(_M_X64)
#include <cpuid.h>
#include <xmmintrin.h>

namespace tarn::k {
namespace {

struct Cpuid {
    uint32_t a, b, c, d;
};

bool cpuid(uint32_t leaf, uint32_t subleaf, Cpuid* out) {
    return __get_cpuid_count(leaf, subleaf, &out->a, &out->b, &out->c, &out->d) != 0;
}

bool bit(uint32_t word, int n) { return word >> n & 1; }

// Register state that the operating system saves on a task switch; 0 when it can't tell.
uint64_t enabled_state() {
    Cpuid l1;
    if (!cpuid(1, 0, &l1) || !bit(l1.c, 27)) return 0;  // OSXSAVE
    uint32_t low, high;
    __asm__ volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    return uint64_t(high) << 32 | low;
}

}  // namespace

bool wide_state_enabled() { return (enabled_state() & 0xe6) == 0xe6; }  // SSE, AVX, mask, upper and high 512-bit state

bool read_features(uint64_t* mask) {
    Cpuid l1;
    if (!cpuid(1, 0, &l1)) return false;
    uint64_t m = 0;
    if (bit(l1.c, 9)) m |= kFeatureSsse3;
    if (bit(l1.c, 19) && bit(l1.c, 20)) m |= kFeatureSse42;
    if (bit(l1.c, 23)) m |= kFeaturePopcnt;
    Cpuid l7, ext;
    if (cpuid(7, 0, &l7) && cpuid(0x80000001, 0, &ext)) {
        const bool fma = bit(l1.c, 12), movbe = bit(l1.c, 22), avx = bit(l1.c, 28), f16c = bit(l1.c, 29);
        const bool bmi1 = bit(l7.b, 3), avx2 = bit(l7.b, 5), bmi2 = bit(l7.b, 8), lzcnt = bit(ext.c, 5);
        const bool state256 = (enabled_state() & 0x6) == 0x6;
        if (fma && movbe && avx && f16c && bmi1 && avx2 && bmi2 && lzcnt && state256) m |= kFeatureV3;
        // Level 4's code uses level 3's instructions too.
        const bool v3 = m & kFeatureV3;
        if (v3 && bit(l7.b, 16) && bit(l7.b, 17) && bit(l7.b, 28)) m |= kFeatureAvx512a;
        if (v3 && bit(l7.b, 30) && bit(l7.b, 31)) m |= kFeatureAvx512b;
    }
    *mask = m;
    return true;
}

uint32_t set_float_state() {
    const uint32_t state = _mm_getcsr();
    const uint32_t wanted = 0x1f80;  // nearest, denormals kept, every exception masked
    if ((state & 0xffc0) != wanted) _mm_setcsr(wanted);
    return state;
}

void restore_float_state(uint32_t state) {
    if ((state & 0xffc0) != 0x1f80) _mm_setcsr(state);
}

}  // namespace tarn::k

#else  // the portable build: one real level, the float unit in its default state

namespace tarn::k {
bool wide_state_enabled() { return false; }
bool read_features(uint64_t*) { return false; }
uint32_t set_float_state() { return 0; }
void restore_float_state(uint32_t) {}
}  // namespace tarn::k

#endif
