// Builds the parser from the declarations of the subcommands, and runs the chosen one.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <iterator>
#include <limits>
#include <string_view>
#include <type_traits>

#include "commands.h"
#include "exit_status.h"

namespace qiven {

namespace {

using command_line::Option;
using command_line::Subcommand;

// In the order of the help text.
constexpr struct {
    const char *szName;
    Subcommand (*pfnMake)();
} kCommands[] = {
    {"find", [] { return find::Command(doctor::OneLineVerdict); }},
    {"answer", answer::Command},
    {"interfaces", interfaces::Command},
    {"decode", decode::Command},
    {"doctor", doctor::Command},
};

CLI::Option *AddTarget(CLI::App &app, const Option &option) {
    return std::visit(
        [&](const auto &target) {
            using T = std::decay_t<decltype(target)>;
            if constexpr (std::is_same_v<T, bool *>)
                return app.add_flag(option.szNames, *target, option.help);
            if constexpr (std::is_pointer_v<T>) return app.add_option(option.szNames, *target, option.help);
            if constexpr (!std::is_pointer_v<T>)
                return app.add_option_function<std::string>(option.szNames, target, option.help);
        },
        option.target);
}

bool IsFraction(const Option &option) {
    return std::holds_alternative<double *>(option.target) ||
           std::holds_alternative<std::optional<double> *>(option.target);
}

void AddChecks(CLI::Option &added, const Option &option) {
    if (!option.choices.empty()) added.check(CLI::IsMember(option.choices));
    if (option.blPositive) added.check(CLI::PositiveNumber);
    if (option.pfnCheck != nullptr)
        added.check(std::function<std::string(const std::string &)>(option.pfnCheck));
    if (!option.range) return;
    const auto [dMin, dMax] = *option.range;
    if (IsFraction(option))
        added.check(CLI::Range(dMin, dMax));
    else
        added.check(CLI::Range(static_cast<int>(dMin), static_cast<int>(dMax)));
}

void Add(CLI::App &app, const Option &option) {
    CLI::Option *pAdded = AddTarget(app, option);
    AddChecks(*pAdded, option);
    if (*option.szValue != '\0') pAdded->type_name(option.szValue);
    if (*option.szGroup != '\0') pAdded->group(option.szGroup);
    // Not get_option(), which terminates the program if it runs out of memory.
    for (CLI::Option *pOther : app.get_options())
        if (pOther->get_name() == option.szExcludes) pAdded->excludes(pOther);
    if (option.blCommas) pAdded->delimiter(',')->allow_extra_args(false);
    if (option.blShowDefault) pAdded->capture_default_str();
}

}  // namespace

void RegisterAll(CLI::App &app, std::function<int()> &run, std::string_view first) {
    app.name("qiven");
    app.description("Finds network-attached storage hosts on the local network segment.");
    const bool blKnown = std::any_of(std::begin(kCommands), std::end(kCommands),
                                     [first](const auto &command) { return command.szName == first; });
    for (const auto &command : kCommands) {
        if (blKnown && command.szName != first) continue;
        const Subcommand made = command.pfnMake();
        CLI::App *pSub = app.add_subcommand(command.szName, made.szHelp);
        for (const Option &option : made.options)
            Add(*pSub, option);
        pSub->footer(made.szFooter);
        pSub->set_version_flag("--version", "qiven " QIVEN_VERSION);
        pSub->callback([&run, chosen = made.run] { run = chosen; });
    }
    app.require_subcommand(1);
    app.set_version_flag("--version", "qiven " QIVEN_VERSION);
}

int RunCommandLine(int argc, char **argv) {
    CLI::App app;
    std::function<int()> run;
    RegisterAll(app, run, argc > 1 ? argv[1] : "");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? exit_status::kDone : exit_status::kUsage;
    }
    return run();
}

}  // namespace qiven
