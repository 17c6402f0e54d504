// Which processor level the kernels run at: the choice as a pure function, and the part that makes it.
#pragma once

#include <stdint.h>

#include "kernels/base/kernel.h"

namespace tarn::k {

// Bits of the feature mask that the choice looks at.
enum : uint64_t {
    kFeatureSsse3 = 1u << 3,
    kFeatureSse42 = 1u << 4,  // SSE4.1 and SSE4.2
    kFeaturePopcnt = 1u << 5,
    kFeatureV3 = 1u << 6,       // the above, AVX2, FMA, BMI1, BMI2, F16C, LZCNT, MOVBE; the 256-bit state enabled
    kFeatureAvx512a = 1u << 8,  // AVX-512 F, CD, DQ
    kFeatureAvx512b = 1u << 9,  // AVX-512 BW, VL
};

// What the mask is made of: words of the processor's identification (cpuid), and the registers that the operating
// system saves.
struct Identity {
    uint32_t leaf1_c, leaf7_b, extended_c;
    uint64_t enabled_state;
};
uint64_t features_of(const Identity& identity);

// A processor level and the variant flag of level 2, whose code does without POPCNT.
struct Level {
    int level;     // 0..4
    int sublevel;  // 1: level 2 with POPCNT
};

// The level for a feature mask. wide_state: the operating system has enabled the 512-bit and mask registers.
Level choose_level(uint64_t mask, bool wide_state);

// Reads this processor's feature mask. Returns false where it can't be had. (processor.cpp)
bool read_features(uint64_t* mask);
// Whether the operating system has enabled the 512-bit and mask registers. (processor.cpp)
bool wide_state_enabled();

// Chooses this processor's level and sets active_level and active_sublevel. Returns 0. Running it again is harmless,
// beside calls of kernels too.
Status select_level();
extern int active_sublevel;

// Where sources and output have at least so many bytes together, the output is stored around the cache. 15 MiB: half of
// a usual last-level cache, and four bytes a pixel read and written of 1920 x 1080. What is less may well be there
// still when the next operation reads it. Tests set it to 0.
extern int64_t stream_bytes;

// The names of the levels, lowest first: "sse2", "ssse3", ...
extern const char* const kLevelNames[kLevelCount];

// The state of the float unit that float kernels rely on: nearest rounding, denormals kept, exceptions masked. A caller
// may run with another (a library built with fast-math changes it for the threads that load it), so an operation on
// floats sets the default once per call and puts the caller's back. What comes back is all of the state: exception
// flags that kernels raise do not reach the caller, and those that were set stay. (processor.cpp)
uint32_t set_float_state();
void restore_float_state(uint32_t state);

}  // namespace tarn::k
