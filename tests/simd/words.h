// What the checks of the vector words report, from each level's namespace.
#pragma once

namespace tarn::test {

// Told of each word once: the first wrong element (of a word over memory: byte), what it was and should have been; or one
// of these.
using WordResult = void(void* context, const char* word, int wrong, double got, double wanted);
inline constexpr int kRight = -1, kAbsent = -2;

}  // namespace tarn::test
