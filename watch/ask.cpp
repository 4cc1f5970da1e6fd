// Asking: the rounds of a search from interface to interface, and interfaces that came in between.
#include <unistd.h>

#include <algorithm>

#include "clock.h"
#include "watch.h"

namespace qiven::watch {

namespace {

constexpr uint64_t kAlonePause = 400 * kMillisecond;

bool HasHosts(const QIVEN_WATCH &watch) {
    return watch.table.nHosts > 0;
}

void Finish(QIVEN_WATCH &watch, uint64_t ullNowUs) {
    QIVEN_WATCH_EVENT &round = watch.round;
    QIVEN_WATCH_EVENT &finished = watch.finished;
    if (!watch.blRoundOpen) return;
    watch.blRoundOpen = false;
    round.ullLost = watch.port.sockets.losses.ullLost - watch.ullLostBefore;
    finished.ulRound = round.ulRound;
    finished.nAsked = round.nAsked;
    finished.nNotAsked = round.nNotAsked;
    finished.nAnswers += round.nAnswers;
    finished.nNew += round.nNew;
    finished.ullLost += round.ullLost;
    PutOnce(watch.table.fresh, watch.roundOver, ullNowUs);
}

void BeginRound(QIVEN_WATCH &watch, uint64_t ullNowUs) {
    Finish(watch, ullNowUs);
    const uint32_t ulRound = watch.round.ulRound + 1;
    watch.round = {};
    watch.round.ulRound = watch.table.ulRound = ulRound;
    watch.ullLostBefore = watch.port.sockets.losses.ullLost;
    watch.ulAskedUpTo = 0;
    watch.blAsking = watch.blRoundOpen = true;
    if (!watch.port.blPlain) RefreshKeys(watch.port.keys);
    NoteQuery(watch.rounds, ullNowUs);
}

int AskBy(QIVEN_WATCH &watch, int fdSender, Interface &interface) {
    if (interface.nAsks > 0) --interface.nAsks;
    if (fdSender < 0) {
        NoteSent(watch.port.interfaces, interface, fdSender);
        return fdSender;
    }
    return SendBy(watch.port, fdSender, interface, watch.query, QIVEN_TO{});
}

// Goes on with the round under way, from interface to interface.
void AskMore(QIVEN_WATCH &watch, uint64_t ullUntilUs) {
    const int fdSender = OpenSender();
    while (watch.blAsking) {
        Interface *p = InterfaceAfter(watch.port.interfaces, watch.ulAskedUpTo);
        watch.blAsking = p != nullptr;
        if (p == nullptr) break;
        watch.ulAskedUpTo = p->shown.ulIfIndex;
        if (p->shown.ulState == QIVEN_INTERFACE_NO_ADDRESS) ++watch.round.nNotAsked;
        if (!IsUsed(*p)) continue;
        ++(AskBy(watch, fdSender, *p) == 0 ? watch.round.nAsked : watch.round.nNotAsked);
        if (NowUs() >= ullUntilUs) break;
    }
    if (fdSender >= 0) close(fdSender);
}

// An interface that came after the others were asked: at once, and once more.
uint64_t AloneDue(const QIVEN_WATCH &watch, Interface **ppInterface) {
    if (!watch.port.interfaces.blAsk) return kNever;
    const List &list = watch.port.interfaces.now;
    const bool blRoundsCome = !watch.rounds.blSettled && watch.rounds.nRounds < 2;
    uint64_t ullDueUs = kNever;
    for (uint32_t i = 0; i < list.n; ++i) {
        Interface &interface = list.rg[i];
        if (interface.nAsks == 0 || !IsUsed(interface) || (interface.nAsks == 1 && blRoundsCome)) continue;
        const uint64_t ullUs = interface.nAsks > 1 ? 0 : watch.ullAloneUs + kAlonePause;
        if (ullUs >= ullDueUs) continue;
        ullDueUs = ullUs;
        *ppInterface = &interface;
    }
    return ullDueUs;
}

void AskAlone(QIVEN_WATCH &watch, uint64_t ullUntilUs) {
    Interface *pInterface = nullptr;
    uint64_t ullNowUs = NowUs();
    const uint64_t ullDueUs = AloneDue(watch, &pInterface);
    watch.port.interfaces.blAsk &= pInterface != nullptr || watch.rounds.nRounds < 2;
    if (pInterface == nullptr || ullDueUs > ullNowUs) return;
    const int fdSender = OpenSender();
    for (; AloneDue(watch, &pInterface) <= ullNowUs && ullNowUs < ullUntilUs; ullNowUs = NowUs())
        if (pInterface != nullptr) AskBy(watch, fdSender, *pInterface);
    watch.ullAloneUs = ullNowUs;
    // Its hosts have as long to answer as the others had.
    if (!watch.rounds.blSettled) watch.rounds.ullQueryUs = ullNowUs;
    if (fdSender >= 0) close(fdSender);
}

}  // namespace

void StartSearch(QIVEN_WATCH &watch, uint64_t ullNowUs, uint64_t ullUntilUs) {
    TakeOut(watch.settled);
    Start(watch.rounds, ullNowUs);
    BeginRound(watch, ullNowUs);
    AskMore(watch, ullUntilUs);
}

void AskIfDue(QIVEN_WATCH &watch, uint64_t ullNowUs, uint64_t ullUntilUs) {
    watch.rounds.blBacklog = watch.port.sockets.inbox.nDatagrams > 0;
    if (!watch.blAsking && ullNowUs >= NextQueryUs(watch.rounds, HasHosts(watch)))
        BeginRound(watch, ullNowUs);
    if (watch.blAsking)
        AskMore(watch, ullUntilUs);
    else
        AskAlone(watch, ullUntilUs);
    if (watch.blAsking || ullNowUs < SettlesUs(watch.rounds, HasHosts(watch))) return;
    watch.rounds.blSettled = true;
    Finish(watch, ullNowUs);
    PutOnce(watch.table.fresh, watch.settled, ullNowUs);
}

uint64_t AskDueUs(const QIVEN_WATCH &watch) {
    Interface *pInterface = nullptr;
    if (watch.blAsking) return 0;
    return std::min({NextQueryUs(watch.rounds, HasHosts(watch)), SettlesUs(watch.rounds, HasHosts(watch)),
                     AloneDue(watch, &pInterface)});
}

}  // namespace qiven::watch
