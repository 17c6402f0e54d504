// What a mistyped word may have meant.
#ifndef TARN_TOOLS_WORDS_H
#define TARN_TOOLS_WORDS_H

#include <string>
#include <vector>

namespace tarn::tool {

// The candidate that a word begins, or that few slips of typing make of it; empty when none is near, or two are.
std::string nearest_word(const std::string& word, const std::vector<std::string>& candidates);

}  // namespace tarn::tool
#endif
