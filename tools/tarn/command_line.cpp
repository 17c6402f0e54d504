#include "command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <cstring>
#include <iostream>

#include "call.h"
#include "error.h"
#include "level.h"
#include "words.h"

namespace tarn::tool {

Option Option::required(bool whether) const {
    option_->required(whether);
    return *this;
}

Option Option::type_name(const char* name) const {
    option_->type_name(name);
    return *this;
}

Option Option::expected(size_t least, size_t most) const {
    option_->expected(static_cast<int>(least), most ? static_cast<int>(most) : CLI::detail::expected_max_vector_size);
    return *this;
}

Option Option::one_each() const {
    option_->allow_extra_args(false);
    return *this;
}

Option add_option(CLI::App& app, const char* names, std::string& value, const std::string& text) {
    return Option(app.add_option(names, value, text));
}

Option add_option(CLI::App& app, const char* names, std::vector<std::string>& values, const std::string& text) {
    return Option(app.add_option(names, values, text));
}

void add_flag(CLI::App& app, const char* names, bool& value, const char* text) { app.add_flag(names, value, text); }

std::string help_text(CLI::App& command, const std::string& of) {
    CLI::App& program = *command.get_parent();
    if (!of.empty()) return program.get_subcommand(of)->help("tarn");
    program.clear();  // else it would be the help of the command that was chosen
    return program.help();
}

Run parse_words(const Command& command, const std::vector<std::string>& words) {
    CLI::App app;
    const Run run = command.setup(app);
    app.parse(std::vector<std::string>(words.rbegin(), words.rend()));
    return run;
}

namespace {
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

}  // namespace

Parsed parse(int argc, char** argv, bool takes, bool leaves) {
    Parsed parsed;
    parsed.app = std::make_shared<CLI::App>(
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
        add_option(*sub, "--level", level,
                   "processor level to run at, as `tarn info` names them (default: the highest)")
            .type_name("NAME");
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

}  // namespace tarn::tool
