#include <qiven/watch.h>

#include <utility>

#include "clock.h"
#include "watch.h"

namespace qiven::watch {

namespace {

// What the event is about a host; false if there is nothing to say after all.
bool Describe(QIVEN_WATCH &watch, Host &host, uint64_t ullNowUs) {
    QIVEN_WATCH_EVENT &event = watch.event;
    Table &table = watch.table;
    const auto Has = [&host](uint8_t uTell) { return (host.uTell & uTell) != 0; };
    if (Has(kToldVanished)) {
        event.ulType = QIVEN_WATCH_VANISHED;
        host.uTell = 0;
        watch.pTaken = &host;
    } else if (Has(kToldAppeared)) {
        event.ulType = QIVEN_WATCH_APPEARED;
        host.uTell &= kToldConflict;
    } else if (Has(kToldChanged)) {
        event.ulType = QIVEN_WATCH_CHANGED;
        event.ulChanged = std::exchange(host.ulChanged, 0);
        host.uTell &= kToldConflict;
        if (host.pbWas != nullptr) {
            Unpack(host.pbWas, host.cbWas, watch.rgRecord[1]);
            event.pnasInfoWas = &watch.rgRecord[1];
        }
    } else {
        event.ulType = QIVEN_WATCH_CONFLICT;
        host.uTell = 0;
        Host *pOther = FindHost(table, host.shown.ulConflict);
        if (pOther == nullptr) return false;
        event.pHostOther = Show(table, *pOther, watch.rgRecord[1]);
    }
    if (event.ulType == QIVEN_WATCH_APPEARED) host.ulChanged = 0;
    if (event.ulType == QIVEN_WATCH_APPEARED || event.ulType == QIVEN_WATCH_CHANGED) {
        host.ullToldUs = ullNowUs;
        Free(table.budget, std::exchange(host.pbWas, nullptr), host.cbWas);
    }
    event.pHost = Show(table, host, watch.rgRecord[0]);
    if (host.uTell != 0) PutLast(table.ready, host.node, ullNowUs);
    return true;
}

bool DescribeInterface(QIVEN_WATCH &watch, uint64_t ullNowUs) {
    const QIVEN_INTERFACE *pInterface = TakeChanged(watch.port.interfaces);
    if (pInterface == nullptr) return false;
    watch.event.ulType = QIVEN_WATCH_INTERFACE;
    watch.event.pInterface = pInterface;
    PutLast(watch.table.ready, watch.interfaces, ullNowUs);  // there may be more
    return true;
}

void DescribeCounts(QIVEN_WATCH &watch, Of of) {
    QIVEN_WATCH_EVENT &event = watch.event;
    const uint64_t ullLost = watch.port.sockets.losses.ullLost;
    if (of == Of::kLost) {
        event.ulType = QIVEN_WATCH_LOST;
        event.ullLost = ullLost - std::exchange(watch.ullLostTold, ullLost);
    } else if (of == Of::kFull) {
        event.ulType = QIVEN_WATCH_FULL;
        event.ullLeftOut =
            watch.table.ullLeftOut - std::exchange(watch.ullLeftOutTold, watch.table.ullLeftOut);
    } else if (of == Of::kRound) {
        event = std::exchange(watch.finished, {});
        event.ulType = QIVEN_WATCH_ROUND;
    } else {
        event.ulType = QIVEN_WATCH_SETTLED;
        event.ulRound = watch.round.ulRound;
        event.ullLost = watch.round.ullLost;
    }
}

bool DescribeNode(QIVEN_WATCH &watch, Node &node, uint64_t ullNowUs) {
    if (node.of == Of::kHost) return Describe(watch, reinterpret_cast<Host &>(node), ullNowUs);
    if (node.of == Of::kInterfaces) return DescribeInterface(watch, ullNowUs);
    DescribeCounts(watch, node.of);
    return true;
}

}  // namespace

void FreeTaken(QIVEN_WATCH &watch) {
    FreeHost(watch.table, std::exchange(watch.pTaken, nullptr));
}

bool TakeEvent(QIVEN_WATCH &watch) {
    const uint64_t ullNowUs = NowUs();
    while (Node *pNode = NextNode(watch.table)) {
        const uint64_t ullSinceUs = pNode->ullSinceUs;
        TakeOut(*pNode);
        watch.event = {};
        if (!DescribeNode(watch, *pNode, ullNowUs)) continue;
        watch.event.cbSize = sizeof watch.event;
        watch.event.ullSeq = ++watch.ullSequence;
        watch.event.ullMonotonicUs = ullSinceUs;
        watch.event.llUnixUs = UnixUs() - static_cast<int64_t>(ullNowUs - ullSinceUs);
        return true;
    }
    return false;
}

}  // namespace qiven::watch
