#include <CLI/CLI.hpp>
#include <algorithm>
#include <iterator>
#include <string_view>

#include "commands.h"

namespace qiven {

namespace {

using Register = void(CLI::App &, std::function<int()> &);

// In the order of the help text.
constexpr struct {
    std::string_view name;
    Register *pfnRegister;
} kCommands[] = {
    {"find", RegisterFind},     {"answer", RegisterAnswer}, {"interfaces", RegisterInterfaces},
    {"decode", RegisterDecode}, {"doctor", RegisterDoctor},
};

}  // namespace

void RegisterAll(CLI::App &app, std::function<int()> &run, std::string_view first) {
    app.name("qiven");
    app.description("Finds network-attached storage hosts on the local network segment.");
    const bool blKnown = std::any_of(std::begin(kCommands), std::end(kCommands),
                                     [first](const auto &command) { return command.name == first; });
    for (const auto &command : kCommands)
        if (!blKnown || command.name == first) command.pfnRegister(app, run);
    app.require_subcommand(1);
    app.set_version_flag("--version", "qiven " QIVEN_VERSION);
    for (CLI::App *pSub : app.get_subcommands([](const CLI::App *) { return true; }))
        pSub->set_version_flag("--version", "qiven " QIVEN_VERSION);
}

}  // namespace qiven
