#include "find_options.h"

#include <qiven/nasinfo.h>

#include <CLI/CLI.hpp>

#include "columns.h"

namespace qiven::find {

namespace {

constexpr double kDay = 86400;

std::string CheckColumn(const std::string &name) {
    const std::string bare = !name.empty() && name[0] == '-' ? name.substr(1) : name;
    return IsColumn(bare) ? std::string() : "no such field: " + bare + " (known: " + AllColumns() + ")";
}

// Several values of one option, separated by commas or given by repeating it.
template <typename T>
CLI::Option *AddList(CLI::App &app, const char *szName, std::vector<T> &values, const char *szHelp) {
    return app.add_option(szName, values, szHelp)->delimiter(',')->allow_extra_args(false);
}

void AddFilters(CLI::App &app, Options &options) {
    constexpr const char *szGroup = "Which hosts";
    AddList(app, "--name", options.names, "Names that match a pattern (*, ?, [...]), in any case")
        ->type_name("GLOB")
        ->group(szGroup);
    AddList(app, "--model", options.models, "Hosts of this model number")->type_name("N")->group(szGroup);
    AddList(app, "--type", options.types, "Answers of this packet type (2 or 6)")
        ->check(CLI::IsMember({"2", "6"}))
        ->type_name("N")
        ->group(szGroup);
    AddList(app, "--service", options.services, "Hosts that support or run this service")
        ->check(CLI::Range(0, QIVEN_SERVICE_MAX - 1))
        ->type_name("N")
        ->group(szGroup);
}

void AddInterfaces(CLI::App &app, Options &options) {
    constexpr const char *szGroup = "Where to ask";
    AddList(app, "--interface", options.interfaces, "Only interfaces whose name matches")
        ->type_name("IF")
        ->group(szGroup);
    AddList(app, "--exclude", options.excludes, "No interface whose name matches")
        ->type_name("IF")
        ->group(szGroup);
    app.add_flag("--all-interfaces", options.blAllInterfaces,
                 "Also docker*, veth*, br-* and virbr*, which are left out otherwise")
        ->group(szGroup);
}

void AddEnding(CLI::App &app, Options &options) {
    constexpr const char *szGroup = "How long";
    app.add_option("--timeout", options.timeout,
                   "Longest time to listen, in seconds [10; 60 while new hosts answer]")
        ->check(CLI::Range(0.01, kDay))
        ->type_name("S")
        ->group(szGroup);
    app.add_option("--count", options.count, "End when so many hosts are found")
        ->check(CLI::PositiveNumber)
        ->type_name("N")
        ->group(szGroup);
    CLI::Option *pExpect =
        app.add_option("--expect", options.expect, "Like --count, and listen to the timeout until then")
            ->check(CLI::PositiveNumber)
            ->type_name("N")
            ->group(szGroup);
    app.add_flag("--watch", options.blWatch, "Go on: report hosts that appear, change and vanish")
        ->excludes(pExpect)
        ->group(szGroup);
    app.add_option("--interval", options.dInterval, "Seconds between the queries of --watch")
        ->check(CLI::Range(0.5, kDay))
        ->capture_default_str()
        ->type_name("S")
        ->group(szGroup);
}

}  // namespace

void AddOptions(CLI::App &app, Options &options) {
    AddFilters(app, options);
    AddInterfaces(app, options);
    AddEnding(app, options);
    output::AddOptions(app, options.format, options.colour);
    AddList(app, "--fields", options.fields, "Fields to show, in this order")
        ->check(CheckColumn)
        ->type_name("NAMES");
    app.add_option("--sort", options.sort, "Field to sort by; a leading '-' reverses")
        ->check(CheckColumn)
        ->type_name("FIELD");
    app.add_flag("-v,--verbose", options.blVerbose, "Show the library's messages on standard error");
}

}  // namespace qiven::find
