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
#include "fields.h"
#include "find/host_table.h"
#include "find/query.h"
#include "find/report.h"
#include "find/watch.h"
#include "messages.h"
#include "text.h"

namespace qiven::find {

namespace {

constexpr double kTimeout = 10;
// Of a search that new hosts alone keep from ending.
constexpr double kTimeoutCrowd = 60;
// When nothing new has come for so long, all who can answer have. A segment where nobody has answered yet
// gets more time: disks spin up.
constexpr double kQuiet = 1.5;
constexpr double kQuietEmpty = 3;
constexpr unsigned int kRoundsMin = 2;
constexpr double kMissedQueries = 3.5;  // of --watch, before a host counts as vanished
constexpr double kLivePeriod = 0.2;
// A row costs many times what an answer does. The socket has room for what comes in while so many are written
// at once; when a burst brings more, the rest wait for its end, at most so long. Writing each at once would
// let the socket overflow, and always at the cost of the same late hosts.
constexpr unsigned int kRowsAtOnce = 32;
constexpr double kRowsWait = 0.1;
// Answers closer together than this are one burst; a query waits for its end, but not forever.
constexpr double kPauseMin = 0.3;
constexpr size_t kSocketHolds = 150;  // answers, in the buffer of 64 KB that the library asks for
constexpr double kBurstGap = 0.1;
constexpr double kBurstWait = 6;
constexpr suseconds_t kTickMicroseconds = 20000;

struct Run {
    const Options &options;
    Asker asker;
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
    bool blHeard = false;           // an answer came in this pass
    unsigned int nRounds = 0;
    bool blAsked = false;  // a query was sent
    bool blSaidFull = false;
    bool blSaidMemory = false;
    Teller teller{};
};

Run *pRun = nullptr;
volatile sig_atomic_t iSignal = 0;

void OnSignal(int iNumber) {
    iSignal = iNumber;
}
// The timer only has to end the library's wait.
void OnTick(int) {
}

double Seconds(Clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}
Clock::duration ToDuration(double dSeconds) {
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(dSeconds));
}

uint64_t Wanted(const Options &options) {
    return std::max(options.count.value_or(0), options.expect.value_or(0));
}

// While queries bring new hosts, or more than one burst of answers has room, some are being lost: the next
// query follows as soon as "qiven answer" lets this asker ask again. The second comes soon in any case; later
// ones are rarer.
double PauseAfter(const Run &run) {
    if (run.options.blWatch && run.nRounds >= kRoundsMin) return run.options.dInterval;
    if (run.lastNew > run.lastQuery || run.hosts.byKey.size() > kSocketHolds) return kPauseMin;
    return run.nRounds < 3 ? 0.6 : 1.5;
}

// Asking into a burst of answers would only double it, and the socket holds some hundred: a large segment's
// answers are let in first. A flood of forged answers would put the next query off for ever.
bool IsQueryDue(const Run &run) {
    if (run.nRounds == 0) return true;
    const auto now = Clock::now();
    const bool blBurst = now - run.lastHeard < ToDuration(kBurstGap) && !run.hosts.blWasFull;
    return now - run.lastQuery >= ToDuration(std::max(PauseAfter(run), blBurst ? kBurstWait : 0));
}

void AskAll(Run &run) {
    // Counted first, so that a query without memory for it counts as a round.
    const bool blFirst = run.nRounds++ == 0;
    run.lastQuery = Clock::now();
    const Asked asked = Ask(run.asker);
    run.blAsked = run.blAsked || asked.nSent > 0;
    run.blNoInterface = asked.blNone && blFirst && !run.options.blWatch;
}

// Seconds until the run ends if nothing new comes; below 0 when it does not.
double TimeLeft(const Run &run) {
    const Options &options = run.options;
    const auto now = Clock::now();
    const bool blQuietEnds = !options.expect && !run.hosts.byKey.empty();
    const double dDefault = blQuietEnds ? kTimeoutCrowd : kTimeout;
    const double dLimit = options.timeout.value_or(dDefault) - Seconds(now - run.start);
    if (options.blWatch) return options.timeout ? std::max(dLimit, 0.0) : -1;
    if (options.expect) return std::max(dLimit, 0.0);
    // The second query would be for nothing if the burst that held it back had used its answers' time up.
    const bool blHeldBack = run.nRounds == kRoundsMin && run.lastQuery - run.lastNew > ToDuration(kQuiet);
    const double dQuiet = (run.hosts.byKey.empty() ? kQuietEmpty : kQuiet) -
                          Seconds(now - (blHeldBack ? run.lastQuery : run.lastNew));
    return std::max(std::min(dLimit, run.nRounds < kRoundsMin ? dLimit : dQuiet), 0.0);
}

bool IsOver(const Run &run) {
    if (iSignal != 0 || run.failure || run.blNoInterface) return true;
    const uint64_t ullWanted = Wanted(run.options);
    if (ullWanted > 0 && run.hosts.byKey.size() >= ullWanted) return true;
    // However short the time and busy the machine, the search asks once.
    return run.nRounds > 0 && TimeLeft(run) == 0;
}

void TellRest(Run &run) {
    const double dPatience = kMissedQueries * std::max(run.options.dInterval, 1.0);
    TellRest(run.teller, run.report, run.hosts, Clock::now() - ToDuration(dPatience));
}

// As many as standard output takes without waiting.
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
        ClearLive(run.report);  // asking may print a message
        AskAll(run);
    }
    if (now - run.lastLive < ToDuration(kLivePeriod)) return;
    run.lastLive = now;
    output::EndWithoutReader();
    IsReady(run.report);
    if (run.options.blWatch) TellRest(run);
    ShowLive(run.report, run.hosts.byKey.size(), TimeLeft(run));
}

