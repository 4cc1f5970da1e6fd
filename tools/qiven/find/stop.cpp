#include "find/stop.h"

#include <algorithm>

namespace qiven::find {

namespace {

// The default of --timeout, in seconds.
constexpr double kTimeout = 10;
// The same while new hosts keep answering.
constexpr double kTimeoutCrowd = 60;
// If no new host answers for this long, all that can have answered. Before the first answer the run waits
// longer, since disks spin up.
constexpr double kQuiet = 1.5;
constexpr double kQuietEmpty = 3;

}  // namespace

uint64_t WantedHosts(const Options &options) {
    return std::max(options.count.value_or(0), options.expect.value_or(0));
}

double SecondsLeft(const Run &run) {
    const Options &options = run.options;
    const auto now = Clock::now();
    const bool blQuietStops = !options.expect && !run.hosts.byKey.empty();
    const double dDefault = blQuietStops ? kTimeoutCrowd : kTimeout;
    const double dLimit = options.timeout.value_or(dDefault) - Seconds(now - run.start);
    if (options.blWatch) return options.timeout ? std::max(dLimit, 0.0) : -1;
    if (options.expect) return std::max(dLimit, 0.0);
    // If a burst of answers has delayed the second query, the answers to that query get their time, too.
    const bool blDelayed = run.nRounds == kRoundsMin && run.lastQuery - run.lastNew > ToDuration(kQuiet);
    const double dQuiet = (run.hosts.byKey.empty() ? kQuietEmpty : kQuiet) -
                          Seconds(now - (blDelayed ? run.lastQuery : run.lastNew));
    return std::max(std::min(dLimit, run.nRounds < kRoundsMin ? dLimit : dQuiet), 0.0);
}

bool IsOver(const Run &run) {
    if (run.iSignal != 0 || run.failure || run.blNoInterface) return true;
    const uint64_t ullWanted = WantedHosts(run.options);
    if (ullWanted > 0 && run.hosts.byKey.size() >= ullWanted) return true;
    // However short the timeout and busy the machine, one query is sent.
    return run.nRounds > 0 && SecondsLeft(run) == 0;
}

}  // namespace qiven::find
