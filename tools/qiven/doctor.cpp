#include "doctor.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "doctor_checks.h"
#include "exit.h"
#include "output.h"

namespace qiven {

namespace {

using doctor::Check;
using doctor::Result;
using nlohmann::ordered_json;

constexpr uint64_t kSchema = 1;
// Long enough for what the kernel hands back to a sender at once.
constexpr std::chrono::milliseconds kShortListen{100};
// Long enough for hosts that answer after a pause.
constexpr std::chrono::milliseconds kLongListen{2000};

struct Diagnosis {
    std::vector<Check> checks;
    size_t nAnswers = 0;
};

Diagnosis Examine(std::chrono::milliseconds listen, bool blAll) {
    Diagnosis diagnosis;
    std::vector<Check> &checks = diagnosis.checks;
    std::vector<QIVEN_NETIF> usable;
    checks.push_back(doctor::CheckCards(usable));
    checks.push_back(doctor::CheckPort());
    diagnosis.nAnswers = doctor::CheckTraffic(usable, listen, blAll, checks);
    return diagnosis;
}

// The first fault is the cause: the checks come in the order in which one thing needs the other.
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
        return fmt::format("Nothing wrong was seen, but not everything could be checked: {}.", skipped);
    if (diagnosis.nAnswers != 0) return "Nothing is wrong on this machine: hosts answer.";
    return "Nothing is wrong on this machine: the hosts may be off, or in another segment, which broadcasts "
           "do "
           "not reach.";
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
    ordered_json object = {{"schema", kSchema}, {"verdict", VerdictOf(diagnosis)}, {"cause", nullptr}};
    if (const Check *pCause = FindCause(diagnosis.checks); pCause != nullptr) object["cause"] = pCause->name;
    object["checks"] = ordered_json::array();
    for (const Check &check : diagnosis.checks) {
        ordered_json entry = {{"name", check.name}, {"result", NameOf(check.result)}, {"text", check.text}};
        if (!check.remedy.empty()) entry["remedy"] = check.remedy;
        object["checks"].push_back(std::move(entry));
    }
    output::Write(object.dump(2, ' ', true, ordered_json::error_handler_t::replace) + "\n");
}

void PrintText(const Diagnosis &diagnosis) {
    std::string lines = VerdictOf(diagnosis) + "\n\n";
    for (const Check &check : diagnosis.checks)
        lines += fmt::format("{:<8} {:<9} {}\n", NameOf(check.result), check.name, check.text);
    output::Write(lines);
}

int Doctor(bool blJson) {
    const Diagnosis diagnosis = Examine(kLongListen, true);
    if (blJson)
        PrintJson(diagnosis);
    else
        PrintText(diagnosis);
    if (FindCause(diagnosis.checks) != nullptr) return kNothing;
    return SkippedOf(diagnosis.checks).empty() ? kDone : kNetwork;
}

}  // namespace

std::string OneLineVerdict() {
    return VerdictOf(Examine(kShortListen, false));
}

void RegisterDoctor(CLI::App &app, std::function<int()> &run) {
    CLI::App *pSub = app.add_subcommand("doctor", "Say why no host is found, and what to do about it");
    const auto blJson = std::make_shared<bool>(false);
    pSub->add_option_function<std::string>(
            "--format", [blJson](const std::string &format) { *blJson = format == "json"; },
            "Output format: text (default) or json")
        ->check(CLI::IsMember({"text", "json"}));
    pSub->callback([blJson, &run] { run = [blJson] { return Doctor(*blJson); }; });
}

}  // namespace qiven
