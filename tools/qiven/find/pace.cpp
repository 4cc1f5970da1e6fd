#include "find/pace.h"

#include <algorithm>

namespace qiven::find {

namespace {

// Answers that fit the buffer of 64 KB that the library requests for its socket.
constexpr size_t kSocketHolds = 150;
// Seconds before the next query, at least.
constexpr double kPauseMin = 0.3;
// Answers closer together than this are one burst; a query waits for its end, but only so long.
constexpr double kBurstGap = 0.1;
constexpr double kBurstWait = 6;

// While queries bring new hosts, or more hosts than the socket can hold answers of, answers are being lost:
// the next query follows as soon as "qiven answer" answers the same searcher again. The second query follows
// soon in any case; later ones are rarer.
double PauseAfter(const Run &run) {
    if (run.options.blWatch && run.nRounds >= kRoundsMin) return run.options.dInterval;
    if (run.lastNew > run.lastQuery || run.hosts.byKey.size() > kSocketHolds) return kPauseMin;
    return run.nRounds < 3 ? 0.6 : 1.5;
}

}  // namespace

// A query during a burst of answers would double it and overflow the socket, so it waits for the end of the
// burst. A flood of forged answers, which never ends, must not delay it.
bool IsQueryDue(const Run &run) {
    if (run.nRounds == 0) return true;
    const auto now = Clock::now();
    const bool blBurst = now - run.lastHeard < ToDuration(kBurstGap) && !run.hosts.blWasFull;
    return now - run.lastQuery >= ToDuration(std::max(PauseAfter(run), blBurst ? kBurstWait : 0));
}

}  // namespace qiven::find
