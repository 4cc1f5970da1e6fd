#include "command.h"

#include <CLI/CLI.hpp>

#include "commands.h"
#include "find/columns.h"

namespace qiven::describe {

namespace {

constexpr auto kEvery = [](const auto *) { return true; };

std::vector<std::string> Split(std::string_view text, std::string_view separators) {
    std::vector<std::string> parts;
    while (!text.empty()) {
        const size_t iEnd = text.find_first_of(separators);
        if (iEnd != 0) parts.emplace_back(text.substr(0, iEnd));
        text.remove_prefix(iEnd == std::string_view::npos ? text.size() : iEnd + 1);
    }
    return parts;
}

// CLI11 describes a set of values as "NAME:{first,second}".
std::vector<std::string> ChoicesOf(const std::string &type) {
    const size_t iOpen = type.find('{');
    if (iOpen == std::string::npos) return {};
    return Split(std::string_view(type).substr(iOpen + 1, type.find('}', iOpen) - iOpen - 1), ",");
}

Takes KindOf(const ShownOption &option) {
    if (option.value.empty()) return Takes::kNothing;
    if (!option.choices.empty()) return Takes::kChoice;
    if (option.value == "FILE") return Takes::kFile;
    return option.value == "IF" ? Takes::kInterface : Takes::kText;
}

ShownOption Describe(const CLI::Option &from) {
    ShownOption option;
    for (const std::string &name : from.get_snames())
        option.names.push_back("-" + name);
    for (const std::string &name : from.get_lnames())
        option.names.push_back("--" + name);
    const std::string type = from.get_type_name();
    if (from.get_items_expected_max() > 0) option.value = type.substr(0, type.find_first_of(":{"));
    if (option.names.empty()) option.value = from.get_name(true);
    option.choices = ChoicesOf(type);
    if (option.value == "NAMES" || option.value == "FIELD")
        option.choices = Split(qiven::find::AllColumns(), ", ");
    option.help = from.get_description();
    option.group = from.get_group();
    option.standard = from.get_default_str();
    for (const CLI::Option *pOther : from.get_excludes())
        option.excludes.push_back(pOther->get_name());
    option.takes = KindOf(option);
    option.blRepeats = from.get_items_expected_max() > 1;
    option.blList = from.get_delimiter() == ',';
    return option;
}

Command Describe(const CLI::App &app, std::string name) {
    Command command{std::move(name), app.get_description(), {}};
    for (const CLI::Option *pOption : app.get_options(kEvery))
        command.options.push_back(Describe(*pOption));
    return command;
}

}  // namespace

std::vector<Command> Commands() {
    CLI::App app;
    std::function<int()> run;
    RegisterAll(app, run);
    std::vector<Command> commands{Describe(app, "")};
    for (const CLI::App *pSub : app.get_subcommands([](const CLI::App *) { return true; }))
        commands.push_back(Describe(*pSub, pSub->get_name()));
    return commands;
}

std::string Escape(std::string_view text, std::string_view characters) {
    std::string escaped;
    for (const char ch : text) {
        if (characters.find(ch) != std::string_view::npos) escaped += '\\';
        escaped += ch;
    }
    return escaped;
}

std::string Quote(std::string_view text) {
    std::string quoted = "'";
    for (const char ch : text)
        quoted += ch == '\'' ? std::string("'\\''") : std::string(1, ch);
    return quoted + "'";
}

}  // namespace qiven::describe
