// What the reader of --watch is told. The state of the table is told, not every step on the way to it: while
// a line may not be written, further changes of its host join it. Strangers decide how much happens, and the
// lines may go into a log.
#pragma once

#include "find/host_table.h"
#include "find/report.h"
#include "rate_limit.h"

namespace qiven::find {

// A long line counts for as many as its length in KiB.
constexpr int64_t kLinesAtOnce = 1000;
constexpr int64_t kLinesPerSecond = 100;
constexpr std::chrono::seconds kChangePause{1};  // between lines about one host that stays

struct Teller {
    rate_limit::Bucket lines{kLinesAtOnce, kLinesPerSecond};
    bool blBehind = false;  // somebody waits, so nobody may go first
    size_t uNext = 0;       // place of the host that is looked at next
};

// Tells about a host that has just been heard, unless others wait or its own line must.
void TellNow(Teller &teller, Report &report, Host &host);

// Tells what waits, and which hosts have vanished: those not heard since then. Takes these out.
void TellRest(Teller &teller, Report &report, Hosts &hosts, Clock::time_point since);

}  // namespace qiven::find
