// The processor levels, lowest first; a level's position is its index in every kernel's table. Each level's kernels are
// compiled with that level's machine flags into that level's namespace (tarn::k::avx2 and so on).
#pragma once

#define TARN_LEVELS(X, ...) \
    X(sse2, __VA_ARGS__) X(ssse3, __VA_ARGS__) X(sse42, __VA_ARGS__) X(avx2, __VA_ARGS__) X(avx512, __VA_ARGS__)

namespace tarn::k {

#define TARN_COUNT_LEVEL(level, ...) +1
inline constexpr int kLevelCount = 0 TARN_LEVELS(TARN_COUNT_LEVEL);
#undef TARN_COUNT_LEVEL

// The level that every kernel call uses. 0 until init-once has run; written there only (tests set it to try each
// level).
extern int active_level;

}  // namespace tarn::k
