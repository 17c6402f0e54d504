// The program `tarn`: real picture files in, an operation of the module, real picture files out.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>

#include "batch.h"
#include "call.h"
#include "commands.h"
#include "error.h"
#include "level.h"
#include "options.h"
#include "output.h"
#include "words.h"

namespace {
using namespace tarn::tool;

// Throws for a word that is no command.
[[noreturn]] void unknown_command(const std::string& word) {
    std::vector<std::string> names;
    for (const Command& command : commands()) {
        names.push_back(command.name);
        for (const std::string& alias : aliases_of(command)) names.push_back(alias);
    }
    const std::string meant = nearest_word(word, names);
    if (!meant.empty()) usage(word, "is not a command", "did you mean " + meant + "?");
    bool operation = false;
    std::string none;
    status_of(
        [&] {
            const Module module;
            QuelOP op;
            QuelERR err = {};
            operation = QuelHOSTfind(module.host(), word.c_str(), &op, &err) == 0;
        },
        none);
    if (operation)
        usage(word, "is an operation that has no command of its own", "`tarn help " + word + "` tells about it");
    usage(word, "is not a command", "`tarn help` lists them");
}

// Throws for the first word that looks like an option and is none of the command's: other complaints of the parser
// follow from it.
void blame_unknown_option(const CLI::App& command, const std::string& see, int argc, char** argv) {
    std::vector<std::string> names = {"--then"};
    for (const CLI::Option* option : command.get_options()) {
        for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
        for (const std::string& name : option->get_snames()) names.push_back("-" + name);
    }
    for (int i = 2; i < argc && std::strcmp(argv[i], "--") != 0; ++i) {
        const std::string word(argv[i], std::strcspn(argv[i], "="));
        const bool letter = word.size() == 2 && word[0] == '-' && std::isalpha(static_cast<unsigned char>(word[1]));
        if (!(letter || word.starts_with("--")) || std::count(names.begin(), names.end(), word)) continue;
        const std::string meant = letter ? "" : nearest_word(word, names);
        usage(word, "is not an option of " + command.get_name(),
              meant.empty() ? see : "did you mean " + meant + "? " + see);
    }
}

// CLI11's complaint in the program's own form.
[[noreturn]] void bad_command_line(const CLI::App& app, const CLI::ParseError& error, int argc, char** argv) {
    const auto used = app.get_subcommands();
    const std::string command = used.empty() ? "" : used[0]->get_name();
    const std::string see = "see `tarn help" + (command.empty() ? "" : " " + command) + "`";
    const std::string text = error.what();
    if (!used.empty()) blame_unknown_option(*used[0], see, argc, argv);
    if (const char required[] = " is required"; text.size() > sizeof required && text.ends_with(required))
        usage(text.substr(0, text.size() + 1 - sizeof required), "is missing", see);
    if (dynamic_cast<const CLI::ExtrasError*>(&error)) {
        const std::string extra = text.substr(text.rfind(": ") == std::string::npos ? 0 : text.rfind(": ") + 2);
        usage(extra,
              (extra[0] == '-' ? "is not an option of " : "is too much for ") + (command.empty() ? "tarn" : command),
              see);
    }
    const size_t colon = text.find(": ");  // "--size: 1 required WxH missing"
    if (colon != std::string::npos && text.find(' ') > colon) usage(text.substr(0, colon), text.substr(colon + 2), see);
    usage(command.empty() ? "command line" : command, text, see);
}

// What a command line asks for.
struct Parsed {
    std::unique_ptr<CLI::App> app;
    Run run;
    std::string command;
    bool makes_picture = false;
};

// Reads a command line: of a step that takes the picture of the one before, or leaves one for the next, which not every
// command does.
Parsed parse(int argc, char** argv, bool takes = false, bool leaves = false) {
    Parsed parsed;
    parsed.app = std::make_unique<CLI::App>(
        "Image-processing operations of the module tarn-ipp on PNG, JPEG, TIFF and PNM pictures.", "tarn");
    CLI::App& app = *parsed.app;
    app.set_version_flag("-V,--version", "tarn " TARN_VERSION);
    app.require_subcommand(0, 1);
    app.set_help_flag("-h,--help", "print this help");
    app.footer(
        "Pictures: PNG of up to 16 bits, 8-bit JPEG, TIFF of up to 32 bits and float, PGM, PPM and PFM; grey or RGB, "
        "with or without alpha.\n"
        "The alpha channel is worked on by itself. Orientation tags are followed, colour profile and resolution are "
        "carried over, other metadata are not.\n"
        "Several: commands that make one picture of one take more, or a folder, with --out-dir. Pipes: - and "
        "--format.\n"
        "Steps: tarn resize a.png --size 640x480 --then filter --kind median --size 3x3 -o b.png hands the picture on "
        "in memory.\n"
        "Environment: TARN_MODULE names another module library, TARN_LEVEL a processor level as --level does.\n"
        "Exit status: 0 done, 1 the work failed, 2 the command line is wrong.");
    const Command* const named = argc > 1 && argv[1][0] != '-' ? find_command(argv[1]) : nullptr;
    if (argc > 1 && argv[1][0] != '-' && !named) unknown_command(argv[1]);
    const bool all = !named || std::strcmp(named->name, "help") == 0;
    std::string level;
    for (const Command& command : commands()) {
        if (!all && &command != named) continue;
        CLI::App* sub = app.add_subcommand(command.name, command.summary);
        // Options are many, and take longer to make than to read.
        if (std::none_of(argv + 1, argv + argc, [&](const char* word) { return find_command(word) == &command; }))
            continue;
        sub->footer(help_footer(command));
        sub->set_help_flag("-h,--help", "print this help");
        sub->callback([&parsed, run = command.setup(*sub)] { parsed.run = run; });
        sub->add_option("--level", level, "processor level to run at, as `tarn info` names them (default: the highest)")
            ->type_name("NAME");
    }
    std::vector<char*> words(argv, argv + argc);
    if (named) {
        words[1] = const_cast<char*>(named->name);
        parsed.command = named->name;
        const CLI::App* sub = app.get_subcommand(named->name);
        parsed.makes_picture = sub->get_option_no_throw("--quality");
        if (takes && !sub->get_option_no_throw("--autorotate"))
            usage(parsed.command, "takes no picture", "begin with it");
        if (leaves && !parsed.makes_picture) usage(parsed.command, "makes no picture", "end with it");
    }
    try {
        app.parse(argc, words.data());
    } catch (const CLI::Success& wanted) {  // help and version
        app.exit(wanted, std::cout, std::cerr);
        parsed.run = [] {};
    } catch (const CLI::ParseError& error) {
        bad_command_line(app, error, argc, argv);
    }
    if (!parsed.run) usage("command line", "the command is missing", "`tarn help` lists them");
    if (!level.empty()) want_level(level);
    return parsed;
}

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
