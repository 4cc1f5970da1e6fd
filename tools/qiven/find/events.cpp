#include "find/events.h"

#include "find/filter.h"
#include "find/stop.h"

namespace qiven::find {

namespace {

void Tell(Run &run, const char *szEvent, const QIVEN_WATCH_EVENT &event) {
    constexpr size_t kLine = 1024;
    const size_t cbRow = Event(run.report, szEvent, event);
    run.lines.nThousandths -= static_cast<int64_t>(1 + cbRow / kLine) * rate_limit::kToken;
}

// A host may begin or cease to match the filters.
void HearOf(Run &run, const QIVEN_WATCH_EVENT &event) {
    const QIVEN_WATCH_HOST &host = *event.pHost;
    const bool blKnown = run.shown.contains(host.ulHost);
    const bool blMatches = event.ulType != QIVEN_WATCH_VANISHED && IsWantedHost(run.options, host);
    if (event.ulType == QIVEN_WATCH_CONFLICT && blMatches) Note(run.warnings, run.report, event);
    if (!run.options.blWatch) {
        if (blMatches && !blKnown) run.report.found.push_back(host.ulHost);
    } else if (blMatches && !blKnown) {
        Tell(run, "appeared", event);
    } else if (!blMatches && blKnown) {
        Tell(run, "vanished", event);
    } else if (blMatches) {
        Tell(run, event.ulType == QIVEN_WATCH_CONFLICT ? "conflict" : "changed", event);
    }
    if (blMatches)
        run.shown.insert(host.ulHost);
    else if (run.options.blWatch)
        run.shown.erase(host.ulHost);
}

void Handle(Run &run, const QIVEN_WATCH_EVENT &event) {
    switch (event.ulType) {
        case QIVEN_WATCH_APPEARED:
        case QIVEN_WATCH_CHANGED:
        case QIVEN_WATCH_VANISHED:
        case QIVEN_WATCH_CONFLICT:
            HearOf(run, event);
            break;
        case QIVEN_WATCH_SETTLED:
            run.blSettled = true;
            break;
        default:
            Note(run.warnings, run.report, event);
    }
}

}  // namespace

bool MayTakeEvent(Run &run) {
    if (!run.options.blWatch) return true;
    if (!IsReady(run.report)) return false;
    rate_limit::Refill(run.lines, rate_limit::Now());
    return run.lines.nThousandths >= rate_limit::kToken;
}

void TakeEvents(Run &run) {
    while (!HasEnough(run) && MayTakeEvent(run)) {
        const QIVEN_WATCH_EVENT *pEvent = QIVENWatchNext(run.watch.get());
        if (pEvent == nullptr) return;
        Handle(run, *pEvent);
        ShowFound(run.report, run.watch.get());
    }
}

}  // namespace qiven::find
