// The subcommand: makes the checks, and names the cause.
#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "commands.h"
#include "doctor/checks.h"
#include "exit_status.h"
#include "output/json.h"
#include "output/standard_output.h"

namespace qiven::doctor {

namespace {

// Long enough for own broadcasts, which the kernel returns at once.
constexpr std::chrono::milliseconds kShortListen{100};
// Long enough for hosts that answer after a pause.
constexpr std::chrono::milliseconds kLongListen{2000};

struct Diagnosis {
    std::vector<Check> checks;
    std::string answeredOn;  // by which interfaces hosts answered
};

Diagnosis Examine(const interface_filter::Filter &filter, std::chrono::milliseconds listen, bool blAll) {
    Diagnosis diagnosis;
    std::vector<Check> &checks = diagnosis.checks;
    const Port port = OpenPort(filter);
    checks.push_back(CheckInterfaces(port, filter));
    checks.push_back(CheckPort(port));
    diagnosis.answeredOn = CheckTraffic(port, listen, blAll, checks);
    return diagnosis;
}

// The first fault is the cause, since each check depends on the ones before it.
const Check *FindCause(const std::vector<Check> &checks) {
    const auto fault = std::find_if(checks.begin(), checks.end(),
                                    [](const Check &check) { return check.result == Result::kFault; });
    return fault == checks.end() ? nullptr : &*fault;
}

// The checks that could not be made, with their reasons.
std::string SkippedOf(const std::vector<Check> &checks) {
    std::string skipped;
    for (const Check &check : checks)
        if (check.result == Result::kSkipped)
            skipped += fmt::format("{}{} ({})", skipped.empty() ? "" : ", ", check.name, check.text);
    return skipped;
}

std::string Capitalised(std::string text) {
    if (!text.empty() && text[0] >= 'a' && text[0] <= 'z') text[0] = static_cast<char>(text[0] - 'a' + 'A');
    return text;
}

std::string VerdictOf(const Diagnosis &diagnosis) {
    const Check *pCause = FindCause(diagnosis.checks);
    if (pCause != nullptr) return fmt::format("{}; {}.", Capitalised(pCause->text), pCause->remedy);
    const std::string skipped = SkippedOf(diagnosis.checks);
    if (!skipped.empty())
        return fmt::format("No fault was found, but not everything could be checked: {}.", skipped);
    if (!diagnosis.answeredOn.empty())
        return fmt::format("Nothing is wrong on this machine: hosts answer on {}.", diagnosis.answeredOn);
    return "Nothing is wrong on this machine: the hosts may be off, or in another segment, which broadcasts "
           "do not reach.";
}

const char *NameOf(Result result) {
    switch (result) {
        case Result::kOk:
            return "ok";
        case Result::kNote:
            return "note";
        case Result::kFault:
            return "fault";
        case Result::kSkipped:
            break;
    }
    return "skipped";
}

void PrintJson(const Diagnosis &diagnosis) {
    const json::Node object = json::Document();
    const Check *pCause = FindCause(diagnosis.checks);
    json::Set(object, "verdict", VerdictOf(diagnosis));
    json::Set(object, "cause", pCause == nullptr ? output::Value() : pCause->name);
    json::Node list = json::Array();
    for (const Check &check : diagnosis.checks) {
        json::Node entry = json::Object();
        json::Set(entry, "name", check.name);
        json::Set(entry, "result", std::string(NameOf(check.result)));
        json::Set(entry, "text", check.text);
        if (!check.remedy.empty()) json::Set(entry, "remedy", check.remedy);
        json::Append(list, std::move(entry));
    }
    json::Set(object, "checks", std::move(list));
    standard_output::Write(json::Text(object, 2) + "\n");
}

void PrintText(const Diagnosis &diagnosis) {
    std::string lines = VerdictOf(diagnosis) + "\n\n";
    for (const Check &check : diagnosis.checks)
        lines += fmt::format("{:<8} {:<10} {}\n", NameOf(check.result), check.name, check.text);
    standard_output::Write(lines);
}

int Run(const interface_filter::Filter &filter, bool blJson) {
    const Diagnosis diagnosis = Examine(filter, kLongListen, true);
    if (blJson)
        PrintJson(diagnosis);
    else
        PrintText(diagnosis);
    if (FindCause(diagnosis.checks) != nullptr) return exit_status::kNotFound;
    return SkippedOf(diagnosis.checks).empty() ? exit_status::kDone : exit_status::kFailed;
}

}  // namespace

std::string OneLineVerdict(const interface_filter::Filter &filter) {
    return VerdictOf(Examine(filter, kShortListen, false));
}

command_line::Subcommand Command() {
    static bool blJson = false;
    static interface_filter::Filter filter;
    std::vector<command_line::Option> options = interface_filter::Declare(filter, "");
    options.push_back({.szNames = "--format",
                       .target = [](const std::string &format) { blJson = format == "json"; },
                       .help = "Output format: text (default) or json",
                       .choices = {"text", "json"}});
    return {.szHelp = "Find out why no host is found, and how to fix it",
            .options = std::move(options),
            .run = [] { return Run(filter, blJson); }};
}

}  // namespace qiven::doctor
