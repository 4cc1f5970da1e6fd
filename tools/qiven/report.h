// What "qiven find" shows while it runs and when it ends.
#pragma once

#include "find_options.h"
#include "hosts.h"
#include "output.h"

namespace qiven::find {

struct Report {
    const Options &options;
    output::Writer writer{};
    bool blLive = false;       // a line on the terminal says how it goes
    bool blLiveShown = false;  // and stands there now
};

void Begin(Report &report);
// A host was found: its row, when rows are shown as hosts arrive.
void Found(Report &report, const Host &host);
// Something happened to a host, for --watch.
void Event(Report &report, const char *szEvent, const Host &host);
// The rows that wait for the end.
void End(Report &report, const Hosts &hosts);

// The live line: dLeft seconds to go, or below 0 for no end.
void ShowLive(Report &report, size_t nHosts, double dLeft);
void ClearLive(Report &report);

}  // namespace qiven::find
