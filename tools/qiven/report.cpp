#include "report.h"

#include <fmt/format.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "columns.h"

namespace qiven::find {

namespace {

constexpr uint64_t kSchema = 1;

// JSON is one array whose objects count all answers, and sorting needs all hosts: both wait for the end.
bool WaitsForEnd(const Options &options) {
    if (options.blWatch) return false;
    return options.format == output::Format::kJson || !options.sort.empty();
}

bool IsTerminal(int fd) {
    const char *szTerm = getenv("TERM");
    return isatty(fd) == 1 && szTerm != nullptr && strcmp(szTerm, "dumb") != 0;
}

}  // namespace

void Begin(Report &report) {
    output::Writer &writer = report.writer;
    writer.format = report.options.format;
    writer.colour = report.options.colour;
    writer.schema = kSchema;
    writer.blStream = !WaitsForEnd(report.options);
    writer.columns = ChooseColumns(report.options.fields, writer.format);
    if (report.options.blWatch) {
        const output::Column columns[] = {{"time", 24}, {"event", 8}};
        writer.columns.insert(writer.columns.begin(), std::begin(columns), std::end(columns));
    }
    report.blLive = IsTerminal(STDERR_FILENO) && !report.options.blVerbose;
    output::Begin(writer);
}

void Found(Report &report, const Host &host) {
    if (WaitsForEnd(report.options)) return;
    ClearLive(report);
    output::WriteRow(report.writer, MakeRow(host, report.writer.columns));
}

void Event(Report &report, const char *szEvent, const Host &host) {
    ClearLive(report);
    output::Row row = MakeRow(host, report.writer.columns);
    row[0] = UtcTime(WallClock::now());
    row[1] = std::string(szEvent);
    output::WriteRow(report.writer, row);
}

void End(Report &report, const Hosts &hosts) {
    ClearLive(report);
    if (WaitsForEnd(report.options)) {
        std::vector<const Host *> order = InOrder(hosts);
        if (!report.options.sort.empty()) Sort(order, report.options.sort);
        for (const Host *pHost : order)
            output::WriteRow(report.writer, MakeRow(*pHost, report.writer.columns));
    }
    output::End(report.writer);
}

void ShowLive(Report &report, size_t nHosts, double dLeft) {
    if (!report.blLive) return;
    std::string text = fmt::format("{} host{}", nHosts, nHosts == 1 ? "" : "s");
    text += dLeft < 0 ? std::string(", watching") : fmt::format(", {:.1f} s left", std::max(dLeft, 0.0));
    const size_t uTerminal = output::TerminalWidth(STDERR_FILENO);
    if (uTerminal > 1) text.resize(std::min(text.size(), uTerminal - 1));
    fmt::print(stderr, "\r{}\033[K", text);
    report.blLiveShown = true;
}

void ClearLive(Report &report) {
    if (!report.blLiveShown) return;
    fmt::print(stderr, "\r\033[K");
    report.blLiveShown = false;
}

}  // namespace qiven::find
