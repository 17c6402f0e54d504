// The commands of the program. A new one is a line in the table of commands.cpp and a function in the source of its
// family.
#ifndef TARN_TOOLS_COMMANDS_H
#define TARN_TOOLS_COMMANDS_H

#include <functional>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

namespace CLI {
class App;
}

namespace tarn::tool {

struct Files;

// A command whose command line was read. Calling it does the work; throws Error.
class Run {
public:
    Run() = default;
    template <class Work>
    requires(!std::is_same_v<Work, Run>) Run(Work work) : work_(std::move(work)) {}
    // Of a command for one picture or for many: one works on that of files.
    template <class Work>
    Run(Work work, Files& files, std::function<void()> one)
        : files(&files), one(std::move(one)), work_(std::move(work)) {}

    explicit operator bool() const { return bool(work_); }
    void operator()() const { work_(); }

    Files* files = nullptr;
    std::function<void()> one;

private:
    std::function<void()> work_;
};

struct Command {
    const char* name;       // sub-command: the qualified name without its family, "::" written "-"
    const char* operation;  // qualified name of the operation; null for commands about the module itself
    const char* summary;    // one line
    const char* arguments;  // the operation's own arguments as the module takes them, destinations first; null when
                            // operation is
    const char* example;
    Run (*setup)(CLI::App& app);  // registers the options and returns what to run with their values
};

std::span<const Command> commands();
// By its name, an alias or its operation's name; null when there is none.
const Command* find_command(const std::string& name);
// Names that a command has beside its own: "resize" for scale-resize.
std::vector<std::string> aliases_of(const Command& command);
// What follows the options in the command's help: the operation's arguments and the example.
std::string help_footer(const Command& command);

// One line on what an operation does, by qualified name; empty for one that is not known.
std::string operation_summary(const std::string& qualified);

// elementwise.cpp
Run setup_copy(CLI::App& app);
Run setup_and(CLI::App& app);
Run setup_or(CLI::App& app);
Run setup_xor(CLI::App& app);
Run setup_not(CLI::App& app);
Run setup_cmp(CLI::App& app);
Run setup_and_c(CLI::App& app);
Run setup_or_c(CLI::App& app);
Run setup_xor_c(CLI::App& app);
Run setup_set(CLI::App& app);
Run setup_cmp_c(CLI::App& app);
Run setup_add_c(CLI::App& app);
Run setup_sub_c(CLI::App& app);
Run setup_mul_c(CLI::App& app);
// lists.cpp
Run setup_add_n(CLI::App& app);
Run setup_sub_n(CLI::App& app);
Run setup_mul_n(CLI::App& app);
Run setup_avgarith_n(CLI::App& app);
// neuronet.cpp
Run setup_neuronet(CLI::App& app);
// geometry.cpp
Run setup_scale_resize(CLI::App& app);
// warps.cpp
Run setup_warp_affine(CLI::App& app);
Run setup_warp_affine_quad(CLI::App& app);
// transform.cpp
Run setup_copy_transform(CLI::App& app);
// filters.cpp
Run setup_copymkb(CLI::App& app);
Run setup_filter(CLI::App& app);
// threshold.cpp
Run setup_threshold(CLI::App& app);
// morphology.cpp
Run setup_morph(CLI::App& app);
// contours.cpp
Run setup_contour_find(CLI::App& app);
// conversion.cpp
Run setup_convert_scale(CLI::App& app);
Run setup_cvtorigin(CLI::App& app);
Run setup_cvtorigin_n(CLI::App& app);
Run setup_cvtvrange_n(CLI::App& app);
Run setup_cvtvrange_v(CLI::App& app);
Run setup_reshape(CLI::App& app);
// statistics.cpp
Run setup_count_in_range(CLI::App& app);
Run setup_mean(CLI::App& app);
Run setup_minmax(CLI::App& app);
// check.cpp
Run setup_check(CLI::App& app);
// selfcheck.cpp
Run setup_selfcheck(CLI::App& app);
// about.cpp
Run setup_ops(CLI::App& app);
Run setup_info(CLI::App& app);
Run setup_help(CLI::App& app);

}  // namespace tarn::tool
#endif
