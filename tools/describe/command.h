// The command line, for the writers of completions and manual pages.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qiven::describe {

// The kind of value that an option takes, if a shell can complete it.
enum class Takes { kNothing, kText, kFile, kInterface, kChoice };

struct ShownOption {
    std::vector<std::string> names;  // "-v", "--verbose"; empty if positional
    std::string value;               // the name of the value in the help: "FILE"
    std::string help, group, standard;
    std::vector<std::string> choices;
    std::vector<std::string> excludes;
    Takes takes = Takes::kNothing;
    bool blRepeats = false;
    bool blList = false;  // several values at once, separated by commas
};

struct Command {
    std::string name;  // empty for qiven itself
    std::string help;
    std::vector<ShownOption> options;
};

// The command itself first, then its subcommands.
std::vector<Command> Commands();

// The text with a backslash before each of the characters.
std::string Escape(std::string_view text, std::string_view characters);
// The text in single quotes, for a Bourne shell.
std::string Quote(std::string_view text);

void WriteBash(const std::vector<Command> &commands);
void WriteZsh(const std::vector<Command> &commands);
void WriteFish(const std::vector<Command> &commands);
// Copies a page from standard input; "@OPTIONS@", "@FIELDS@" and "@COMMANDS@" are replaced by lists.
void WriteManual(const std::vector<Command> &commands, const Command &command);

}  // namespace qiven::describe
