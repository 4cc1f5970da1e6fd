// The subcommand: answers the queries of searchers with the record of this host.
#include <qiven/keys.h>
#include <qiven/udp.h>

#include <fmt/format.h>

#include <signal.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <exception>
#include <functional>
#include <new>
#include <optional>

#include "answer/config.h"
#include "answer/limits.h"
#include "answer/notify.h"
#include "answer/send.h"
#include "commands.h"
#include "exit_status.h"
#include "messages.h"
#include "rate_limit.h"
#include "text.h"

namespace qiven::answer {

namespace {

using rate_limit::Milliseconds;

constexpr const char *kDefaultPath = "/etc/qiven/answer.toml";

struct Answerer {
    ConfigSource source;
    Announcement announcement;
    Sender sender;
    SharedAnswer plain;
    SealedAnswers sealed;
    bool blVerbose = false;
    bool blNeverSeal = false;
    bool blReady = false;
    bool blTimer = false;
    // However many packets arrive, the log grows slowly.
    rate_limit::Bucket troubleLines{5, 1};
    uint64_t nOmitted = 0;
};

Answerer state;  // the callbacks of the library have no context

volatile sig_atomic_t blStop = 0;
volatile sig_atomic_t blReload = 0;
timer_t wakeTimer;

// Interrupts the wait of the library after this time, repeatedly, since a single signal could arrive just
// before the wait. 0 stops the timer. Can be called in a signal handler.
void Wake(Milliseconds in) {
    constexpr long kAgain = 10'000'000;
    itimerspec spec{};
    if (in > 0) spec = {{0, kAgain}, {in / 1000, static_cast<long>(in % 1000) * 1'000'000}};
    timer_settime(wakeTimer, 0, &spec, nullptr);
}

void OnSignal(int iSignal) {
    if (iSignal == SIGALRM) return;
    (iSignal == SIGHUP ? blReload : blStop) = 1;
    Wake(1);
}

// Without SA_RESTART, so that a signal interrupts every wait.
bool CatchSignals() {
    struct sigaction action {};
    action.sa_handler = OnSignal;
    sigevent event{};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGALRM;
    if (timer_create(CLOCK_MONOTONIC, &event, &wakeTimer) != 0) return false;
    constexpr std::array kSignals = {SIGALRM, SIGHUP, SIGINT, SIGTERM};
    return std::all_of(kSignals.begin(), kSignals.end(),
                       [&](int iSignal) { return sigaction(iSignal, &action, nullptr) == 0; });
}

void Say(std::string_view line) {
    messages::Say(line, "answer");
}

void SayTrouble(std::string_view line) noexcept {
    ++state.nOmitted;
    if (!Take(state.troubleLines, rate_limit::Now())) return;
    try {
        const uint64_t nMore = state.nOmitted - 1;
        Say(nMore == 0 ? std::string(line) : fmt::format("{} ({} more lines were omitted)", line, nMore));
        state.nOmitted = 0;
    } catch (const std::exception &) {  // the next line counts it
    }
}

// An exception must not pass through the library. False if there was one.
template <typename Function>
bool Guard(Function function) {
    try {
        function();
        return true;
    } catch (const std::bad_alloc &) {
        SayTrouble("out of memory");
    } catch (const std::exception &error) {
        SayTrouble(error.what());
    }
    return false;
}

// If memory runs out, the plain answer that all searchers share is sent later.
void Answer(const Searcher *pSearcher, Milliseconds now) {
    const bool blTried = Guard([&] {
        const std::string trouble = Send(state.sender, state.announcement, pSearcher, now);
        if (!trouble.empty()) SayTrouble(trouble);
    });
    if (!blTried) state.plain.blAsked = true;
}

// The searcher of a query; empty if an answer cannot be sealed for it.
std::optional<Searcher> SearcherOf(const nasinfo &query) {
    const std::string_view key(query.szPubKeyHex, strnlen(query.szPubKeyHex, sizeof query.szPubKeyHex));
    Searcher searcher{query.ulProcessID, {}};
    if (query.ulProcessID == 0 || key.size() + 1 != searcher.szKeyHex.size() ||
        !std::all_of(key.begin(), key.end(), [](unsigned char c) { return isxdigit(c) != 0; }))
        return std::nullopt;
    std::copy(key.begin(), key.end(), searcher.szKeyHex.begin());
    return searcher;
}

// Only queries of other processes: an answer must not cause an answer, and own broadcasts come back.
int IsForUs(nasinfo *pQuery) {
    return pQuery->ulPktType == QIVEN_PKT_QUERY && pQuery->ulProcessID != state.sender.ulProcessID ? 1 : 0;
}

int OnQuery(nasinfo *pQuery) {
    const Milliseconds now = rate_limit::Now();
    const auto searcher = state.blNeverSeal ? std::nullopt : SearcherOf(*pQuery);
    const Admission admission = searcher ? Admit(state.sealed, *searcher, now) : Admission::kTooMany;
    if (admission == Admission::kTooMany) state.plain.blAsked = true;
    if (admission == Admission::kSeal) Answer(&*searcher, now);
    return 0;
}

const char *LoadAgain() {
    std::vector<std::string> errors;
    const auto announcement = Load(state.source, errors);
    for (const std::string &error : errors)
        Say(error);
    if (!announcement) return "bad configuration: the previous one stays in use";
    state.announcement = *announcement;
    return "configuration reloaded";
}

void Reload(Milliseconds now) {
    Notify(fmt::format("RELOADING=1\nMONOTONIC_USEC={}", now * 1000));
    const char *szResult = "not enough memory: the previous configuration stays in use";
    Guard([&] { szResult = LoadAgain(); });
    Say(szResult);
    Notify(fmt::format("READY=1\nSTATUS={}", szResult));
}

void Begin() {
    const std::string line =
        fmt::format("answering as \"{}\" on {}, UDP port {}", state.announcement.record.szHostName,
                    Outlets(state.sender, rate_limit::Now()), QIVEN_PORT);
    const std::string ready = "READY=1\nSTATUS=" + text::Escape(line);
    state.blReady = true;
    Say(line);
    if (!Notify(ready)) Say("cannot notify the service manager");
}

// The library calls this before each wait. Everything but the answer to a packet happens here.
int OnPass() {
    if (!state.blReady) Guard(Begin);
    do {
        if (blStop != 0) return 1;
        const Milliseconds now = rate_limit::Now();
        if (blReload != 0) {
            blReload = 0;
            state.blTimer = true;  // set by the signal handler
            Guard([&] { Reload(now); });
        }
        if (TakeDue(state.plain, now)) Answer(nullptr, now);
        const bool blTimer = state.plain.blAsked;
        if (blTimer != state.blTimer) Wake(blTimer ? state.plain.next - now : 0);
        state.blTimer = blTimer;
        // If a signal arrived before Wake(), Wake() has replaced the setting of its handler.
    } while (blStop != 0 || blReload != 0);
    return 0;
}

// Creates the identifier of this process. The keys that are created with it are not kept: no answer carries
// the public key, so no packet can be sealed for this process, and without keys the library does not try to
// open sealed packets, which takes ten times as long as refusing any other packet.
bool CreateProcessID() {
    if (QIVENProcessKeyInit() != 0) return false;
    state.sender.ulProcessID = QIVENProcessGetID();
    return QIVENProcessKeyCleanup() == 0;
}

int Run() {
    const messages::NeverWait never;
    if (!CreateProcessID() || !CatchSignals()) {
        Say("cannot create the process identifier or the timer");
        return exit_status::kFailed;
    }
    QIVEN_LOG *pLog = state.sender.pLog = messages::Record(state.blVerbose);
    const QIVEN_CONN listen{"0.0.0.0", QIVEN_PORT, 0, OnPass, pLog};
    const QIVEN_RECV callbacks{nullptr, IsForUs, OnQuery, nullptr};
    const int iResult = QIVENUDPServer(&listen, &callbacks, nullptr, nullptr);
    Guard([] { Notify("STOPPING=1"); });
    if (iResult == 0) return exit_status::kDone;
    Say(fmt::format("cannot listen on UDP port {}: {}", QIVEN_PORT, messages::TakeLast()));
    return exit_status::kFailed;
}

int Start(bool blCheckOnly) {
    if (state.source.path.empty() && !state.source.ulModel) state.source.path = kDefaultPath;
    std::vector<std::string> errors;
    const auto announcement = Load(state.source, errors);
    for (const std::string &error : errors)
        Say(error);
    if (!announcement) return exit_status::kBadConfiguration;
    if (blCheckOnly) return exit_status::kDone;
    state.announcement = *announcement;
    return Run();
}

}  // namespace

command_line::Subcommand Command() {
    static bool blCheckOnly = false;
    ConfigSource &source = state.source;
    return {.szHelp = "Answer the queries of searchers, as a host",
            .options = {{.szNames = "--config",
                         .target = &source.path,
                         .help = fmt::format("Configuration file (default {}, unless --model is given)",
                                             kDefaultPath),
                         .szValue = "FILE"},
                        {"--check-config", &blCheckOnly,
                         "Check the configuration and exit: status 0, or 4 if it is bad"},
                        {"--name", &source.name, "Host name (default: this machine's)"},
                        {"--model", &source.ulModel, "Model number"},
                        {"--ident", &source.ident, "Host identifier"},
                        {"--second", &source.ulSecond, "Second number of a host-list line (default 240)"},
                        {"--plain", &state.blNeverSeal, "Do not seal answers, even if a query carries a key"},
                        {"--verbose", &state.blVerbose, "Show the library's messages"}},
            .run = [] { return Start(blCheckOnly); }};
}

}  // namespace qiven::answer
