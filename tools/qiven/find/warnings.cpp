#include "find/warnings.h"

#include <fmt/format.h>

#include "fields.h"
#include "find/host.h"
#include "messages.h"

namespace qiven::find {

namespace {

// A flood of different lines would fill the memory.
constexpr size_t kSaidMax = 1000;

void SayOnce(Warnings &warnings, Report &report, const std::string &line) {
    if (warnings.said.size() >= kSaidMax || warnings.said.contains(line)) return;
    if (!rate_limit::Take(warnings.lines, rate_limit::Now())) return;
    warnings.said.insert(line);
    ClearLive(report);
    messages::Say(line);
}

void NoteConflict(Warnings &warnings, Report &report, const QIVEN_WATCH_EVENT &event) {
    const std::string ident = fields::Text(*event.pHost->pnasInfo, *fields::ByName("ident"));
    SayOnce(warnings, report,
            fmt::format("two machines answer as \"{}\": {} and {}", ident, Label(*event.pHost),
                        Label(*event.pHostOther)));
}

}  // namespace

void Note(Warnings &warnings, Report &report, const QIVEN_WATCH_EVENT &event) {
    if (event.ulType == QIVEN_WATCH_CONFLICT) NoteConflict(warnings, report, event);
    if (event.ulType == QIVEN_WATCH_LOST) warnings.ullLost += event.ullLost;
    if (event.ulType == QIVEN_WATCH_INTERFACE && event.pInterface->ulState == QIVEN_INTERFACE_FAILED)
        SayOnce(warnings, report,
                fmt::format("cannot ask on {}: {}", event.pInterface->szIfName,
                            QIVENWatchError(event.pInterface->iResult)));
    if (event.ulType == QIVEN_WATCH_FULL && !warnings.blFull) {
        warnings.blFull = true;
        ClearLive(report);
        messages::Say(
            "more hosts answer than are kept; the answers are probably forged, and from now on a host is "
            "shown "
            "after it has answered two queries");
    }
}

void SayLosses(const Warnings &warnings) {
    if (warnings.ullLost == 0) return;
    messages::Say(fmt::format("the kernel dropped {} datagram{}, and the query was repeated",
                              warnings.ullLost, warnings.ullLost == 1 ? "" : "s"));
}

}  // namespace qiven::find
