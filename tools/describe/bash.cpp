// The completion for bash.
#include <fmt/format.h>

#include "command.h"

namespace qiven::describe {

namespace {

constexpr char kHead[] = R"(# bash completion of qiven
_qiven() {
    local cur=${COMP_WORDS[COMP_CWORD]} option=${COMP_WORDS[COMP_CWORD - 1]} command='' word words=''
    # "=" is a word of its own.
    if [[ $cur == '=' ]]; then
        cur=''
    elif [[ $option == '=' ]]; then
        option=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        [[ $word == -* ]] || { command=$word; break; }
    done
    COMPREPLY=()
    case "$command $option" in
)";
constexpr char kMiddle[] = R"(        *) option='' ;;
    esac
    if [[ -z $option ]]; then
        case $command in
)";
constexpr char kTail[] = R"(        esac
    fi
    # Of a list, the last element is what is being typed.
    local before=${cur%"${cur##*,}"}
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "${cur##*,}")
    # The name of an interface can be a command; the shell expands what stands on the line.
    for word in "${!COMPREPLY[@]}"; do
        printf -v "COMPREPLY[$word]" '%s%q' "$before" "${COMPREPLY[word]}"
    done
}
complete -F _qiven qiven
)";

std::string Action(const ShownOption &option) {
    switch (option.takes) {
        case Takes::kChoice:
            return fmt::format("words={}", Quote(fmt::format("{}", fmt::join(option.choices, " "))));
        case Takes::kInterface:
            // compgen expands its words: a name must stay one word.
            return "words=$(builtin cd /sys/class/net && printf '%q ' *)";
        case Takes::kFile:
            return "compopt -o filenames 2>/dev/null; mapfile -t COMPREPLY < <(compgen -f -- \"$cur\"); "
                   "return";
        case Takes::kText:
        case Takes::kNothing:
            break;
    }
    return "return";
}

void WriteValues(const Command &command) {
    for (const ShownOption &option : command.options)
        for (const std::string &name : option.names)
            if (option.takes != Takes::kNothing)
                fmt::print("        {}) {} ;;\n", Quote(command.name + " " + name), Action(option));
}

void WriteNames(const std::vector<Command> &commands, const Command &command) {
    std::string words;
    for (const ShownOption &option : command.options)
        for (const std::string &name : option.names)
            words += (words.empty() ? "" : " ") + name;
    if (command.name.empty())
        for (const Command &sub : commands)
            if (!sub.name.empty()) words += " " + sub.name;
    fmt::print("            {}) words={} ;;\n", Quote(command.name), Quote(words));
}

}  // namespace

void WriteBash(const std::vector<Command> &commands) {
    fmt::print("{}", kHead);
    for (const Command &command : commands)
        WriteValues(command);
    fmt::print("{}", kMiddle);
    for (const Command &command : commands)
        WriteNames(commands, command);
    fmt::print("{}", kTail);
}

}  // namespace qiven::describe
