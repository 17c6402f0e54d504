// Command lines and the options of commands. The library that reads them is all headers, which take the compiler longer
// than the rest of the program: command_line.cpp alone includes it.
#ifndef TARN_TOOLS_COMMAND_LINE_H
#define TARN_TOOLS_COMMAND_LINE_H

#include <memory>
#include <string>
#include <vector>

#include "commands.h"

namespace CLI {
class Option;
}

namespace tarn::tool {

// An option that a command was given.
class Option {
public:
    explicit Option(CLI::Option* option) : option_(option) {}
    Option required(bool whether = true) const;
    Option type_name(const char* name) const;          // what the help calls its value; may be empty
    Option expected(size_t least, size_t most) const;  // values; most 0: any number
    Option one_each() const;                           // repeated, it takes one value each time

private:
    CLI::Option* option_;
};

// Names separated by commas: "-o,--output", or one without dashes for an argument. The value must live until it was
// read.
Option add_option(CLI::App& app, const char* names, std::string& value, const std::string& text);
Option add_option(CLI::App& app, const char* names, std::vector<std::string>& values, const std::string& text);
void add_flag(CLI::App& app, const char* names, bool& value, const char* text);

// Help of the program that a command belongs to, or of the command of that name.
std::string help_text(CLI::App& command, const std::string& of);

// What a command line asks for.
struct Parsed {
    std::shared_ptr<CLI::App> app;
    Run run;
    std::string command;
    bool makes_picture = false;
};
// Reads a command line: of a step that takes the picture of the one before, or leaves one for the next, which not every
// command does.
Parsed parse(int argc, char** argv, bool takes = false, bool leaves = false);

// Reads a command's words without its name.
Run parse_words(const Command& command, const std::vector<std::string>& words);

}  // namespace tarn::tool
#endif
