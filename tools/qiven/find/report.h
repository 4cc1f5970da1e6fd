// What "qiven find" shows while it runs and when it ends.
#pragma once

#include <csignal>

#include "find/host_table.h"
#include "find/options.h"
#include "output.h"

namespace qiven::find {

struct Report {
    const Options &options;
    output::Writer writer{};
    bool blLive = false;       // a line on the terminal says how it goes
    bool blLiveShown = false;  // and stands there now
    bool blSaidError = false;
};

void Begin(Report &report);
// Whether standard output has taken all that was written so far, so that there may be more. Never waits:
// while a reader sleeps or a disk is full, the search goes on. Says once what is wrong with standard output.
bool IsReady(Report &report);
// A host was found: its row, if rows are shown as hosts arrive.
void Found(Report &report, const Host &host);
// Something happened to a host, for --watch. Returns the length of the row.
size_t Event(Report &report, const char *szEvent, const Host &host);
// Sends all that was written. It waits for the reader; after the signal only as long as there is progress:
// false if the reader sleeps on.
bool Drain(Report &report, const volatile sig_atomic_t &iSignal);
// The same after the rows that wait for the end.
bool End(Report &report, const Hosts &hosts, const volatile sig_atomic_t &iSignal);

// The live line: dLeft seconds to go, or below 0 for no end.
void ShowLive(Report &report, size_t nHosts, double dLeft);
void ClearLive(Report &report);

}  // namespace qiven::find
