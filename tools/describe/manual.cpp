// Fills in the lists of a manual page.
#include <fmt/format.h>

#include <cstdio>
#include <iostream>

#include "command.h"

namespace qiven::describe {

namespace {

// Longer lists of choices have a section of their own.
constexpr size_t kChoicesInline = 8;

// Characters that are markup in scdoc.
std::string Plain(std::string_view text) {
    return Escape(text, "\\*_");
}

std::string Term(const ShownOption &option) {
    std::string term;
    for (const std::string &name : option.names)
        term += fmt::format("{}*{}*", term.empty() ? "" : ", ", name);
    if (option.takes == Takes::kNothing) return term;
    return fmt::format("{}{}_{}_", term, term.empty() ? "" : " ", Plain(option.value));
}

void WriteOption(const ShownOption &option) {
    fmt::print("{}\n\t{}.", Term(option), Plain(option.help));
    if (option.choices.size() > kChoicesInline) {
        fmt::print(" The names are those of FIELDS, below.");
    } else if (!option.choices.empty()) {
        fmt::print(" One of: {}.", Plain(fmt::format("{}", fmt::join(option.choices, ", "))));
    }
    if (!option.standard.empty()) fmt::print(" Default: {}.", Plain(option.standard));
    if (option.blList) fmt::print(" Several values: separated by commas, or the option again.");
    for (const std::string &other : option.excludes)
        fmt::print(" Not together with *{}*.", other);
    fmt::print("\n\n");
}

void WriteOptions(const Command &command) {
    std::string group = "Options";
    for (const ShownOption &option : command.options)
        if (option.group == group) WriteOption(option);
    for (const ShownOption &option : command.options) {
        if (option.group == "Options") continue;
        if (option.group != group) fmt::print("## {}\n\n", option.group);
        group = option.group;
        WriteOption(option);
    }
}

void WriteFields(const Command &command) {
    for (const ShownOption &option : command.options) {
        if (option.choices.size() <= kChoicesInline) continue;
        fmt::print("{}\n", Plain(fmt::format("{}", fmt::join(option.choices, ", "))));
        return;
    }
}

void WriteCommands(const std::vector<Command> &commands) {
    for (const Command &command : commands)
        if (!command.name.empty()) fmt::print("*qiven-{}*(1)\n\t{}.\n\n", command.name, Plain(command.help));
}

}  // namespace

void WriteManual(const std::vector<Command> &commands, const Command &command) {
    for (std::string line; std::getline(std::cin, line);) {
        if (line == "@OPTIONS@") {
            WriteOptions(command);
        } else if (line == "@FIELDS@") {
            WriteFields(command);
        } else if (line == "@COMMANDS@") {
            WriteCommands(commands);
        } else {
            fmt::print("{}\n", line);
        }
    }
}

}  // namespace qiven::describe
