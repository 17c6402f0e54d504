#include "words.h"

#include <algorithm>

namespace tarn::tool {
namespace {
// Letters put in, left out, replaced or swapped with their neighbour (optimal string alignment).
size_t slips(const std::string& a, const std::string& b) {
    std::vector<std::vector<size_t>> d(a.size() + 1, std::vector<size_t>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); ++i)
        for (size_t j = 0; j <= b.size(); ++j) {
            if (!i || !j) {
                d[i][j] = i + j;
                continue;
            }
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + (a[i - 1] != b[j - 1])});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
        }
    return d[a.size()][b.size()];
}
}  // namespace

std::string nearest_word(const std::string& word, const std::vector<std::string>& candidates) {
    std::vector<std::string> begun, near;
    size_t least = std::min<size_t>(word.size(), 9) / 3;  // a third of the letters, three at most
    for (const std::string& candidate : candidates) {
        if (word.size() > 2 && candidate.starts_with(word)) begun.push_back(candidate);
        const size_t distance = slips(word, candidate);
        if (distance > least) continue;
        if (distance < least) near.clear();
        least = distance;
        near.push_back(candidate);
    }
    if (begun.size() == 1) return begun[0];
    return near.size() == 1 ? near[0] : "";
}

}  // namespace tarn::tool
