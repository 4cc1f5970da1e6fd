// The command line as data. Only command_line.cpp, which passes it to the parser, includes the parser's
// headers, which take ten seconds to compile.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace qiven::command_line {

// The variable that an option sets. A vector takes several values.
using Target =
    std::variant<bool *, double *, std::string *, std::optional<std::string> *, std::optional<double> *,
                 std::optional<uint32_t> *, std::optional<uint64_t> *, std::vector<uint32_t> *,
                 std::vector<std::string> *, std::function<void(const std::string &)>>;

struct Option {
    const char *szNames;  // "-v,--verbose"; "HEX" for the arguments that are not options
    Target target;
    std::string help;
    const char *szValue = "";  // the name of the value in the help; by its type if empty
    const char *szGroup = "";
    std::vector<std::string> choices = {};
    std::optional<std::pair<double, double>> range = {};
    std::string (*pfnCheck)(const std::string &value) = nullptr;  // returns the fault of the value
    const char *szExcludes = "";                                  // the name of an earlier option
    bool blPositive = false;
    bool blCommas = false;  // several values, separated by commas or by repeating the option
    bool blShowDefault = false;
};

struct Subcommand {
    const char *szHelp;
    std::vector<Option> options;
    std::function<int()> run;  // its result is the exit status (exit_status.h)
    const char *szFooter = "";
};

}  // namespace qiven::command_line
