// The completion for fish.
#include <fmt/format.h>

#include "command.h"

namespace qiven::describe {

namespace {

// Inside single quotes, fish accepts a backslash before a quote or a backslash.
std::string FishQuote(std::string_view text) {
    return "'" + Escape(text, "\\'") + "'";
}

std::string Action(const ShownOption &option) {
    const std::string choices = fmt::format("{}", fmt::join(option.choices, " "));
    switch (option.takes) {
        case Takes::kChoice:
            return " -x -a " + FishQuote(option.blList ? "(__fish_append , " + choices + ")" : choices);
        case Takes::kInterface:
            return " -x -a '(__fish_append , (ls /sys/class/net))'";
        case Takes::kFile:
            return " -r -F";
        case Takes::kText:
            return " -x";
        case Takes::kNothing:
            break;
    }
    return "";
}

void WriteOption(const Command &command, const ShownOption &option) {
    if (option.names.empty()) return;
    const std::string when =
        command.name.empty() ? "__fish_use_subcommand" : "__fish_seen_subcommand_from " + command.name;
    std::string names;
    for (const std::string &name : option.names)
        names += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
    fmt::print("complete -c qiven -n {}{}{} -d {}\n", FishQuote(when), names, Action(option),
               FishQuote(option.help));
}

}  // namespace

void WriteFish(const std::vector<Command> &commands) {
    fmt::print("# fish completion of qiven\ncomplete -c qiven -f\n");
    for (const Command &command : commands) {
        if (!command.name.empty())
            fmt::print("complete -c qiven -n __fish_use_subcommand -a {} -d {}\n", command.name,
                       FishQuote(command.help));
        for (const ShownOption &option : command.options)
            WriteOption(command, option);
    }
}

}  // namespace qiven::describe
