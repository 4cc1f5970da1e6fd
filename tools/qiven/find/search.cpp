// One run of `qiven find`: waits for the engine, for signals and for standard output, and knows when to stop.
#include "find/search.h"

#include <fmt/format.h>

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <new>

#include "exit_status.h"
#include "find/asking.h"
#include "find/events.h"
#include "find/stop.h"
#include "messages.h"
#include "output/standard_output.h"

namespace qiven::find {

namespace {

using Milliseconds = std::chrono::milliseconds;

constexpr double kMissedQueries = 3.5;     // of --watch, before a host counts as vanished
constexpr uint32_t kExpectQueryMs = 1500;  // while hosts are expected that have not answered
constexpr uint64_t kBytesMax = uint64_t{32} << 20;
constexpr Milliseconds kLivePeriod{200};
// While rows wait for their reader. The engine's sockets hold what arrives meanwhile.
constexpr Milliseconds kBlockedPeriod{10};

int ToPoll(Clock::duration duration) {
    return static_cast<int>(std::chrono::ceil<Milliseconds>(duration).count());
}

// While events wait for their line, the engine's descriptor stays readable.
void Wait(Run &run, bool blBlocked) {
    Clock::duration wait = blBlocked || !IsReady(run.report) ? kBlockedPeriod : kLivePeriod;
    if (HasDeadline(run.options)) wait = std::min(wait, TimeLeft(run));
    pollfd waitFor[] = {{run.signalQueue.fd, POLLIN, 0}, {QIVENWatchFd(run.watch.get()), POLLIN, 0}};
    poll(waitFor, blBlocked ? 1 : 2, ToPoll(wait));
    if ((waitFor[0].revents & POLLIN) != 0) run.iSignal = signals::Take(run.signalQueue);
}

void ShowProgress(Run &run) {
    if (Clock::now() - run.live < kLivePeriod) return;
    run.live = Clock::now();
    standard_output::EndWithoutReader();
    const auto toSeconds = [](Clock::duration duration) {
        return std::chrono::duration<double>(duration).count();
    };
    ShowLive(run.report, run.shown.size(), toSeconds(run.live - run.start),
             HasDeadline(run.options) ? toSeconds(TimeLeft(run)) : -1);
}

// Without memory for it, a row is written late or a change is not reported; the search goes on.
void Listen(Run &run) {
    bool blBlocked = false;
    // At least once, however short the time: what has failed by then is reported.
    do {
        Wait(run, blBlocked);
        if (run.iSignal != 0) break;
        QIVENWatchDispatch(run.watch.get());
        try {
            TakeEvents(run);
            ShowFound(run.report, run.watch.get());
            blBlocked = !MayTakeEvent(run);
            ShowProgress(run);
        } catch (const std::bad_alloc &) {
            if (!run.blSaidMemory) messages::Say("not enough memory: an answer was left out");
            run.blSaidMemory = true;
        }
    } while (!IsOver(run));
}

// What waited for a slow reader, as far as the rate of --watch allows.
bool TakeRest(Run &run) {
    do {
        if (!Drain(run.report, run.signalQueue, run.iSignal)) return false;
        TakeEvents(run);
    } while (!IsReady(run.report));
    return true;
}

uint32_t ToMs(double dSeconds) {
    return static_cast<uint32_t>(std::lround(dSeconds * 1000));
}

// 0, or the exit status.
int Open(Run &run) {
    const Options &options = run.options;
    QIVEN_WATCH_CONF conf{};
    conf.cbSize = sizeof conf;
    conf.cbMemoryMax = kBytesMax;
    conf.pfnInterface = interface_filter::Choose;
    conf.pvUser = const_cast<interface_filter::Filter *>(&options.filter);
    if (options.blWatch) {
        conf.ulQueryMs = ToMs(options.dInterval);
        conf.ulVanishMs = ToMs(kMissedQueries * std::max(options.dInterval, 1.0));
    } else if (options.expect) {
        conf.ulQueryMs = kExpectQueryMs;
    }
    QIVEN_WATCH *pWatch = nullptr;
    const int iResult = QIVENWatchOpen(&pWatch, &conf);
    run.watch.reset(pWatch);
    if (iResult < 0) {
        messages::Say(fmt::format("cannot search: {}", QIVENWatchError(iResult)));
        return exit_status::kFailed;
    }
    if (options.blWatch || IsAnyUsed(pWatch)) return 0;
    messages::Say(WhyNoneUsed(pWatch, options.filter));
    return exit_status::kFailed;
}

int Status(const Run &run, Explain pfnExplain) {
    if (run.iSignal != 0) return exit_status::AfterSignal(run.iSignal);
    const size_t nHosts = run.shown.size();
    if (nHosts == 0 && !IsAnyAsked(run.watch.get())) return exit_status::kFailed;
    if (nHosts == 0 && isatty(STDERR_FILENO) == 1) messages::Say(pfnExplain(run.options.filter));
    return nHosts == 0 || AreMissing(run) ? exit_status::kNotFound : exit_status::kDone;
}

}  // namespace

int Search(const Options &options, Explain pfnExplain) {
    const messages::NeverWait never;
    // A file that reaches the limit of its size is an output that fails, not a reason to be killed.
    signal(SIGXFSZ, SIG_IGN);
    const signals::Queue signalQueue({SIGINT, SIGTERM});
    Run run{.options = options, .signalQueue = signalQueue, .report = {.options = options}};
    if (const int iStatus = Open(run); iStatus != 0) return iStatus;
    Begin(run.report);
    Listen(run);
    ClearLive(run.report);
    if (run.iSignal != 0) signals::LetGo(signalQueue);
    if (!TakeRest(run) || !End(run.report, run.watch.get(), signalQueue, run.iSignal))
        messages::Say("standard output was not read to the end: not all that was found is shown");
    SayLosses(run.warnings);
    return Status(run, pfnExplain);
}

}  // namespace qiven::find
