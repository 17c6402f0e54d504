// The program `tarn`: real picture files in, an operation of the module, real picture files out.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iostream>

#include "commands.h"
#include "error.h"
#include "level.h"
#include "call.h"
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
    std::vector<std::string> names;
    for (const CLI::Option* option : command.get_options())
        for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
    for (int i = 2; i < argc && std::strcmp(argv[i], "--") != 0; ++i) {
        const std::string word(argv[i], std::strcspn(argv[i], "="));
        if (!word.starts_with("--") || std::count(names.begin(), names.end(), word)) continue;
        const std::string meant = nearest_word(word, names);
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

void run(int argc, char** argv) {
    CLI::App app("Image-processing operations of the module tarn-ipp on PNG, JPEG, TIFF and PNM pictures.", "tarn");
    app.set_version_flag("-V,--version", "tarn " TARN_VERSION);
    app.require_subcommand(0, 1);
    app.set_help_flag("-h,--help", "print this help");
    app.footer(
        "Pictures: PNG of up to 16 bits, 8-bit JPEG, TIFF of up to 32 bits and float, PGM, PPM and PFM; grey or RGB, "
        "with "
        "or without alpha.\n"
        "The alpha channel is worked on by itself. Orientation tags are followed, colour profile and resolution are "
        "carried over, other metadata are not.\n"
        "Several: commands that make one picture of one take more, or a folder, with --out-dir. Pipes: - and "
        "--format.\n"
        "Environment: TARN_MODULE names another module library, TARN_LEVEL a processor level as --level does.\n"
        "Exit status: 0 done, 1 the work failed, 2 the command line is wrong.");
    Run chosen;
    std::string level;
    for (const Command& command : commands()) {
        CLI::App* sub = app.add_subcommand(command.name, command.summary);
        sub->footer(help_footer(command));
        sub->set_help_flag("-h,--help", "print this help");
        sub->callback([&chosen, run = command.setup(*sub)] { chosen = run; });
        sub->add_option("--level", level, "processor level to run at, as `tarn info` names them (default: the highest)")
            ->type_name("NAME");
    }
    std::vector<char*> words(argv, argv + argc);
    if (argc > 1 && argv[1][0] != '-') {
        const Command* command = find_command(argv[1]);
        if (!command) unknown_command(argv[1]);
        words[1] = const_cast<char*>(command->name);
    }
    try {
        app.parse(argc, words.data());
    } catch (const CLI::Success& wanted) {  // help and version
        app.exit(wanted, std::cout, std::cerr);
        chosen = [] {};
    } catch (const CLI::ParseError& error) {
        bad_command_line(app, error, argc, argv);
    }
    if (!chosen) usage("command line", "the command is missing", "`tarn help` lists them");
    want_level(level);
    chosen();
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
