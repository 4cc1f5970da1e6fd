// The events of --watch: which are written, in which order, and how many. An event shows the current state of
// a host, so further changes of the host join an event that could not be written yet. Since any sender can
// cause events, and they may go into a log, their rate is limited.
#pragma once

#include "find/host_table.h"
#include "find/report.h"
#include "rate_limit.h"

namespace qiven::find {

// A long line counts as one line per KiB.
constexpr int64_t kLinesAtOnce = 1000;
constexpr int64_t kLinesPerSecond = 100;
constexpr std::chrono::seconds kChangePause{1};  // between two changes of one host

struct Watch {
    rate_limit::Bucket lines{kLinesAtOnce, kLinesPerSecond};
    bool blBehind = false;  // an event waits, so later ones must wait, too
    size_t uNext = 0;       // place of the host that is considered next
};

// Writes the event of a host that has just answered, unless other events wait or the limit is reached.
void ReportNow(Watch &watch, Report &report, Host &host);

// Writes the waiting events, and those of hosts that have vanished because they have not answered since then.
// Removes the latter.
void ReportWaiting(Watch &watch, Report &report, Hosts &hosts, Clock::time_point since);

}  // namespace qiven::find
