// What "qiven find" shows while it runs and when it stops.
#pragma once

#include <qiven/watch.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "find/options.h"
#include "output/output.h"
#include "signals.h"

namespace qiven::find {

struct Closer {
    void operator()(QIVEN_WATCH *pWatch) const { QIVENWatchClose(pWatch); }
};
using WatchHandle = std::unique_ptr<QIVEN_WATCH, Closer>;

struct Report {
    const Options &options;
    output::Writer writer{};
    bool blAtEnd = false;           // all rows wait for the end
    std::vector<uint32_t> found{};  // hosts of rows, in their order
    size_t nWritten = 0;            // of these
    bool blLive = false;            // a line on the terminal shows the progress
    bool blLiveShown = false;       // and stands there now
    bool blSaidError = false;
};

void Begin(Report &report);
// Whether standard output has taken all that was written so far, so that there may be more. Never waits:
// while a reader sleeps or a disk is full, the search goes on. Says once what is wrong with standard output.
bool IsReady(Report &report);
// Writes the rows of the hosts that were found, if rows are shown as hosts answer, and as many as standard
// output takes without waiting.
void ShowFound(Report &report, QIVEN_WATCH *pWatch);
// Something happened to a host, for --watch. Returns the length of the row.
size_t Event(Report &report, const char *szEvent, const QIVEN_WATCH_EVENT &event);
// Sends all that was written. It waits for the reader; after a signal, which goes into iSignal, only as long
// as there is progress: false if the reader sleeps on.
bool Drain(Report &report, const signals::Queue &signalQueue, int &iSignal);
// The same after the rows that have waited for the end.
bool End(Report &report, QIVEN_WATCH *pWatch, const signals::Queue &signalQueue, int &iSignal);

// The live line. dLeft: seconds to go, or below 0 if that is not known.
void ShowLive(Report &report, size_t nHosts, double dElapsed, double dLeft);
void ClearLive(Report &report);

}  // namespace qiven::find
