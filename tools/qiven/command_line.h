// The command line as data. Only command_line.cpp, which hands it to the parser, sees the parser's headers:
// they take the compiler ten seconds in each file.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace qiven::command_line {

// What an option fills. A vector takes several values.
using Target =
    std::variant<bool *, double *, std::string *, std::optional<std::string> *, std::optional<double> *,
                 std::optional<uint32_t> *, std::optional<uint64_t> *, std::vector<uint32_t> *,
                 std::vector<std::string> *, std::function<void(const std::string &)>>;

struct Option {
    const char *szNames;  // "-v,--verbose"; "HEX" for arguments that belong to no option
    Target target;
    std::string help;
    const char *szValue = "";  // what the help calls the value; by its type if empty
    const char *szGroup = "";
    std::vector<std::string> choices = {};
    std::optional<std::pair<double, double>> range = {};
    std::string (*pfnCheck)(const std::string &value) = nullptr;  // returns what is wrong with it
    const char *szExcludes = "";                                  // an option declared before
    bool blPositive = false;
    bool blCommas = false;  // several values: separated by commas, or the option again
    bool blShowDefault = false;
};

struct Subcommand {
    const char *szHelp;
    std::vector<Option> options;
    std::function<int()> run;  // its result is the exit status (exit.h)
    const char *szFooter = "";
};

}  // namespace qiven::command_line
