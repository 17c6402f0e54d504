// Random calls of all operations, judged without knowing what they compute: no operation may write or read elsewhere,
// keep memory, leave the float unit changed, or give other bits at another level, in another float state, from other
// strides and addresses; with an allocation failing it does its work or refuses.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

#include "play/play.h"

namespace {
using namespace tarn::play;

// What was found once; played at the beginning.
struct Found {
    Operation operation;
    Setting setting;
};
std::vector<Found> found;
#define JOINED(a, b) a##b
#define FOUND_AT(name, setting, line)                                                                          \
    void JOINED(found_, line)(Play&, const char*);                                                             \
    const bool JOINED(kept_, line) = (found.push_back({{#name, JOINED(found_, line), false}, setting}), true); \
    void JOINED(found_, line)([[maybe_unused]] Play & p, const char*)
#define FOUND(name, setting) FOUND_AT(name, setting, __LINE__)
#include "fuzz/found.inc"

[[noreturn]] void usage() {
    fprintf(stderr, "usage: fuzz MODULE [--minutes N] [--calls N] [--seed S] [NAME]...\n");
    exit(2);
}

// Names of the table without a body.
bool complete() {
    bool all = true;
    for (const char* name : {
#define SLOT(number, name, ...) name,
#define SERVED SLOT
#define OTHER(...)
#include "ipp/slots.def"
         }) {
        bool has = strstr(name, "_once") != nullptr;
        for (const Operation& operation : kOperations) has |= !strcmp(operation.name, name);
        if (!has) fprintf(stderr, "fuzz: operations.cpp has no line for %s\n", name);
        all &= has;
    }
    return all;
}
}  // namespace

int main(int argc, char** argv) {
    double minutes = 1e9;
    uint64_t calls = UINT64_MAX, seed = 0;
    std::vector<Operation> chosen;
    for (int i = 2; i < argc; ++i) {
        const auto value = [&] { return i + 1 < argc ? argv[++i] : (usage(), nullptr); };
        if (!strcmp(argv[i], "--minutes"))
            minutes = atof(value());
        else if (!strcmp(argv[i], "--calls"))
            calls = strtoull(value(), nullptr, 0);
        else if (!strcmp(argv[i], "--seed"))
            seed = strtoull(value(), nullptr, 0);
        else {
            const size_t before = chosen.size();
            for (const Operation& o : kOperations)
                if (!strcmp(o.name, argv[i])) chosen.push_back(o);
            if (chosen.size() == before) usage();
        }
    }
    if (argc < 2 || !complete()) usage();
    if (calls == UINT64_MAX && minutes > 1e8) minutes = 1;
    if (chosen.empty()) chosen = kOperations;
    const std::string unloaded = load(argv[1]);
    const int highest = int(levels().size()) - 1;
    if (!unloaded.empty() || highest < 0) {
        fprintf(stderr, "fuzz: %s\n", unloaded.empty() ? "the module has no symbol table" : unloaded.c_str());
        return 2;
    }
    const auto begin = std::chrono::steady_clock::now();
    const auto spent = [&] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count(); };
    uint64_t plays = 0, findings = 0;
    for (Found& f : found) {
        std::vector<uint32_t> none;
        f.setting.level = f.setting.level > highest ? highest : f.setting.level;
        const std::string what = wrong(f.operation, f.setting, none, 0, &plays);
        if (what.empty()) continue;
        printf("found again, %s: %s\n", f.operation.name, what.c_str());
        ++findings;
    }
    uint64_t n = 0;
    for (; n < calls && spent() < 60 * minutes && !chosen.empty(); ++n) {
        // The seed and the number of a call make it, whatever came before.
        const uint64_t begins = (seed << 40) + n * 2 + 1;
        std::vector<uint32_t> choices;
        const Operation operation = chosen[std::mt19937_64(begins)() % chosen.size()];
        const Setting setting = draw_setting(begins);
        const std::string what = wrong(operation, setting, choices, begins + 1, &plays);
        if (what.empty()) continue;
        ++findings;
        printf("call %llu of seed %llu, %s: %s\n\nas a test, a line of tests/fuzz/found.inc:\n\n%s\n",
               (unsigned long long)(n), (unsigned long long)(seed), operation.name, what.c_str(),
               shrunk(operation, setting, choices).c_str());
        fflush(stdout);
        std::erase_if(chosen,
                      [&](const Operation& o) { return o.body == operation.body; });  // one finding of each is enough
    }
    printf("seed %llu: %llu calls, played %llu times in %.1f s, %llu findings\n", (unsigned long long)(seed),
           (unsigned long long)(n), (unsigned long long)(plays), spent(), (unsigned long long)(findings));
    return findings ? 1 : 0;
}
