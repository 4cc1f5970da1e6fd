// The output of "qiven find": rows, events of --watch, and the live line on a terminal.
#pragma once

#include <csignal>

#include "find/host_table.h"
#include "find/options.h"
#include "output.h"

namespace qiven::find {

struct Report {
    const Options &options;
    output::Writer writer{};
    bool blLive = false;       // standard error is a terminal, and gets a line that shows the progress
    bool blLiveShown = false;  // the line is there now
    bool blSaidError = false;
};

void Begin(Report &report);
// Whether standard output has taken everything that was written so far, so that more can be written. Never
// waits: the search continues if the reader does not read or the disk is full. Reports an error of standard
// output once.
bool IsReady(Report &report);
// Writes the row of a host that was found, if rows are shown as hosts answer.
void Found(Report &report, const Host &host);
// Writes an event of --watch. Returns the length of the row.
size_t Event(Report &report, const char *szEvent, const Host &host);
// Sends everything that was written, and waits for the reader; after a signal only while there is progress.
// False if the reader did not read.
bool Drain(Report &report, const volatile sig_atomic_t &iSignal);
// Writes the rows that wait for the end, and drains.
bool End(Report &report, const Hosts &hosts, const volatile sig_atomic_t &iSignal);

// The live line. dLeft is the number of seconds left, or below 0 if there is no limit.
void ShowLive(Report &report, size_t nHosts, double dLeft);
void ClearLive(Report &report);

}  // namespace qiven::find