bool Contains(const std::vector<uint32_t> &list, uint32_t ulValue) {
    return std::find(list.begin(), list.end(), ulValue) != list.end();
}

bool HasService(const nasinfo &record, uint32_t ulService) {
    return QIVENNasinfoServSuppGet(nullptr, &record, ulService) == 1 ||
           QIVENNasinfoServRunGet(nullptr, &record, ulService) == 1;
}

// Our own broadcast and other searchers' come in, too; only what describes a host counts.
bool IsWantedHost(const Options &options, const nasinfo &record) {
    const uint32_t ulType = record.ulPktType;
    if (ulType != QIVEN_PKT_ANSWER && ulType != QIVEN_PKT_ANSWER_INST) return false;
    if (!options.types.empty() && !Contains(options.types, ulType)) return false;
    if (!options.models.empty() && !Contains(options.models, record.ulModel)) return false;
    if (!std::all_of(options.services.begin(), options.services.end(),
                     [&record](uint32_t ulService) { return HasService(record, ulService); }))
        return false;
    const std::string name = fields::Text(record, *fields::ByName("name"));
    return options.names.empty() ||
           std::any_of(options.names.begin(), options.names.end(),
                       [&name](const auto &pattern) { return text::Matches(pattern, name, true); });
}

void SayFull(Run &run) {
    if (!run.hosts.blWasFull || run.blSaidFull) return;
    run.blSaidFull = true;
    ClearLive(run.report);
    messages::Say(
        fmt::format("more hosts than are kept: the table is full with {}, and somebody may be forging "
                    "answers; from now on a host must answer two queries to be shown",
                    run.hosts.byKey.size()));
}

// Its row, now or when the burst that it came in is over.
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
        TellNow(run.teller, run.report, *pHost);
    } else if (heard == Heard::kNew) {
        ShowSoon(run, *pHost);
    }
}

// The library lets no exception through, so they wait until it has returned. Without memory for it, one
// answer or query is lost, and there will be others.
template <typename Function>
void Guard(Function function) {
    try {
        function(*pRun);
    } catch (const std::bad_alloc &) {
        if (!pRun->blSaidMemory) messages::Say("not enough memory: an answer or a query was left out");
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

// A second Ctrl-C ends the process at once, whatever it waits for. Without the ticks, which a parent may have
// blocked, it would wait too long for everything.
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

// Writes what is left, for --watch as much as its rate allows. The ticks go on, so that a write to a reader
// that sleeps can be given up.
bool Finish(Run &run) {
    do {
        if (!Drain(run.report, iSignal)) return false;
        if (run.options.blWatch) TellRest(run);
    } while (run.teller.blBehind && !IsReady(run.report));
    for (; run.nShown < run.unshown.size(); ++run.nShown) {
        if (!Drain(run.report, iSignal)) return false;
        Found(run.report, *run.unshown[run.nShown]);
    }
    return End(run.report, run.hosts, iSignal);
}

// The library does not say why it has no socket.
std::string WhyNotListening() {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd == -1) return strerror(errno);
    close(fd);
    return messages::TakeLast();
}

int Status(const Run &run, int iResult, std::string (*pfnExplain)()) {
    constexpr int kShellSignalBase = 128;
    if (iSignal != 0) return kShellSignalBase + iSignal;
    if (run.blNoInterface) return kNetwork;
    if (iResult != 0 && !run.blListening) {
        messages::Say(fmt::format("cannot listen on UDP port {}: {}", QIVEN_PORT, WhyNotListening()));
        return kNetwork;
    }
    if (iResult != 0) return kNetwork;
    const size_t nHosts = run.hosts.byKey.size();
    if (nHosts == 0 && !run.blAsked) return kNetwork;
    if (nHosts == 0 && isatty(STDERR_FILENO) == 1) messages::Say(pfnExplain());
    return nHosts == 0 || nHosts < Wanted(run.options) ? kNothing : kDone;
}

}  // namespace

int Search(const Options &options, std::string (*pfnExplain)()) {
    const messages::NeverWait never;
    if (QIVENProcessKeyInit() != 0) {
        messages::Say("cannot make the keys of this process");
        return kNetwork;
    }
    QIVEN_LOG *pLog = messages::Record(options.blVerbose);
    Run run{options, {options.interfaces, options.excludes, options.blAllInterfaces, pLog, {}}, {options}};
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
    if (!Finish(run))
        messages::Say("standard output was not read to the end: not all that was found is shown");
    SetTimer(0);
    return Status(run, iResult, pfnExplain);
}

}  // namespace qiven::find
