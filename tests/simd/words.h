// What the checks of the vector words report, from each level's namespace.
#pragma once

namespace tarn::test {

// Told of a word's first wrong element (of a word over memory: byte) at a level, what it is and what it should be.
using WrongWord = void(const char* at, const char* word, int element, double got, double wanted);

}  // namespace tarn::test
