#include "port.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "clock.h"

namespace qiven::watch {

namespace {

// Sockets are told apart by their number in epoll's data, these come after them.
constexpr uint32_t kTimer = kSocketsMax;
constexpr uint32_t kNetlink = kSocketsMax + 1;
constexpr int kDescriptors = kSocketsMax + 2;

bool Register(const Port &port, int fd, uint32_t ulNumber) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u32 = ulNumber;
    return epoll_ctl(port.fdEpoll, EPOLL_CTL_ADD, fd, &event) == 0;
}

bool RegisterAll(const Port &port) {
    for (unsigned i = 0; i < port.sockets.nSockets; ++i) {
        if (!Register(port, port.sockets.rgFd[i], i)) return false;
    }
    return Register(port, port.fdTimer, kTimer) && Register(port, port.interfaces.fd, kNetlink);
}

int OpenDescriptors(Port &port) {
    port.fdEpoll = epoll_create1(EPOLL_CLOEXEC);
    port.fdTimer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    if (port.fdEpoll < 0 || port.fdTimer < 0 || !RegisterAll(port)) return -errno;
    return 0;
}

bool IsOwnQuery(const Port &port, uint32_t ulSource) {
    const nasinfo &record = port.record;
    if (record.ulPktType != QIVEN_PKT_QUERY) return false;
    if (port.keys.blUsed) return record.ulProcessID == port.keys.ulProcessID;
    // Without keys, only the address tells, and that a search of this kind adds its hardware address.
    return port.blAskedPlain && record.ulProcessID == 0 && record.szMacAddr[0] != '\0' &&
           IsOwnAddress(port.interfaces, ulSource);
}

uint32_t FlagsOf(const Port &port, const Datagram &datagram, const Interface *pInterface, bool blSealed) {
    uint32_t ulFlags = blSealed ? QIVEN_RECEIVED_SEALED : 0;
    if (IsOwnAddress(port.interfaces, datagram.ulSource)) ulFlags |= QIVEN_RECEIVED_LOCAL;
    if (datagram.blDirected) ulFlags |= QIVEN_RECEIVED_DIRECTED;
    if (pInterface == nullptr || !IsUsed(*pInterface)) ulFlags |= QIVEN_RECEIVED_UNUSED;
    if (pInterface != nullptr && !HasNetworkOf(*pInterface, datagram.ulSource))
        ulFlags |= QIVEN_RECEIVED_OFF_LINK;
    if (port.record.ulProcessID != 0 && IsKeyText(port.record.szPubKeyHex, sizeof port.record.szPubKeyHex))
        ulFlags |= QIVEN_RECEIVED_KEY;
    return ulFlags;
}

// Whether a record is to be given out; counts it if not.
bool IsWanted(Port &port, const Datagram &datagram, uint32_t &ulFlags) {
    const uint32_t ulType = port.record.ulPktType;
    if (IsOwnQuery(port, datagram.ulSource)) {
        ulFlags |= QIVEN_RECEIVED_OWN;
        if (port.blGiveOwn) return true;
        ++port.ullOwn;
        return false;
    }
    constexpr uint32_t kTypes = 32;
    if (port.ulTypes == 0 || (ulType < kTypes && (port.ulTypes >> ulType & 1U) != 0)) return true;
    ++port.ullOtherType;
    return false;
}

}  // namespace

int OpenPort(Port &port, QIVEN_INTERFACE_FUNC pfnChoose, void *pvUser) {
    port.pid = getpid();
    int iResult = port.blNoPort ? 0 : OpenSockets(port.sockets, QIVEN_PORT);
    if (iResult == 0) iResult = OpenInterfaces(port.interfaces, pfnChoose, pvUser);
    if (iResult == 0 && !port.blPlain) iResult = AcquireKeys(port.keys);
    if (iResult == 0) iResult = OpenDescriptors(port);
    port.pbPacket = static_cast<unsigned char *>(malloc(QIVEN_PACKET_MAX));
    if (iResult == 0 && port.pbPacket == nullptr) iResult = -ENOMEM;
    if (iResult != 0) ClosePort(port);
    return iResult;
}

void ClosePort(Port &port) {
    // The keys and their lock belong to the process that opened the handle.
    if (port.pid == getpid()) ReleaseKeys(port.keys);
    CloseInterfaces(port.interfaces);
    CloseSockets(port.sockets);
    if (port.fdTimer >= 0) close(port.fdTimer);
    if (port.fdEpoll >= 0) close(port.fdEpoll);
    port.fdTimer = port.fdEpoll = -1;
    free(port.pbPacket);
    port.pbPacket = nullptr;
}

