#include <CLI/CLI.hpp>

#include "commands.h"

namespace qiven {

namespace {

using Register = void(CLI::App &, std::function<int()> &);

// In the order of the help text.
Register *const kCommands[] = {
    RegisterFind, RegisterAnswer, RegisterInterfaces, RegisterDecode, RegisterDoctor,
};

}  // namespace

void RegisterAll(CLI::App &app, std::function<int()> &run) {
    app.name("qiven");
    app.description("Finds network-attached storage hosts on the local network segment.");
    for (Register *pfnRegister : kCommands)
        pfnRegister(app, run);
    app.require_subcommand(1);
    app.set_version_flag("--version", "qiven " QIVEN_VERSION);
    for (CLI::App *pSub : app.get_subcommands([](const CLI::App *) { return true; }))
        pSub->set_version_flag("--version", "qiven " QIVEN_VERSION);
}

}  // namespace qiven
