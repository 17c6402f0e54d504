// Whether a module keeps its promises to hosts, one line each.
#include "check.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "error.h"
#include "options.h"
#include "play/play.h"

namespace tarn::tool {
namespace {
// The calls of a seed have numbers of their own.
constexpr int kSeedShift = 40, kMostSeeds = (1 << 24) - 1;

struct Options {
    std::string module;
    std::string calls_text = "150", seed_text = "1";
    uint64_t calls = 0, seed = 0;
    bool json = false;
};

struct Verdict {
    enum { kept, broken, unknown } what = kept;
    std::string text;
};

void levels_promise(const std::string& path, Trial& trial) {
    trial.step("loading it");
    if (!play::load(path.c_str()).empty()) return trial.unknown("the host can't load it");
    std::string all;
    for (const std::string& level : play::levels()) all += (all.empty() ? "" : ", ") + level;
    if (all.empty())
        return trial.unknown("it can't be told one: the library has no symbol table; take it as the build made it");
    trial.seen(all);
}

// Calls at level 0 in the default float state, and again at another level, in another float state, from other places,
// with each allocation failing in turn.
void operation_promise(const Options& options, const play::Operation& operation, Trial& trial) {
    trial.step("loading it");
    if (!play::load(options.module.c_str()).empty()) return trial.unknown("not called: the host can't load the module");
    if (!play::implemented(operation)) return;
    uint64_t plays = 0;
    for (uint64_t n = 0; n < options.calls; ++n) {
        const std::string call = "call " + std::to_string(n) + " of seed " + std::to_string(options.seed);
        trial.step(call);
        const uint64_t begins = (options.seed << kSeedShift) + n * 2 + 1;
        std::vector<uint32_t> choices;
        const std::string what = wrong(operation, play::draw_setting(begins), choices, begins + 1, &plays);
        if (!what.empty()) return trial.fault(call + ": " + what);
    }
    trial.seen(std::to_string(options.calls) + " calls, " + std::to_string(plays) + " times");
}

// Runs the trial in a process of its own. None when it has nothing to tell: the module does not have what is promised.
std::optional<Verdict> outcome_of(const Promise& promise) {
    int ends[2];
    if (pipe(ends)) fail("check", "no pipe: " + system_reason(errno));
    std::cout.flush();
    const pid_t child = fork();
    if (child < 0) fail("check", "no process: " + system_reason(errno));
    if (!child) {
        // What the module or the C library prints is not the report.
        const int nowhere = open("/dev/null", O_RDWR);
        for (int i = 0; i < 3; ++i) dup2(nowhere, i);
        close(ends[0]);
        alarm(60);
        Trial trial(ends[1]);
        promise.attempt(trial);
        trial.step("");
        _exit(0);
    }
    close(ends[1]);
    std::string told;
    char part[4096];
    for (ssize_t n; (n = read(ends[0], part, sizeof part)) != 0;)
        if (n > 0)
            told.append(part, size_t(n));
        else if (errno != EINTR)
            break;
    close(ends[0]);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;

    Verdict verdict;
    std::string doing = "starting", seen;
    size_t faults = 0;
    for (size_t from = 0, to; (to = told.find('\n', from)) != std::string::npos; from = to + 1) {
        const std::string text = told.substr(from + 1, to - from - 1);
        const char kind = told[from];
        if (kind == '@') doing = text;
        if (kind == '+') seen += (seen.empty() ? "" : "; ") + text;
        if (kind == '?') verdict = {Verdict::unknown, text};
        if (kind == '-' && ++faults <= 4) verdict = {Verdict::broken, (faults > 1 ? verdict.text + "; " : "") + text};
    }
    if (faults > 4) verdict.text += "; and " + std::to_string(faults - 4) + " more";
    if (!doing.empty()) {
        const std::string how = WIFSIGNALED(status) ? strsignal(WTERMSIG(status)) : "exit";
        verdict = {Verdict::broken,
                   (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM ? "takes too long, "
                                                                       : "ended the process (" + how + "), ") +
                       doing};
    }
    if (verdict.what == Verdict::kept) {
        if (seen.empty()) return {};
        verdict.text = seen;
    }
    return verdict;
}

// Begins this process again with the libKa whose allocations can be counted and made to fail.
void watch_memory() {
    if (play::watches_memory()) return;
    namespace fs = std::filesystem;
    const std::string missing = "check/libKa, which it watches memory with, is not there";
    Dl_info ka;
    if (!dladdr(reinterpret_cast<const void*>(&KaSMEMSTGopen), &ka)) fail("check", missing);
    const fs::path file(ka.dli_fname);
    for (const char* folder : {"check", "tarn/check"}) {
        const fs::path there = file.parent_path() / folder;
        std::error_code failed;
        if (!fs::exists(there / file.filename(), failed)) continue;
        const char* before = std::getenv("LD_LIBRARY_PATH");
        const std::string path = there.string() + (before && *before ? ":" + std::string(before) : "");
        if (before && std::string(before).starts_with(there.string())) break;  // tried, and not found
        setenv("LD_LIBRARY_PATH", path.c_str(), 1);
        std::ifstream words("/proc/self/cmdline", std::ios::binary);
        std::vector<std::string> line;
        for (std::string word; std::getline(words, word, '\0');) line.push_back(word);
        std::vector<char*> pointers;
        for (std::string& word : line) pointers.push_back(word.data());
        pointers.push_back(nullptr);
        execv("/proc/self/exe", pointers.data());
        fail("check", "can't begin again: " + system_reason(errno));
    }
    fail("check", missing, "install the program whole");
}

void run_check(Options options) {
    namespace fs = std::filesystem;
    std::error_code failed;
    const fs::path path = fs::canonical(options.module, failed);
    if (failed || !fs::is_regular_file(path, failed))
        fail(options.module, "is no file", "give a module's library, such as tarn-ipp.so");
    watch_memory();
    const std::string subject = options.module;
    options.module = path.string();

    std::vector<Promise> promises = frame_promises(options.module);
    promises.push_back({"levels", [&](Trial& trial) { levels_promise(options.module, trial); }});
    for (const play::Operation& operation : play::kOperations)
        promises.push_back({operation.name, [&](Trial& trial) { operation_promise(options, operation, trial); }, true});

    static constexpr const char* kWords[] = {"kept", "BROKEN", "unknown"};
    size_t counts[3] = {};
    nlohmann::ordered_json all = nlohmann::ordered_json::array();
    for (const Promise& promise : promises) {
        const auto verdict = outcome_of(promise);
        if (!verdict) continue;
        const std::string word = kWords[verdict->what];
        ++counts[verdict->what];
        // A module that can't be loaded is told once.
        const bool called = verdict->what != Verdict::unknown || !promise.operation;
        const std::string name = called ? promise.name : "operations";
        all.push_back({{"promise", name},
                       {"kept", verdict->what == Verdict::kept     ? nlohmann::ordered_json(true)
                                : verdict->what == Verdict::broken ? nlohmann::ordered_json(false)
                                                                   : nullptr},
                       {"text", verdict->text}});
        if (!options.json) {
            char head[40];
            std::snprintf(head, sizeof head, "%-8s %-16s ", word.c_str(), name.c_str());
            std::cout << head << verdict->text << std::endl;
        }
        if (!called) break;
    }
    if (options.json) print_json({{"module", options.module}, {"promises", all}, {"broken", counts[1]}});
    if (counts[1])
        fail(subject,
             "breaks " + std::to_string(counts[1]) + " of " + std::to_string(counts[0] + counts[1]) + " promises",
             "see what was printed");
}
}  // namespace

void Trial::send(char kind, std::string text) {
    for (char& c : text)
        if (static_cast<unsigned char>(c) < 0x20) c = ' ';
    text = kind + text.substr(0, 2000) + "\n";
    if (pipe_ >= 0 && write(pipe_, text.data(), text.size()) < 0) _exit(1);
}

Run setup_check(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    add_option(app, "MODULE", options->module, "the module's library").type_name("").required();
    add_option(app, "--calls", options->calls_text, "random calls of each operation (default: 150)").type_name("N");
    add_option(app, "--seed", options->seed_text, "other calls (default: 1)").type_name("N");
    add_json(app, options->json);
    return [options] {
        options->calls = uint64_t(parse_integer(options->calls_text, "--calls", 1, 1000000000));
        options->seed = uint64_t(parse_integer(options->seed_text, "--seed", 0, kMostSeeds));
        run_check(*options);
    };
}

}  // namespace tarn::tool