void Work(Port &port, uint64_t ullUntilUs) {
    std::array<epoll_event, kDescriptors> rgEvent;
    const uint64_t ullNowUs = NowUs();
    LookAtLosses(port.sockets, ullNowUs);
    const int n = epoll_wait(port.fdEpoll, rgEvent.data(), kDescriptors, 0);
    unsigned uReady = 0;
    for (int i = 0; i < n; ++i) {
        const uint32_t ulNumber = rgEvent[static_cast<size_t>(i)].data.u32;
        if (ulNumber < kSocketsMax) uReady |= 1U << ulNumber;
        port.blInterfacesWait |= ulNumber == kNetlink;
    }
    const bool blEmptied = Empty(port.sockets, uReady, ullUntilUs);
    BalanceLosses(port.sockets, ullNowUs, blEmptied && n >= 0);
    port.ullEmptiedUs = ullNowUs;
    if (port.blInterfacesWait || ullNowUs >= port.interfaces.ullDueUs)
        port.blInterfacesWait = !UpdateInterfaces(port.interfaces, ullUntilUs);
}

bool Read(Port &port, const Datagram &datagram, const unsigned char *pb, QIVEN_RECEIVED &received) {
    bool blSealed = false;
    const Verdict verdict =
        datagram.blCut ? Verdict::kRefused
                       : ReadDatagram(port.keys, !port.blShut, pb, datagram.cb, port.record, blSealed);
    port.blOpened = blSealed && !port.blShut;
    const Interface *pInterface = FindInterface(port.interfaces, datagram.ulIfIndex);
    uint32_t ulFlags = 0;
    if (verdict != Verdict::kRecord) {
        ++(verdict == Verdict::kRefused ? port.ullRefused : port.ullForOthers);
        if (!port.blGiveRefused) return false;
        ulFlags = FlagsOf(port, datagram, pInterface, false) & ~QIVEN_RECEIVED_KEY;
    } else {
        ulFlags = FlagsOf(port, datagram, pInterface, blSealed);
        if (!IsWanted(port, datagram, ulFlags)) return false;
    }
    received = {};
    received.cbSize = sizeof received;
    received.ulFlags = ulFlags;
    received.ulSource = datagram.ulSource;
    received.ulIfIndex = datagram.ulIfIndex;
    if (pInterface != nullptr)
        memcpy(received.szIfName, pInterface->shown.szIfName, sizeof received.szIfName);
    received.usPort = datagram.usPort;
    received.cbDatagram = datagram.cb;
    received.ullMonotonicUs = datagram.ullArrivedUs;
    received.llUnixUs = datagram.llArrivedUnixUs;
    received.pnasInfo = verdict == Verdict::kRecord ? &port.record : nullptr;
    received.pbDatagram = pb;
    return true;
}

bool Take(Port &port, QIVEN_RECEIVED &received, uint64_t ullUntilUs) {
    Datagram datagram;
    const unsigned char *pb = nullptr;
    for (Pace pace{ullUntilUs}; !pace.IsOver(port.blOpened) && TakeFirst(port.sockets.inbox, datagram, pb);) {
        if (Read(port, datagram, pb, received)) return true;
    }
    return false;
}

uint64_t DueOf(const Port &port) {
    if (port.sockets.inbox.nDatagrams > 0 || port.blInterfacesWait) return 0;
    return std::min(port.sockets.losses.ullDueUs, port.interfaces.ullDueUs);
}

void Arm(Port &port, uint64_t ullDueUs) {
    if (ullDueUs == port.ullArmedUs) return;
    port.ullArmedUs = ullDueUs;
    itimerspec spec{};
    if (ullDueUs != kNever) {
        const uint64_t ull = std::max<uint64_t>(ullDueUs, 1);  // 0 would stop the timer
        spec.it_value.tv_sec = static_cast<time_t>(ull / kSecond);
        spec.it_value.tv_nsec = static_cast<long>(ull % kSecond * 1000);
    }
    timerfd_settime(port.fdTimer, TFD_TIMER_ABSTIME, &spec, nullptr);
}

QIVEN_COUNTS CountsOf(const Port &port) {
    QIVEN_COUNTS counts{};
    counts.cbSize = sizeof counts;
    counts.nSockets = port.sockets.nSockets;
    counts.ullReceived = port.sockets.ullReceived;
    counts.ullLost = port.sockets.losses.ullLost;
    counts.ullNoMemory = port.sockets.ullNoMemory;
    counts.ullRefused = port.ullRefused;
    counts.ullSealedForOthers = port.ullForOthers;
    counts.ullOwn = port.ullOwn;
    counts.ullOtherType = port.ullOtherType;
    const List &list = port.interfaces.now;
    counts.cbMemory =
        MemoryOf(port.sockets.inbox) + sizeof(Port) + QIVEN_PACKET_MAX + list.nCapacity * sizeof(Interface) +
        list.nAddressCapacity * (sizeof(AddressOf) + sizeof(QIVEN_INTERFACE_ADDRESS)) + StagingSize();
    return counts;
}

void CopySized(void *pTo, uint32_t cbTo, const void *pFrom, uint32_t cbFrom) {
    memcpy(pTo, pFrom, std::min(cbTo, cbFrom));
}

}  // namespace qiven::watch
