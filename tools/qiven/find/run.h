// The state of one run of "qiven find".
#pragma once

#include <chrono>
#include <cstdint>
#include <set>

#include "find/options.h"
#include "find/report.h"
#include "find/warnings.h"
#include "rate_limit.h"
#include "signals.h"

namespace qiven::find {

using Clock = std::chrono::steady_clock;

// Lines of --watch: other senders decide how much happens, and the lines may go into a log. A long line
// counts as one for each KiB.
constexpr int64_t kLinesAtOnce = 1000;
constexpr int64_t kLinesPerSecond = 100;

struct Run {
    const Options &options;
    const signals::Queue &signalQueue;
    WatchHandle watch{};
    Report report;
    Warnings warnings{};
    std::set<uint32_t> shown{};  // numbers of the hosts that the filters let through
    rate_limit::Bucket lines{kLinesAtOnce, kLinesPerSecond};
    Clock::time_point start = Clock::now(), live{};
    int iSignal = 0;  // the signal that stops the run
    bool blSettled = false;
    bool blSaidMemory = false;
};

}  // namespace qiven::find
