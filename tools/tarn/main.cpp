// The program `tarn`: real picture files in, an operation of the module, real picture files out.
#include <cstdio>
#include <cstring>
#include <iostream>

#include "batch.h"
#include "command_line.h"
#include "error.h"
#include "options.h"
#include "output.h"

namespace {
using namespace tarn::tool;

// ---- Steps: one command line after the other, of which each takes the picture that the one before has made ---------

constexpr char kThen[] = "--then";

struct Step {
    std::string title;  // "step 2 (filter)"
    Parsed parsed;
};

void do_step(const Step& step, const std::function<void()>& work) {
    try {
        work();
    } catch (const Error& error) {
        throw Error(error.status, step.title + ": " + error.line);
    }
}

// Reads one of `count` steps: words are its own, the program's name first.
Step parse_step(std::vector<std::string> words, size_t number, size_t count) {
    const auto picture_of = [](size_t step) { return "the picture of step " + std::to_string(step); };
    Step step;
    step.title = "step " + std::to_string(number);
    do_step(step, [&] {
        if (words.size() < 2 || words[1].starts_with("-"))
            usage(kThen, "stands beside no command", "give one before and after it");
    });
    step.title += " (" + words[1] + ")";
    do_step(step, [&] {
        std::vector<std::string> between;
        if (number > 1) between.push_back(picture_of(number - 1));
        if (number < count) {
            for (const std::string& word : words)
                if (word.starts_with("-o") || word.starts_with("--output") || word == "--out-dir")
                    usage(word, "is given, but another step follows", "give it to the last step");
            between.insert(between.begin(), {"-o", picture_of(number)});
            keep_in_memory(picture_of(number));
        }
        words.insert(words.begin() + 2, between.begin(), between.end());
        std::vector<char*> pointers;
        for (std::string& word : words) pointers.push_back(word.data());
        step.parsed = parse(static_cast<int>(pointers.size()), pointers.data(), number > 1, number < count);
        const Parsed& parsed = step.parsed;
        if (number > 1 && parsed.run.files && parsed.run.files->inputs.size() > 1)
            usage(parsed.run.files->inputs[1], "is too much: the step before gives the picture",
                  "give files to the first step");
    });
    return step;
}

void run_steps(const std::vector<std::vector<std::string>>& lines) {
    std::vector<Step> steps;
    for (size_t i = 0; i < lines.size(); ++i) steps.push_back(parse_step(lines[i], i + 1, lines.size()));
    Files *first = steps[0].parsed.run.files, *last = steps.back().parsed.run.files;
    if (last && last->out_dir.empty() && steps.back().parsed.makes_picture)
        do_step(steps.back(), [&] { ImageOutput{*last}; });  // a name that can't be written is told before the work
    if (!first || !last) {
        if (last && !last->out_dir.empty())
            usage("--out-dir", "is given, but " + steps[0].parsed.command + " makes one picture of several",
                  "begin with a command for one");
        for (const Step& step : steps) do_step(step, [&] { step.parsed.run(); });
        return;
    }
    // Of the whole the inputs are those of the first step, all else is of the last.
    Files files = *last;
    files.inputs = first->inputs;
    files.page = first->page;
    each_picture(files, [&] {
        first->inputs = files.inputs;
        first->page = files.page;
        last->output = files.output;
        for (const Step& step : steps)
            do_step(step, [&] { step.parsed.run.files ? step.parsed.run.one() : step.parsed.run(); });
    })();
}

void run(int argc, char** argv) {
    std::vector<std::vector<std::string>> lines(1, {argv[0]});
    for (int i = 1; i < argc; ++i)
        if (std::strcmp(argv[i], kThen) == 0)
            lines.push_back({argv[0]});
        else
            lines.back().push_back(argv[i]);
    if (lines.size() > 1)
        run_steps(lines);
    else
        parse(argc, argv).run();
    if (!std::cout.flush()) fail("standard output", "can't be written", "make room or redirect it elsewhere");
}
}  // namespace

int main(int argc, char** argv) {
    install_signal_handlers();
    std::string line;
    const int status = status_of([&] { run(argc, argv); }, line);
    if (status) std::cerr << "tarn: " << line << "\n";
    return status;
}
