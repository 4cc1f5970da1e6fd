// The completion for zsh.
#include <fmt/format.h>

#include "command.h"

namespace qiven::describe {

namespace {

constexpr char kHead[] = R"(#compdef qiven
_qiven() {
    local context state state_descr line
    local -A opt_args
    local -a interfaces=(/sys/class/net/*(N:t))
)";
constexpr char kRest[] = R"(        '1:command:->command' '*::argument:->argument' && return
    if [[ $state == command ]]; then
        local -a commands=(
)";
constexpr char kCase[] = R"(        )
        _describe command commands
        return
    fi
    case $words[1] in
)";

std::string Action(const ShownOption &option) {
    const std::string choices = fmt::format("{}", fmt::join(option.choices, " "));
    switch (option.takes) {
        case Takes::kChoice:
            return option.blList ? fmt::format("_values -s , {} {}", option.value, choices)
                                 : "(" + choices + ")";
        case Takes::kInterface:
            return "_sequence compadd -a interfaces";
        case Takes::kFile:
            return "_files";
        case Takes::kText:
        case Takes::kNothing:
            break;
    }
    return " ";
}

std::string Spec(const ShownOption &option, const std::string &name) {
    const std::string value = option.value + ":" + Action(option);
    if (name.empty()) return "'*:" + value + "'";
    const bool blLong = name.starts_with("--");
    const bool blValue = option.takes != Takes::kNothing;
    return Quote(fmt::format("{}{}{}[{}]{}", option.blRepeats ? "*" : "", name, blLong && blValue ? "=" : "",
                             Escape(option.help, "[]:\\"), blValue ? ":" + value : ""));
}

void WriteArguments(const Command &command) {
    for (const ShownOption &option : command.options) {
        for (const std::string &name : option.names)
            fmt::print("        {} \\\n", Spec(option, name));
        if (option.names.empty()) fmt::print("        {} \\\n", Spec(option, ""));
    }
}

}  // namespace

void WriteZsh(const std::vector<Command> &commands) {
    fmt::print("{}    _arguments -C \\\n", kHead);
    WriteArguments(commands.front());
    fmt::print("{}", kRest);
    for (const Command &command : commands)
        if (!command.name.empty()) fmt::print("            {}\n", Quote(command.name + ":" + command.help));
    fmt::print("{}", kCase);
    for (const Command &command : commands) {
        if (command.name.empty()) continue;
        fmt::print("    {}) _arguments \\\n", command.name);
        WriteArguments(command);
        fmt::print("        ;;\n");
    }
    fmt::print("    esac\n}}\n_qiven \"$@\"\n");
}

}  // namespace qiven::describe
