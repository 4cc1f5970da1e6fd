// The state of one run of "qiven find".
#pragma once

#include <csignal>
#include <exception>
#include <vector>

#include "find/host_table.h"
#include "find/options.h"
#include "find/query.h"
#include "find/report.h"
#include "find/watch.h"

namespace qiven::find {

// Every run sends at least this many queries, since a broadcast may be lost.
constexpr unsigned int kRoundsMin = 2;

struct Run {
    const Options &options;
    const volatile sig_atomic_t &iSignal;  // the signal that stops the run, or 0
    Querier querier;
    Report report;
    Hosts hosts{};
    bool blListening = false;
    bool blNoInterface = false;
    std::exception_ptr failure{};
    Clock::time_point start = Clock::now(), lastNew = start, lastLive{}, lastQuery{};
    Clock::time_point lastShown{}, lastHeard{};
    std::vector<Host *> unshown{};  // found, their rows not written yet
    size_t nShown = 0;              // of these
    unsigned int nShownAtOnce = 0;  // since the last pause
    bool blHeard = false;           // an answer arrived in this pass
    unsigned int nRounds = 0;       // of queries
    bool blQuerySent = false;
    bool blSaidFull = false;
    bool blSaidMemory = false;
    Watch watch{};
};

inline double Seconds(Clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}
inline Clock::duration ToDuration(double dSeconds) {
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(dSeconds));
}

}  // namespace qiven::find
