// Which interfaces a subcommand uses, of those that could be used. One rule for all subcommands.
#pragma once

#include <qiven/watch.h>

#include <functional>
#include <string>
#include <vector>

#include "command_line.h"

namespace qiven::interface_filter {

// A container interface is left out unless its name matches a pattern or all are wanted.
struct Filter {
    std::vector<std::string> interfaces, excludes;  // patterns
    bool blAll = false;

    bool operator==(const Filter &) const = default;
};

// --interface, --exclude and --all-interfaces.
std::vector<command_line::Option> Declare(Filter &filter, const char *szGroup);

bool IsWanted(const Filter &filter, const std::string &name);

// The same as a QIVEN_INTERFACE_FUNC; its user pointer is a Filter.
int Choose(const QIVEN_INTERFACE *pInterface, void *pvFilter);

// The interface with the next higher number, or null: QIVENWatchInterface() or QIVENEndpointInterface().
using After = std::function<const QIVEN_INTERFACE *(uint32_t ulAfter)>;
// Why none is used, in words.
std::string WhyNone(const Filter &filter, const After &after);

}  // namespace qiven::interface_filter
