// A host's side: answers the queries of searchers with the host's record.
#include <qiven/keys.h>
#include <qiven/udp.h>

#include <fmt/format.h>
#include <signal.h>
#include <time.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cctype>
#include <functional>

#include "answer_config.h"
#include "answer_limits.h"
#include "answer_send.h"
#include "commands.h"
#include "exit.h"
#include "notify.h"
#include "text.h"

namespace qiven {

namespace {

using limits::Milliseconds;

constexpr const char *kDefaultPath = "/etc/qiven/answer.toml";

struct Answerer {
    answer::Source source;
    answer::Announcement announcement;
    answer::Cards cards;
    limits::Shared plain;
    limits::Sealed sealed;
    bool blVerbose = false;
    bool blNeverSeal = false;
    bool blListening = false;
    bool blTimer = false;
    // Whatever strangers do, the log grows slowly.
    limits::Bucket troubleLines{5, 1};
    limits::Bucket libraryLines{20, 5};
    uint64_t nUnsaid = 0;
    std::string libraryMessage;  // the last one before there was anything to answer
};

Answerer state;  // the library's callbacks are given no context

volatile sig_atomic_t blStop = 0;
volatile sig_atomic_t blReload = 0;
timer_t wakeTimer;

Milliseconds Now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return Milliseconds{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

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

bool CatchSignals() {
    struct sigaction action {};
    action.sa_handler = OnSignal;
    action.sa_flags = SA_RESTART;
    sigevent event{};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGALRM;
    if (timer_create(CLOCK_MONOTONIC, &event, &wakeTimer) != 0) return false;
    constexpr std::array kSignals = {SIGALRM, SIGHUP, SIGINT, SIGTERM};
    return std::all_of(kSignals.begin(), kSignals.end(),
                       [&](int iSignal) { return sigaction(iSignal, &action, nullptr) == 0; });
}

void Say(const std::string &line) {
    fmt::print(stderr, "qiven answer: {}\n", line);
}

void SayTrouble(const std::string &line, Milliseconds now) {
    if (!Take(state.troubleLines, now)) {
        ++state.nUnsaid;
        return;
    }
    Say(state.nUnsaid == 0 ? line : fmt::format("{} ({} more lines were left out)", line, state.nUnsaid));
    state.nUnsaid = 0;
}

int OnLibraryMessage(const char *szMessage) {
    std::string message = szMessage;
    if (!message.empty() && message.back() == '\n') message.pop_back();
    if (!state.blListening) {
        state.libraryMessage = text::Escape(message);
    } else if (state.blVerbose && Take(state.libraryLines, Now())) {
        Say(text::Escape(message));
    }
    return 0;
}

void Answer(const answer::Recipient *pRecipient, Milliseconds now) {
    std::string trouble;
    answer::Send(state.cards, state.announcement, pRecipient, now, trouble);
    if (!trouble.empty()) SayTrouble(trouble, now);
}

bool IsKey(const nasinfo &query) {
    const std::string_view key(query.szPubKeyHex, strnlen(query.szPubKeyHex, sizeof query.szPubKeyHex));
    return query.ulProcessID != 0 && key.size() == QIVEN_KEY_HEX_SIZE - 1 &&
           std::all_of(key.begin(), key.end(), [](unsigned char c) { return isxdigit(c) != 0; });
}

// Queries of others only: answers never lead to answers, and own broadcasts come back.
int IsForUs(nasinfo *pQuery) {
    return pQuery->ulPktType == QIVEN_PKT_QUERY && pQuery->ulProcessID != QIVENProcessGetID() ? 1 : 0;
}

int OnQuery(nasinfo *pQuery) {
    const Milliseconds now = Now();
    if (state.blNeverSeal || !IsKey(*pQuery)) {
        state.plain.blAsked = true;
        return 0;
    }
    const answer::Recipient asker{pQuery->ulProcessID, pQuery->szPubKeyHex};
    switch (Admit(state.sealed, asker.ulProcessID, asker.keyHex, now)) {
        case limits::Verdict::kSeal:
            Answer(&asker, now);
            break;
        case limits::Verdict::kTooMany:
            state.plain.blAsked = true;
            break;
        case limits::Verdict::kAnswered:
            break;
    }
    return 0;
}

void Reload(Milliseconds now) {
    answer::Notify(fmt::format("RELOADING=1\nMONOTONIC_USEC={}", now * 1000));
    std::vector<std::string> errors;
    const auto announcement = answer::Load(state.source, errors);
    for (const std::string &error : errors)
        Say(error);
    if (announcement) state.announcement = *announcement;
    const char *szResult = announcement ? "configuration read again" : "bad configuration, kept the old one";
    Say(szResult);
    answer::Notify(fmt::format("READY=1\nSTATUS={}", szResult));
}

void Begin() {
    state.blListening = true;
    const std::string line = fmt::format("answering as \"{}\" on UDP port {}",
                                         text::Escape(state.announcement.record.szHostName), QIVEN_PORT);
    Say(line);
    if (!answer::Notify("READY=1\nSTATUS=" + line)) Say("cannot tell the service manager that it is ready");
}

// The library asks this before each wait: everything that is not the answer to one packet happens here.
int OnPass() {
    if (!state.blListening) Begin();
    do {
        if (blStop != 0) return 1;
        const Milliseconds now = Now();
        if (blReload != 0) {
            blReload = 0;
            state.blTimer = true;  // the signal has set it
            Reload(now);
        }
        if (TakeDue(state.plain, now)) Answer(nullptr, now);
        const bool blTimer = state.plain.blAsked;
        if (blTimer != state.blTimer) Wake(blTimer ? state.plain.next - now : 0);
        state.blTimer = blTimer;
        // A signal that came before the timer was set lost its own setting of it.
    } while (blStop != 0 || blReload != 0);
    return 0;
}

int Run() {
    if (QIVENProcessKeyInit() != 0 || !CatchSignals()) {
        Say("cannot make keys or a timer");
        return kNetwork;
    }
    QIVEN_LOG log{};
    QIVENLogFuncSet(&log, QIVEN_LOG_ERR, OnLibraryMessage);
    const QIVEN_CONN listen{"0.0.0.0", QIVEN_PORT, 0, OnPass, &log};
    const QIVEN_RECV callbacks{nullptr, IsForUs, OnQuery, nullptr};
    const int iResult = QIVENUDPServer(&listen, &callbacks, nullptr, nullptr);
    answer::Notify("STOPPING=1");
    QIVENProcessKeyCleanup();
    if (iResult == 0) return kDone;
    Say(fmt::format("cannot listen on UDP port {}: {}", QIVEN_PORT, state.libraryMessage));
    return kNetwork;
}

int Start(bool blCheckOnly) {
    std::vector<std::string> errors;
    const auto announcement = answer::Load(state.source, errors);
    for (const std::string &error : errors)
        Say(error);
    if (!announcement) return kConfig;
    if (blCheckOnly) return kDone;
    state.announcement = *announcement;
    return Run();
}

}  // namespace

void RegisterAnswer(CLI::App &app, std::function<int()> &run) {
    static bool blCheckOnly = false;
    answer::Source &source = state.source;
    CLI::App *pSub = app.add_subcommand("answer", "Answer the queries of searchers, as a host does");
    pSub->add_option("--config", source.path,
                     fmt::format("What to announce (default {}, unless --model is given)", kDefaultPath))
        ->type_name("FILE");
    pSub->add_flag("--check-config", blCheckOnly,
                   "Check the configuration and end: status 0, or 4 when it is bad");
    pSub->add_option("--name", source.name, "Host name (default: this machine's)");
    pSub->add_option("--model", source.ulModel, "Model number");
    pSub->add_option("--ident", source.ident, "Text that identifies the host");
    pSub->add_option("--second", source.ulSecond, "Second number of a host-list line (default 240)");
    pSub->add_flag("--plain", state.blNeverSeal, "Answer in clear, also when a query carries a key");
    pSub->add_flag("--verbose", state.blVerbose, "Show the library's messages, too");
    pSub->callback([&run] {
        if (source.path.empty() && !source.ulModel) source.path = kDefaultPath;
        run = [] { return Start(blCheckOnly); };
    });
}

}  // namespace qiven
