// A host's side: answers the queries of searchers with the host's record.
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
    Source source;
    Announcement announcement;
    Sender sender;
    Shared plain;
    Sealed sealed;
    bool blVerbose = false;
    bool blNeverSeal = false;
    bool blReady = false;
    bool blTimer = false;
    // Whatever strangers do, the log grows slowly.
    rate_limit::Bucket troubleLines{5, 1};
    uint64_t nUnsaid = 0;
};

Answerer state;  // the library's callbacks are given no context

volatile sig_atomic_t blStop = 0;
volatile sig_atomic_t blReload = 0;
timer_t wakeTimer;

// Ends the library's wait after so long, and again and again: one signal could come just before the wait.
// 0 stops it. May be called in a signal handler.
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

// Without SA_RESTART: a signal ends every wait.
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
    ++state.nUnsaid;
    if (!Take(state.troubleLines, rate_limit::Now())) return;
    try {
        const uint64_t nMore = state.nUnsaid - 1;
        Say(nMore == 0 ? std::string(line) : fmt::format("{} ({} more lines were left out)", line, nMore));
        state.nUnsaid = 0;
    } catch (const std::exception &) {  // it remains unsaid
    }
}

// The library lets no exception through. False when there was one.
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

// An answer that fails for lack of memory is tried again, as the plain one that all searchers share.
void Answer(const Searcher *pSearcher, Milliseconds now) {
    const bool blTried = Guard([&] {
        const std::string trouble = Send(state.sender, state.announcement, pSearcher, now);
        if (!trouble.empty()) SayTrouble(trouble);
    });
    if (!blTried) state.plain.blAsked = true;
}

// The searcher that a query names; nothing if it names none that an answer can be sealed for.
std::optional<Searcher> SearcherOf(const nasinfo &query) {
    const std::string_view key(query.szPubKeyHex, strnlen(query.szPubKeyHex, sizeof query.szPubKeyHex));
    Searcher searcher{query.ulProcessID, {}};
    if (query.ulProcessID == 0 || key.size() + 1 != searcher.szKeyHex.size() ||
        !std::all_of(key.begin(), key.end(), [](unsigned char c) { return isxdigit(c) != 0; }))
        return std::nullopt;
    std::copy(key.begin(), key.end(), searcher.szKeyHex.begin());
    return searcher;
}

// Queries of others only: answers never lead to answers, and own broadcasts come back.
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
    if (!announcement) return "bad configuration, kept the old one";
    state.announcement = *announcement;
    return "configuration read again";
}

void Reload(Milliseconds now) {
    Notify(fmt::format("RELOADING=1\nMONOTONIC_USEC={}", now * 1000));
    const char *szResult = "no memory, kept the old configuration";
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
    if (!Notify(ready)) Say("cannot tell the service manager that it is ready");
}

// The library asks this before each wait: everything that is not the answer to one packet happens here.
int OnPass() {
    if (!state.blReady) Guard(Begin);
    do {
        if (blStop != 0) return 1;
        const Milliseconds now = rate_limit::Now();
        if (blReload != 0) {
            blReload = 0;
            state.blTimer = true;  // the signal has set it
            Guard([&] { Reload(now); });
        }
        if (TakeDue(state.plain, now)) Answer(nullptr, now);
        const bool blTimer = state.plain.blAsked;
        if (blTimer != state.blTimer) Wake(blTimer ? state.plain.next - now : 0);
        state.blTimer = blTimer;
        // A signal that came before the timer was set lost its own setting of it.
    } while (blStop != 0 || blReload != 0);
    return 0;
}

// Draws the identifier of this process. The keys that come with it are not kept: no answer carries the public
// one, so no packet can be sealed for us, and without keys the library does not try to open those of others,
// which would take ten times as long as refusing any other packet.
bool DrawProcessID() {
    if (QIVENProcessKeyInit() != 0) return false;
    state.sender.ulProcessID = QIVENProcessGetID();
    return QIVENProcessKeyCleanup() == 0;
}

int Run() {
    const messages::NeverWait never;
    if (!DrawProcessID() || !CatchSignals()) {
        Say("cannot create the process identifier or the timer");
        return kNetwork;
    }
    QIVEN_LOG *pLog = state.sender.pLog = messages::Record(state.blVerbose);
    const QIVEN_CONN listen{"0.0.0.0", QIVEN_PORT, 0, OnPass, pLog};
    const QIVEN_RECV callbacks{nullptr, IsForUs, OnQuery, nullptr};
    const int iResult = QIVENUDPServer(&listen, &callbacks, nullptr, nullptr);
    Guard([] { Notify("STOPPING=1"); });
    if (iResult == 0) return kDone;
    Say(fmt::format("cannot listen on UDP port {}: {}", QIVEN_PORT, messages::TakeLast()));
    return kNetwork;
}

int Start(bool blCheckOnly) {
    if (state.source.path.empty() && !state.source.ulModel) state.source.path = kDefaultPath;
    std::vector<std::string> errors;
    const auto announcement = Load(state.source, errors);
    for (const std::string &error : errors)
        Say(error);
    if (!announcement) return kConfig;
    if (blCheckOnly) return kDone;
    state.announcement = *announcement;
    return Run();
}

}  // namespace

command_line::Subcommand Command() {
    static bool blCheckOnly = false;
    Source &source = state.source;
    return {.szHelp = "Answer the queries of searchers, as a host does",
            .options = {{.szNames = "--config",
                         .target = &source.path,
                         .help = fmt::format("What to announce (default {}, unless --model is given)",
                                             kDefaultPath),
                         .szValue = "FILE"},
                        {"--check-config", &blCheckOnly,
                         "Check the configuration and end: status 0, or 4 when it is bad"},
                        {"--name", &source.name, "Host name (default: this machine's)"},
                        {"--model", &source.ulModel, "Model number"},
                        {"--ident", &source.ident, "Text that identifies the host"},
                        {"--second", &source.ulSecond, "Second number of a host-list line (default 240)"},
                        {"--plain", &state.blNeverSeal, "Answer in clear, also when a query carries a key"},
                        {"--verbose", &state.blVerbose, "Show the library's messages, too"}},
            .run = [] { return Start(blCheckOnly); }};
}

}  // namespace qiven::answer
