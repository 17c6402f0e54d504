// The words of the vector vocabulary: each against a plain expression, at every level (simd/words.cpp), and none without.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "kernels/base/runtime.h"
#include "simd/words.h"

#define DECLARE(level, ...)                                          \
    namespace tarn::k::level {                                       \
    void check_words(tarn::test::WordResult* result, void* context); \
    }
TARN_LEVELS(DECLARE)
DECLARE(portable)

namespace {

using tarn::test::WordResult;

struct Level {
    std::string name;
    void (*check)(WordResult* result, void* context);
    std::set<std::string> words = {};  // that it has
    std::set<std::string> lines = {};  // of all words
};

// All levels that this machine has, checked.
const std::map<std::string, Level>& levels() {
    static const auto all = [] {
        std::vector<Level> some;
#define LEVEL(level, ...) some.push_back({#level, tarn::k::level::check_words});
        TARN_LEVELS(LEVEL)
        tarn::k::select_level();
        some.resize(size_t(tarn::k::active_level) + 1);
        LEVEL(portable)
        std::map<std::string, Level> checked;
        for (Level& level : some) {
            level.check(
                [](void* context, const char* word, int wrong, double got, double wanted) {
                    Level& of = *static_cast<Level*>(context);
                    of.lines.insert(word);
                    if (wrong != tarn::test::kAbsent) of.words.insert(word);
                    if (wrong >= 0)
                        ADD_FAILURE() << word << " at level " << of.name << ": element " << wrong << " is " << got
                                      << ", not " << wanted;
                },
                &level);
            checked[level.name] = level;
        }
        return checked;
    }();
    return all;
}

// A word's name and parameter types without spaces; of a template (in a header: with types of one letter) the name and
// how many parameters there are.
std::string key_of(const std::string& word, bool is_template) {
    const std::string plain = std::regex_replace(word, std::regex(R"(\s|<\w+>(?=\()|TARN_RESTRICT)"), "");
    if (!is_template) return plain;
    return plain.substr(0, plain.find('(')) + " of " + std::to_string(std::count(plain.begin(), plain.end(), ','));
}

// The functions of a header.
std::set<std::string> functions_of(const std::filesystem::path& header) {
    std::ostringstream all;
    all << std::ifstream(header).rdbuf();
    const std::string text = all.str();
    static const std::regex function(R"(\n(?:\[\[[^\n]*\]\] )?(?:inline )?\w[\w<>]*[ &*]+(\w+\([^;{}]*?\)) \{)");
    static const std::regex parameter_name(R"(\w+(\)?(?:\[\d+\])?)(?: = [^,()]*)?(,|\)$))");
    static const std::regex type_parameter(R"(\b[A-Z]\b)");
    std::set<std::string> keys;
    for (std::sregex_iterator match(text.begin(), text.end(), function), end; match != end; ++match) {
        const std::string word = std::regex_replace((*match)[1].str(), parameter_name, "$1$2");
        keys.insert(key_of(word, std::regex_search(word, type_parameter)));
    }
    return keys;
}

// What words are made of, and, last, words that the comparisons and fills alone have a use for, whose cases try them.
const std::set<std::string> kParts = {"lanewise of 2",
                                      "interleave(Bytes,Bytes,int)",
                                      "narrow_halves(Vec<From>,Vec<From>,From,From)",
                                      "first_bytes(int64_t)",
                                      "widened of 0",
                                      "widening_add(U8,U8,int)",
                                      "mul_add_each(F32,F32,F32)",
                                      "mul_add_in_double(F32,F32,F32)",
                                      "streams(int64_t)",
                                      "deal_groups3 of 2",
                                      "deinterleave3 of 2",
                                      "store_lanes(void*,uint64_t,Bytes)"};

}  // namespace

TEST(simd, words_give_what_their_plain_expressions_give) { EXPECT_GE(levels().size(), 2u); }

TEST(simd, every_word_has_a_line_and_every_line_a_word) {
    const std::map<std::string, std::string> level_of = {
        {"portable.h", "portable"}, {"x86_16.h", "sse42"}, {"x86_32.h", "avx2"}, {"x86_64.h", "avx512"}};
    std::set<std::string> functions;
    for (const auto& entry : std::filesystem::directory_iterator(TARN_SIMD)) {
        const std::string header = entry.path().filename();
        const std::set<std::string> here = functions_of(entry.path());
        functions.insert(here.begin(), here.end());
        const auto level = level_of.find(header);
        if (level != level_of.end() && !levels().count(level->second)) {
            std::printf("%s skipped: this machine lacks the level\n", header.c_str());
            continue;
        }
        std::set<std::string> checked;
        for (const auto& [name, of] : levels())
            if (level == level_of.end() || name == level->second)
                for (const std::string& word : of.words) checked.insert({key_of(word, false), key_of(word, true)});
        for (const std::string& word : here)
            EXPECT_TRUE(checked.count(word) || kParts.count(word))
                << header << ": " << word << " has no line in words.cpp";
    }
    for (const std::string& line : levels().at("portable").lines)
        EXPECT_TRUE(functions.count(key_of(line, false)) || functions.count(key_of(line, true)))
            << "words.cpp: no header has " << line;
}
