// Which interfaces a subcommand uses, of those that could be used. One rule for all subcommands.
#pragma once

#include <string>
#include <vector>

#include "command_line.h"

namespace qiven::interface_filter {

// A container interface is left out unless its name matches a pattern or all are wanted.
struct Filter {
    std::vector<std::string> interfaces, excludes;  // patterns
    bool blAll = false;
};

// --interface, --exclude and --all-interfaces.
std::vector<command_line::Option> Declare(Filter &filter, const char *szGroup);

bool IsWanted(const Filter &filter, const std::string &name);

}  // namespace qiven::interface_filter
