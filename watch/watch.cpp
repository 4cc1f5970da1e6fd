#include "watch.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <new>

#include "clock.h"

namespace qiven::watch {

namespace {

constexpr uint64_t kDispatchTime = 8 * kMillisecond;
constexpr uint64_t kSliceTime = kMillisecond;  // then the sockets are emptied again
constexpr uint64_t kEmptyTime = 2 * kMillisecond;
constexpr uint64_t kBetweenEmptyings = kMillisecond;  // while events are taken
constexpr unsigned kVanishAtOnce = 4096;

constexpr uint32_t kLimitMs = 60000, kChangeMs = 1000;
constexpr uint64_t kMemoryMax = uint64_t{64} << 20;

void NoteAnswer(QIVEN_WATCH &watch, Heard heard, uint64_t ullMonotonicUs) {
    watch.rounds.ullHeardUs = std::max(watch.rounds.ullHeardUs, ullMonotonicUs);
    ++watch.round.nAnswers;
    if (heard == Heard::kLeftOut) watch.rounds.blNews = watch.rounds.blCrowded = true;
    if (heard != Heard::kNew) return;
    ++watch.round.nNew;
    watch.rounds.ullNewUs = std::max(watch.rounds.ullNewUs, ullMonotonicUs);
    watch.rounds.blNews = true;
}

void Listen(QIVEN_WATCH &watch, uint64_t ullUntilUs) {
    Table &table = watch.table;
    Datagram datagram;
    QIVEN_RECEIVED received;
    const unsigned char *pb = nullptr;
    Pace pace{ullUntilUs};
    while (!pace.IsOver(watch.port.blOpened) && TakeFirst(watch.port.sockets.inbox, datagram, pb)) {
        const uint64_t ullDatagram = SipHash(table.key, pb, datagram.cb);
        if (HearAgain(table, datagram, ullDatagram))
            NoteAnswer(watch, Heard::kAgain, datagram.ullArrivedUs);
        else if (Read(watch.port, datagram, pb, received))
            NoteAnswer(watch, AddAnswer(table, received, ullDatagram), datagram.ullArrivedUs);
    }
}

// Empties the sockets and reads what came, in turns: reading takes longer than a burst leaves.
void Hear(QIVEN_WATCH &watch, uint64_t ullUntilUs) {
    uint64_t ullNowUs = NowUs();
    do {
        Work(watch.port, std::min(ullUntilUs, ullNowUs + kEmptyTime));
        // An interface that has changed may put the same answer into another light.
        if (watch.port.interfaces.nChanges != watch.nInterfaceChanges) Forget(watch.table.known);
        watch.nInterfaceChanges = watch.port.interfaces.nChanges;
        ullNowUs = NowUs();
        Listen(watch, std::min(ullUntilUs, ullNowUs + kSliceTime));
        ullNowUs = NowUs();
    } while (watch.port.sockets.inbox.nDatagrams > 0 && ullNowUs < ullUntilUs);
}

void NoteCounts(QIVEN_WATCH &watch, uint64_t ullNowUs) {
    NodeQueue &ready = watch.table.ready;
    if (watch.port.sockets.losses.ullLost != watch.ullLostTold) {
        watch.rounds.blNews |= watch.port.sockets.losses.ullLost != watch.ullLostBefore;
        PutOnce(ready, watch.lost, ullNowUs);
    }
    if (watch.table.ullLeftOut != watch.ullLeftOutTold) PutOnce(ready, watch.full, ullNowUs);
    if (watch.port.interfaces.blTell) PutOnce(ready, watch.interfaces, ullNowUs);
}

void Dispatch(QIVEN_WATCH &watch) {
    const uint64_t ullUntilUs = NowUs() + kDispatchTime;
    FreeTaken(watch);
    Hear(watch, ullUntilUs);
    const uint64_t ullNowUs = NowUs();
    NoteCounts(watch, ullNowUs);
    VanishSilent(watch.table, ullNowUs, kVanishAtOnce);
    ReleaseHeld(watch.table, ullNowUs);
    AskIfDue(watch, ullNowUs, std::max(ullUntilUs, ullNowUs + kSliceTime));
    ArmWatch(watch);
}

uint64_t DueOf(const QIVEN_WATCH &watch) {
    if (NextNode(watch.table) != nullptr) return 0;
    return std::min({DueOf(watch.port), DueOf(watch.table), AskDueUs(watch)});
}

void Configure(QIVEN_WATCH &watch, const QIVEN_WATCH_CONF &conf) {
    const auto Or = [](auto value, auto otherwise) { return value != 0 ? value : otherwise; };
    watch.port.blPlain = (conf.ulFlags & QIVEN_WATCH_PLAIN) != 0;
    watch.port.ulTypes = Or(conf.ulTypes, 1U << QIVEN_PKT_ANSWER | 1U << QIVEN_PKT_ANSWER_INST);
    watch.rounds.ullPeriodUs = conf.ulQueryMs * kMillisecond;
    watch.rounds.ullLimitUs = Or(conf.ulLimitMs, kLimitMs) * kMillisecond;
    watch.table.blAsks = conf.ulQueryMs > 0;
    watch.table.ullVanishUs = conf.ulVanishMs * kMillisecond;
    watch.table.ullChangeUs = Or(conf.ulChangeMs, kChangeMs) * kMillisecond;
    watch.table.nHostsMax = std::min<uint32_t>(Or(conf.nHostsMax, UINT32_MAX), QIVEN_WATCH_HOSTS_MAX);
    watch.table.budget.cbMax = Or(conf.cbMemoryMax, kMemoryMax);
    watch.query.pnasInfo = &watch.queryRecord;
    watch.queryRecord.ulPktType = QIVEN_PKT_QUERY;
    watch.queryRecord.ulFieldA4 = QIVEN_FIELD_A4_VQX20;
    QIVENSendPktIDAdd(nullptr, &watch.query, 0x01U, 0xA4U, 0U);
}

}  // namespace

bool IsUsable(const QIVEN_WATCH *pWatch) {
    return pWatch != nullptr && pWatch->port.pid == getpid();
}

void ArmWatch(QIVEN_WATCH &watch) {
    Arm(watch.port, DueOf(watch));
}

}  // namespace qiven::watch

