#include "find/report.h"

#include <fmt/format.h>

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <utility>
#include <vector>

#include "find/columns.h"
#include "messages.h"
#include "output/standard_output.h"
#include "output/terminal.h"
#include "output/utc_time.h"

namespace qiven::find {

namespace {

using Clock = std::chrono::steady_clock;

output::Row MakeRow(const Report &report, const QIVEN_WATCH_HOST &host) {
    output::Row row;
    AddCells(row, host, report.writer.columns);
    return row;
}

// Null if a flood of other hosts has pushed it out of the table.
const QIVEN_WATCH_HOST *HostOf(QIVEN_WATCH *pWatch, uint32_t ulHost) {
    const QIVEN_WATCH_HOST *pHost = QIVENWatchHost(pWatch, ulHost - 1);
    return pHost != nullptr && pHost->ulHost == ulHost ? pHost : nullptr;
}

void WriteHost(Report &report, QIVEN_WATCH *pWatch, uint32_t ulHost) {
    const QIVEN_WATCH_HOST *pHost = HostOf(pWatch, ulHost);
    if (pHost != nullptr) output::WriteRow(report.writer, MakeRow(report, *pHost));
}

// Equal ones stay in order of appearance.
void Sort(Report &report, QIVEN_WATCH *pWatch) {
    const bool blReverse = report.options.sort[0] == '-';
    const std::string column = report.options.sort.substr(blReverse ? 1 : 0);
    std::vector<std::pair<output::Value, uint32_t>> keyed;
    for (const uint32_t ulHost : report.found) {
        const QIVEN_WATCH_HOST *pHost = HostOf(pWatch, ulHost);
        if (pHost != nullptr) keyed.emplace_back(SortKey(*pHost, column), ulHost);
    }
    std::stable_sort(keyed.begin(), keyed.end(), [blReverse](const auto &a, const auto &b) {
        return blReverse ? b.first < a.first : a.first < b.first;
    });
    report.found.resize(keyed.size());
    std::transform(keyed.begin(), keyed.end(), report.found.begin(),
                   [](const auto &entry) { return entry.second; });
}

void MeasureAll(Report &report, QIVEN_WATCH *pWatch) {
    for (const uint32_t ulHost : report.found) {
        const QIVEN_WATCH_HOST *pHost = HostOf(pWatch, ulHost);
        if (pHost != nullptr) output::Measure(report.writer, MakeRow(report, *pHost));
    }
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
        writer.columns.push_back({"changes"});
    } else {
        // JSON is one array, and sorting needs all hosts.
        report.blAtEnd = report.options.format == output::Format::kJson || !report.options.sort.empty() ||
                         !AreFinal(writer.columns);
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

void ShowFound(Report &report, QIVEN_WATCH *pWatch) {
    if (report.blAtEnd || report.nWritten == report.found.size()) return;
    while (report.nWritten < report.found.size() && IsReady(report)) {
        ClearLive(report);
        WriteHost(report, pWatch, report.found[report.nWritten++]);
    }
    IsReady(report);
}

size_t Event(Report &report, const char *szEvent, const QIVEN_WATCH_EVENT &event) {
    ClearLive(report);
    output::Row row;
    row.emplace_back(UtcTime(event.llUnixUs));
    row.emplace_back(std::string(szEvent));
    AddCells(row, *event.pHost, report.writer.columns);
    if (event.ulType == QIVEN_WATCH_CHANGED) row.back() = Changes(event);
    const size_t cbBefore = report.writer.queue.text.size();
    output::WriteRow(report.writer, row);
    const size_t cbRow = report.writer.queue.text.size() - cbBefore;
    IsReady(report);
    return cbRow;
}

bool Drain(Report &report, const signals::Queue &signalQueue, int &iSignal) {
    constexpr int kLook = 100;  // milliseconds
    constexpr std::chrono::seconds kPatience{1};
    const standard_output::Queue &queue = report.writer.queue;
    Clock::time_point progress = Clock::now();
    size_t cbSent = queue.cbSent;
    while (!standard_output::Send(report.writer.queue)) {
        if (queue.iError != 0) standard_output::ThrowError(queue.iError);
        if (queue.cbSent != cbSent) progress = Clock::now();
        if (iSignal != 0 && Clock::now() - progress > kPatience) return false;
        cbSent = queue.cbSent;
        pollfd waitFor[] = {{STDOUT_FILENO, POLLOUT, 0}, {signalQueue.fd, POLLIN, 0}};
        poll(waitFor, 2, kLook);
        if (iSignal != 0 || (iSignal = signals::Take(signalQueue)) == 0) continue;
        signals::LetGo(signalQueue);
        progress = Clock::now();
    }
    return true;
}

bool End(Report &report, QIVEN_WATCH *pWatch, const signals::Queue &signalQueue, int &iSignal) {
    ClearLive(report);
    if (report.blAtEnd && !report.options.sort.empty()) Sort(report, pWatch);
    if (report.blAtEnd && report.options.format == output::Format::kTable) MeasureAll(report, pWatch);
    for (; report.nWritten < report.found.size(); ++report.nWritten) {
        if (!Drain(report, signalQueue, iSignal)) return false;
        WriteHost(report, pWatch, report.found[report.nWritten]);
    }
    output::End(report.writer);
    return Drain(report, signalQueue, iSignal);
}

void ShowLive(Report &report, size_t nHosts, double dElapsed, double dLeft) {
    if (!report.blLive) return;
    std::string text = fmt::format("{} host{}", nHosts, nHosts == 1 ? "" : "s");
    if (report.options.blWatch && dLeft < 0)
        text += ", watching";
    else
        text += dLeft < 0 ? fmt::format(", {:.1f} s", dElapsed) : fmt::format(", {:.1f} s left", dLeft);
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
