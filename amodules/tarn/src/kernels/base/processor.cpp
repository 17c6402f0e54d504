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

// Register state that the operating system saves on a task switch; 0 when it can't tell.
uint64_t enabled_state() {
    Cpuid l1;
    if (!cpuid(1, 0, &l1) || !(l1.c >> 27 & 1)) return 0;  // OSXSAVE
    uint32_t low, high;
    __asm__ volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    return uint64_t(high) << 32 | low;
}

}  // namespace

bool wide_state_enabled() { return (enabled_state() & 0xe6) == 0xe6; }  // SSE, AVX, mask, upper and high 512-bit state

bool read_features(uint64_t* mask) {
    Cpuid leaf1, leaf7 = {}, extended = {};
    if (!cpuid(1, 0, &leaf1)) return false;
    if (!cpuid(7, 0, &leaf7) || !cpuid(0x80000001, 0, &extended)) leaf7 = extended = {};
    *mask = features_of({leaf1.c, leaf7.b, extended.c, enabled_state()});
    return true;
}

uint32_t set_float_state() {
    const uint32_t state = _mm_getcsr();
    const uint32_t wanted = 0x1f80;  // nearest, denormals kept, every exception masked
    if ((state & 0xffc0) != wanted) _mm_setcsr(wanted);
    return state;
}

void restore_float_state(uint32_t state) { _mm_setcsr(state); }

}  // namespace tarn::k

#else  // the portable build: one real level; the float unit is left alone

namespace tarn::k {
bool wide_state_enabled() { return false; }
bool read_features(uint64_t*) { return false; }
uint32_t set_float_state() { return 0; }
void restore_float_state(uint32_t) {}
}  // namespace tarn::k

#endif