using namespace qiven::watch;

int QIVENWatchOpen(QIVEN_WATCH **ppWatch, const QIVEN_WATCH_CONF *pConf) {
    QIVEN_WATCH_CONF conf{};
    if (ppWatch == nullptr) return -EINVAL;
    *ppWatch = nullptr;
    if (pConf != nullptr) CopySized(&conf, sizeof conf, pConf, pConf->cbSize);
    void *p = malloc(sizeof(QIVEN_WATCH));
    if (p == nullptr) return -ENOMEM;
    auto *pWatch = new (p) QIVEN_WATCH;
    Configure(*pWatch, conf);
    int iResult = InitTable(pWatch->table);
    if (iResult == 0) iResult = OpenPort(pWatch->port, conf.pfnInterface, conf.pvUser);
    if (iResult != 0) {
        FreeTable(pWatch->table);
        free(p);
        return iResult;
    }
    QIVENWatchQuery(pWatch);
    *ppWatch = pWatch;
    return 0;
}

int QIVENWatchFd(const QIVEN_WATCH *pWatch) {
    return pWatch != nullptr ? pWatch->port.fdEpoll : -EINVAL;
}

int QIVENWatchTimeout(QIVEN_WATCH *pWatch) {
    if (!IsUsable(pWatch)) return -1;
    const uint64_t ullDueUs = DueOf(*pWatch);
    const uint64_t ullNowUs = NowUs();
    if (ullDueUs == kNever) return -1;
    if (ullDueUs <= ullNowUs) return 0;
    return static_cast<int>(
        std::min<uint64_t>((ullDueUs - ullNowUs + kMillisecond - 1) / kMillisecond, INT_MAX));
}

int QIVENWatchDispatch(QIVEN_WATCH *pWatch) {
    if (!IsUsable(pWatch)) return -EINVAL;
    Dispatch(*pWatch);
    return 0;
}

const QIVEN_WATCH_EVENT *QIVENWatchNext(QIVEN_WATCH *pWatch) {
    if (!IsUsable(pWatch)) return nullptr;
    FreeTaken(*pWatch);
    // Whatever the caller does with an event, the sockets are emptied meanwhile.
    const uint64_t ullNowUs = NowUs();
    if (ullNowUs >= pWatch->port.ullEmptiedUs + kBetweenEmptyings) Work(pWatch->port, ullNowUs + kEmptyTime);
    const bool blTaken = TakeEvent(*pWatch);
    ArmWatch(*pWatch);
    return blTaken ? &pWatch->event : nullptr;
}

int QIVENWatchQuery(QIVEN_WATCH *pWatch) {
    if (!IsUsable(pWatch)) return -EINVAL;
    const uint64_t ullNowUs = NowUs();
    FreeTaken(*pWatch);
    StartSearch(*pWatch, ullNowUs, ullNowUs + kDispatchTime);
    ArmWatch(*pWatch);
    return 0;
}

const QIVEN_WATCH_HOST *QIVENWatchHost(QIVEN_WATCH *pWatch, uint32_t ulAfter) {
    if (!IsUsable(pWatch)) return nullptr;
    FreeTaken(*pWatch);
    Host *pHost = HostAfter(pWatch->table, ulAfter);
    return pHost != nullptr ? Show(pWatch->table, *pHost, pWatch->rgRecord[0]) : nullptr;
}

const QIVEN_INTERFACE *QIVENWatchInterface(QIVEN_WATCH *pWatch, uint32_t ulAfter) {
    if (!IsUsable(pWatch)) return nullptr;
    FreeTaken(*pWatch);
    const Interface *pInterface = InterfaceAfter(pWatch->port.interfaces, ulAfter);
    return pInterface != nullptr ? &pInterface->shown : nullptr;
}

int QIVENWatchCounts(QIVEN_WATCH *pWatch, QIVEN_COUNTS *pCounts) {
    if (!IsUsable(pWatch) || pCounts == nullptr) return -EINVAL;
    FreeTaken(*pWatch);
    QIVEN_COUNTS counts = CountsOf(pWatch->port);
    counts.ullNoMemory += pWatch->table.ullNoMemory;
    counts.ullLeftOut = pWatch->table.ullLeftOut;
    counts.cbMemory += MemoryOf(pWatch->table) + sizeof(QIVEN_WATCH) - sizeof(Port);
    const uint32_t cbSize = pCounts->cbSize;
    CopySized(pCounts, cbSize, &counts, sizeof counts);
    if (cbSize >= sizeof cbSize) pCounts->cbSize = cbSize;
    return 0;
}

void QIVENWatchClose(QIVEN_WATCH *pWatch) {
    if (pWatch == nullptr) return;
    FreeTaken(*pWatch);
    FreeTable(pWatch->table);
    ClosePort(pWatch->port);
    free(pWatch);
}
