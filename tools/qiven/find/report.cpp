#include "find/report.h"

#include <fmt/format.h>

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "find/columns.h"
#include "messages.h"
#include "standard_output.h"
#include "terminal.h"
#include "utc_time.h"

namespace qiven::find {

namespace {

// JSON is one array whose objects count all answers, and sorting needs all hosts, so both wait for the end.
bool WaitsForEnd(const Options &options) {
    if (options.blWatch) return false;
    return options.format == output::Format::kJson || !options.sort.empty();
}

}  // namespace

void Begin(Report &report) {
    output::Writer &writer = report.writer;
    writer.format = report.options.format;
    writer.colour = report.options.colour;
    writer.blQueued = true;
    writer.columns = ChooseColumns(report.options.fields, writer.format);
    if (report.options.blWatch) {
        const output::Column columns[] = {{"time", 24}, {"event", 8}};
        writer.columns.insert(writer.columns.begin(), std::begin(columns), std::end(columns));
    }
    report.blLive = terminal::IsCapable(STDERR_FILENO) && !report.options.blVerbose;
    output::Begin(writer);
}

bool IsReady(Report &report) {
    const bool blReady = standard_output::Send(report.writer.queue);
    const int iError = report.writer.queue.iError;
    if (iError != 0 && !report.blSaidError) {
        ClearLive(report);
        messages::Say(fmt::format("cannot write to standard output: {}; trying again", strerror(iError)));
    }
    report.blSaidError = iError != 0;
    return blReady;
}

void Found(Report &report, const Host &host) {
    if (WaitsForEnd(report.options)) return;
    ClearLive(report);
    output::WriteRow(report.writer, MakeRow(host, report.writer.columns));
    IsReady(report);
}

size_t Event(Report &report, const char *szEvent, const Host &host) {
    ClearLive(report);
    output::Row row = MakeRow(host, report.writer.columns);
    row[0] = UtcTime(WallClock::now());
    row[1] = std::string(szEvent);
    const size_t cbBefore = report.writer.queue.text.size();
    output::WriteRow(report.writer, row);
    const size_t cbRow = report.writer.queue.text.size() - cbBefore;
    IsReady(report);
    return cbRow;
}

bool Drain(Report &report, const volatile sig_atomic_t &iSignal) {
    constexpr int kLookMilliseconds = 100;
    constexpr std::chrono::seconds kPatience{1};
    const standard_output::Queue &queue = report.writer.queue;
    Clock::time_point progress = Clock::now();
    size_t cbSent = queue.cbSent;
    while (!standard_output::Send(report.writer.queue)) {
        if (queue.iError != 0) standard_output::ThrowError(queue.iError);
        if (queue.cbSent != cbSent) progress = Clock::now();
        if (iSignal != 0 && Clock::now() - progress > kPatience) return false;
        cbSent = queue.cbSent;
        pollfd writable{STDOUT_FILENO, POLLOUT, 0};
        poll(&writable, 1, kLookMilliseconds);
    }
    return true;
}

bool End(Report &report, const Hosts &hosts, const volatile sig_atomic_t &iSignal) {
    ClearLive(report);
    if (!Drain(report, iSignal)) return false;
    if (WaitsForEnd(report.options)) {
        std::vector<const Host *> order = InOrder(hosts);
        if (!report.options.sort.empty()) Sort(order, report.options.sort);
        if (report.options.format == output::Format::kTable)
            for (const Host *pHost : order)
                output::Measure(report.writer, MakeRow(*pHost, report.writer.columns));
        for (const Host *pHost : order) {
            output::WriteRow(report.writer, MakeRow(*pHost, report.writer.columns));
            if (!Drain(report, iSignal)) return false;
        }
    }
    output::End(report.writer);
    return Drain(report, iSignal);
}

void ShowLive(Report &report, size_t nHosts, double dLeft) {
    if (!report.blLive) return;
    std::string text = fmt::format("{} host{}", nHosts, nHosts == 1 ? "" : "s");
    text += dLeft < 0 ? std::string(", watching") : fmt::format(", {:.1f} s left", std::max(dLeft, 0.0));
    const size_t uTerminal = terminal::Width(STDERR_FILENO);
    if (uTerminal > 1) text.resize(std::min(text.size(), uTerminal - 1));
    messages::Show(fmt::format("\r{}\033[K", text));
    report.blLiveShown = true;
}

void ClearLive(Report &report) {
    if (!report.blLiveShown) return;
    messages::Show("\r\033[K");
    report.blLiveShown = false;
}

}  // namespace qiven::find
