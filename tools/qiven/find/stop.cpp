#include "find/stop.h"

#include <algorithm>

namespace qiven::find {

namespace {

// Of --expect without --timeout, in seconds.
constexpr double kTimeout = 10;

uint64_t WantedHosts(const Options &options) {
    return std::max(options.count.value_or(0), options.expect.value_or(0));
}

}  // namespace

bool HasEnough(const Run &run) {
    const uint64_t ullWanted = WantedHosts(run.options);
    return ullWanted > 0 && run.shown.size() >= ullWanted;
}

bool AreMissing(const Run &run) {
    return run.shown.size() < WantedHosts(run.options);
}

bool HasDeadline(const Options &options) {
    return options.timeout || options.expect;
}

Clock::duration TimeLeft(const Run &run) {
    const std::chrono::duration<double> limit(run.options.timeout.value_or(kTimeout));
    const Clock::duration elapsed = Clock::now() - run.start;
    return std::max(std::chrono::duration_cast<Clock::duration>(limit) - elapsed, Clock::duration{0});
}

// The engine knows when all hosts that can answer have answered.
bool IsOver(const Run &run) {
    const Options &options = run.options;
    if (run.iSignal != 0 || HasEnough(run)) return true;
    if (run.blSettled && !options.blWatch && !options.expect) return true;
    return HasDeadline(options) && TimeLeft(run).count() == 0;
}

}  // namespace qiven::find
