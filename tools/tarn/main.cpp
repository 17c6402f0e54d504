// The program `tarn`: real picture files in, an operation of the module, real picture files out.
#include <cstdio>
#include <iostream>

#include "commands.h"
#include "error.h"
#include "output.h"

namespace {
using namespace tarn::tool;

// CLI11's complaint in the program's own form.
[[noreturn]] void bad_command_line(const CLI::App& app, const CLI::ParseError& error) {
    const auto used = app.get_subcommands();
    const std::string command = used.empty() ? "" : used[0]->get_name();
    const std::string see = "see `tarn help" + (command.empty() ? "" : " " + command) + "`";
    const std::string text = error.what();
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
    CLI::App app("Image-processing operations of the module tarn-ipp on PNG, JPEG and TIFF pictures.", "tarn");
    app.set_version_flag("--version", "tarn " TARN_VERSION);
    app.require_subcommand(0, 1);
    app.set_help_flag("-h,--help", "print this help");
    app.footer(
        "Pictures: 8- and 16-bit PNG, 8-bit JPEG, 8-, 16-, 32-bit and float TIFF; grey or RGB, with or without alpha.\n"
        "The alpha channel is worked on by itself. Orientation tags are not applied and metadata are not copied.\n"
        "Several: commands that make one picture of one take more, or a folder, with --out-dir. Pipes: - and "
        "--format.\n"
        "Environment: TARN_MODULE names another module library.\n"
        "Exit status: 0 done, 1 the work failed, 2 the command line is wrong.");
    Run chosen;
    for (const Command& command : commands()) {
        CLI::App* sub = app.add_subcommand(command.name, command.summary);
        sub->footer(help_footer(command));
        sub->set_help_flag("-h,--help", "print this help");
        sub->callback([&chosen, run = command.setup(*sub)] { chosen = run; });
    }
    if (argc > 1 && argv[1][0] != '-' && !find_command(argv[1]))
        usage(argv[1], "is not a command", "`tarn help` lists them");
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& wanted) {  // help and version
        app.exit(wanted, std::cout, std::cerr);
        chosen = [] {};
    } catch (const CLI::ParseError& error) {
        bad_command_line(app, error);
    }
    if (!chosen) usage("command line", "the command is missing", "`tarn help` lists them");
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
