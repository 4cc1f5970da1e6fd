// The command line of "qiven find".
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "command_line.h"
#include "interface_filter.h"
#include "output/output.h"

namespace qiven::find {

struct Options {
    std::optional<double> timeout;  // seconds
    double dInterval = 5;           // seconds between queries of --watch
    std::optional<uint64_t> count, expect;
    bool blWatch = false;
    bool blVerbose = false;

    output::Format format = output::Format::kTable;
    terminal::Colour colour = terminal::Colour::kAuto;
    std::vector<std::string> fields;
    std::string sort;  // a leading "-" reverses
    std::vector<std::string> names;
    std::vector<uint32_t> models, types, services;
    interface_filter::Filter filter;
};

// The options of the command line, which fill the structure.
std::vector<command_line::Option> Declare(Options &options);

}  // namespace qiven::find
