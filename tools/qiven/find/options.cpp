#include "find/options.h"

#include <qiven/nasinfo.h>

#include "find/columns.h"

namespace qiven::find {

namespace {

constexpr double kDay = 86400;

std::string CheckColumn(const std::string &name) {
    const std::string bare = !name.empty() && name[0] == '-' ? name.substr(1) : name;
    return IsColumn(bare) ? std::string()
                          : "unknown field: " + bare + " (known fields: " + AllColumns() + ")";
}

constexpr const char *szWhich = "Which hosts", *szWhere = "Where to search", *szHowLong = "How long";

std::vector<command_line::Option> Filters(Options &options) {
    return {{.szNames = "--name",
             .target = &options.names,
             .help = "Hosts whose name matches a pattern (*, ?, [...]), ignoring case",
             .szValue = "GLOB",
             .szGroup = szWhich,
             .blCommas = true},
            {.szNames = "--model",
             .target = &options.models,
             .help = "Hosts with this model number",
             .szValue = "N",
             .szGroup = szWhich,
             .blCommas = true},
            {.szNames = "--type",
             .target = &options.types,
             .help = "Hosts that answer with this packet type (2 or 6)",
             .szValue = "N",
             .szGroup = szWhich,
             .choices = {"2", "6"},
             .blCommas = true},
            {.szNames = "--service",
             .target = &options.services,
             .help = "Hosts that support or run this service",
             .szValue = "N",
             .szGroup = szWhich,
             .range = {{0, QIVEN_SERVICE_MAX - 1}},
             .blCommas = true}};
}

std::vector<command_line::Option> Stopping(Options &options) {
    return {{.szNames = "--timeout",
             .target = &options.timeout,
             .help = "Longest time to listen, in seconds [10; 60 while new hosts answer]",
             .szValue = "S",
             .szGroup = szHowLong,
             .range = {{0.01, kDay}}},
            {.szNames = "--count",
             .target = &options.count,
             .help = "Stop after N hosts",
             .szValue = "N",
             .szGroup = szHowLong,
             .blPositive = true},
            {.szNames = "--expect",
             .target = &options.expect,
             .help = "Listen until N hosts have answered or the timeout is reached",
             .szValue = "N",
             .szGroup = szHowLong,
             .blPositive = true},
            {.szNames = "--watch",
             .target = &options.blWatch,
             .help = "Keep running, and report hosts that appear, change and vanish",
             .szGroup = szHowLong,
             .szExcludes = "--expect"},
            {.szNames = "--interval",
             .target = &options.dInterval,
             .help = "Seconds between the queries of --watch",
             .szValue = "S",
             .szGroup = szHowLong,
             .range = {{0.5, kDay}},
             .blShowDefault = true}};
}

std::vector<command_line::Option> Showing(Options &options) {
    return {{.szNames = "--fields",
             .target = &options.fields,
             .help = "Fields to show, in this order",
             .szValue = "NAMES",
             .pfnCheck = CheckColumn,
             .blCommas = true},
            {.szNames = "--sort",
             .target = &options.sort,
             .help = "Field to sort by; a leading '-' reverses the order",
             .szValue = "FIELD",
             .pfnCheck = CheckColumn},
            {"-v,--verbose", &options.blVerbose, "Show the library's messages on standard error"}};
}

}  // namespace

std::vector<command_line::Option> Declare(Options &options) {
    std::vector<command_line::Option> all;
    for (const auto &some :
         {Filters(options), interface_filter::Declare(options.filter, szWhere), Stopping(options),
          output::Declare(options.format, options.colour), Showing(options)})
        all.insert(all.end(), some.begin(), some.end());
    return all;
}

}  // namespace qiven::find
