#include "find/search.h"

#include <qiven/keys.h>
#include <qiven/udp.h>

#include <fmt/format.h>

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <new>
#include <optional>
#include <vector>

#include "exit_status.h"
#include "find/filter.h"
#include "find/pace.h"
#include "find/run.h"
#include "find/stop.h"
#include "messages.h"
#include "standard_output.h"

namespace qiven::find {

namespace {

// Of --watch: a host that has not answered this many queries has vanished.
constexpr double kMissedQueries = 3.5;
constexpr double kLivePeriod = 0.2;
// Writing a row takes many times longer than receiving an answer. The socket buffers the answers that arrive
// while this many rows are written at once; the rest of a larger burst waits for its end, but only so long.
// If each row were written at once, the socket would overflow, and the same late hosts would always be lost.
constexpr unsigned int kRowsAtOnce = 32;
constexpr double kRowsWait = 0.1;
constexpr suseconds_t kTickMicroseconds = 20000;

Run *pRun = nullptr;
volatile sig_atomic_t iSignal = 0;

void OnSignal(int iNumber) {
    iSignal = iNumber;
}
// The timer only interrupts the library's wait.
void OnTick(int) {
}

void Query(Run &run) {
    // Counted first, so that a query that fails for lack of memory counts as a round.
    const bool blFirst = run.nRounds++ == 0;
    run.lastQuery = Clock::now();
    const Queried queried = SendQueries(run.querier);
    run.blQuerySent = run.blQuerySent || queried.nSent > 0;
    run.blNoInterface = queried.blNoInterface && blFirst && !run.options.blWatch;
}

void ReportWaiting(Run &run) {
    const double dPatience = kMissedQueries * std::max(run.options.dInterval, 1.0);
    ReportWaiting(run.watch, run.report, run.hosts, Clock::now() - ToDuration(dPatience));
}

// Shows as many hosts as standard output takes without waiting.
void ShowFound(Run &run) {
    run.lastShown = Clock::now();
    while (run.nShown < run.unshown.size() && IsReady(run.report)) {
        Host &host = *run.unshown[run.nShown++];
        host.blHeld = false;
        Found(run.report, host);
    }
    if (run.nShown < run.unshown.size()) return;
    run.unshown.clear();
    run.nShown = 0;
}

void Progress(Run &run) {
    run.blListening = true;
    if (IsOver(run)) return;
    if (!run.blHeard) {
        ShowFound(run);
        run.nShownAtOnce = 0;
    }
    run.blHeard = false;
    const auto now = Clock::now();
    if (IsQueryDue(run)) {
        ClearLive(run.report);  // a query may print a message
        Query(run);
    }
    if (now - run.lastLive < ToDuration(kLivePeriod)) return;
    run.lastLive = now;
    standard_output::EndWithoutReader();
    IsReady(run.report);
    if (run.options.blWatch) ReportWaiting(run);
    ShowLive(run.report, run.hosts.byKey.size(), SecondsLeft(run));
}

void SayFull(Run &run) {
    if (!run.hosts.blWasFull || run.blSaidFull) return;
    run.blSaidFull = true;
    ClearLive(run.report);
    messages::Say(
        fmt::format("too many hosts: the table is full with {} of them, and answers may be forged; from now "
                    "on a host must answer two queries to be shown",
                    run.hosts.byKey.size()));
}

// Shows a host at once, or when the burst in which it answered is over.
void ShowSoon(Run &run, Host &host) {
    run.unshown.push_back(&host);
    host.blHeld = true;
    const bool blAtOnce = run.nShownAtOnce < kRowsAtOnce;
    run.nShownAtOnce += blAtOnce ? 1 : 0;
    if (blAtOnce || Clock::now() - run.lastShown > ToDuration(kRowsWait)) ShowFound(run);
}

void Receive(Run &run, const nasinfo &record) {
    if (IsOver(run) || !IsWantedHost(run.options, record)) return;
    Host *pHost = nullptr;
    const Heard heard = Add(run.hosts, record, {QIVENProcessGetID(), run.nRounds}, &pHost);
    SayFull(run);
    run.blHeard = true;
    run.lastHeard = Clock::now();
    if (heard == Heard::kNew) run.lastNew = run.lastHeard;
    if (pHost == nullptr) return;
    if (run.options.blWatch) {
        pHost->blChanged = pHost->blChanged || heard == Heard::kChanged;
        ReportNow(run.watch, run.report, *pHost);
    } else if (heard == Heard::kNew) {
        ShowSoon(run, *pHost);
    }
}

// An exception must not pass through the library: it is kept until the library returns. If memory runs out,
// one answer or query is lost, and others will follow.
template <typename Function>
void Guard(Function function) {
    try {
        function(*pRun);
    } catch (const std::bad_alloc &) {
        if (!pRun->blSaidMemory) messages::Say("not enough memory: an answer or a query was lost");
        pRun->blSaidMemory = true;
    } catch (...) {
        pRun->failure = std::current_exception();
    }
}

int OnProgress(int, int, int) {
    Guard(Progress);
    return 0;
}
int OnRecord(nasinfo *pRecord) {
    Guard([pRecord](Run &run) { Receive(run, *pRecord); });
    return 0;
}
int OnCancel() {
    int iOver = 1;
    Guard([&iOver](const Run &run) { iOver = IsOver(run) ? 1 : 0; });
    return iOver;
}

void Handle(int iNumber, void (*pfnHandler)(int), int iFlags) {
    struct sigaction action {};
    action.sa_handler = pfnHandler;
    action.sa_flags = iFlags;
    sigaction(iNumber, &action, nullptr);
}

void SetTimer(suseconds_t microseconds) {
    const itimerval timer{{0, microseconds}, {0, microseconds}};
    setitimer(ITIMER_REAL, &timer, nullptr);
}

// A second Ctrl-C ends the process at once, whatever it waits for. The ticks, which the parent process may
// have blocked, bound every wait.
void CatchSignals() {
    Handle(SIGXFSZ, SIG_IGN, 0);
    Handle(SIGALRM, OnTick, 0);
    sigset_t ticks;
    sigemptyset(&ticks);
    sigaddset(&ticks, SIGALRM);
    pthread_sigmask(SIG_UNBLOCK, &ticks, nullptr);
    for (const int iNumber : {SIGINT, SIGTERM})
        Handle(iNumber, OnSignal, static_cast<int>(SA_RESETHAND));
}

// Writes the remaining rows, for --watch as many as its rate allows. The ticks continue, so that a write is
// interrupted if the reader does not read.
bool Finish(Run &run) {
    do {
        if (!Drain(run.report, iSignal)) return false;
        if (run.options.blWatch) ReportWaiting(run);
    } while (run.watch.blBehind && !IsReady(run.report));
    for (; run.nShown < run.unshown.size(); ++run.nShown) {
        if (!Drain(run.report, iSignal)) return false;
        Found(run.report, *run.unshown[run.nShown]);
    }
    return End(run.report, run.hosts, iSignal);
}

// The library does not report why it could not open a socket.
std::string WhyNotListening() {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd == -1) return strerror(errno);
    close(fd);
    return messages::TakeLast();
}

int Status(const Run &run, int iResult, std::string (*pfnExplain)()) {
    if (iSignal != 0) return exit_status::AfterSignal(iSignal);
    if (run.blNoInterface) return exit_status::kFailed;
    if (iResult != 0 && !run.blListening) {
        messages::Say(fmt::format("cannot listen on UDP port {}: {}", QIVEN_PORT, WhyNotListening()));
        return exit_status::kFailed;
    }
    if (iResult != 0) return exit_status::kFailed;
    const size_t nHosts = run.hosts.byKey.size();
    if (nHosts == 0 && !run.blQuerySent) return exit_status::kFailed;
    if (nHosts == 0 && isatty(STDERR_FILENO) == 1) messages::Say(pfnExplain());
    return nHosts == 0 || nHosts < WantedHosts(run.options) ? exit_status::kNotFound : exit_status::kDone;
}

}  // namespace

int Search(const Options &options, std::string (*pfnExplain)()) {
    const messages::NeverWait never;
    if (QIVENProcessKeyInit() != 0) {
        messages::Say("cannot create the process keys");
        return exit_status::kFailed;
    }
    QIVEN_LOG *pLog = messages::Record(options.blVerbose);
    Run run{options,
            iSignal,
            {options.interfaces, options.excludes, options.blAllInterfaces, pLog, {}},
            {options}};
    pRun = &run;
    Begin(run.report);
    CatchSignals();
    SetTimer(kTickMicroseconds);
    const QIVEN_CONN conn{"0.0.0.0", QIVEN_PORT, 0, OnCancel, pLog};
    const QIVEN_RECV callbacks{nullptr, nullptr, OnRecord, OnProgress};
    const int iResult = QIVENUDPServer(&conn, &callbacks, nullptr, nullptr);
    pRun = nullptr;
    QIVENProcessKeyCleanup();
    ClearLive(run.report);
    if (run.failure) std::rethrow_exception(run.failure);
    if (!Finish(run)) messages::Say("standard output was not read to the end: some hosts are not shown");
    SetTimer(0);
    return Status(run, iResult, pfnExplain);
}

}  // namespace qiven::find
