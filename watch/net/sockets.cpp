#include "sockets.h"

#include <qiven/packet.h>

#include <netinet/in.h>
#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "clock.h"

#include <linux/sock_diag.h>

namespace qiven::watch {

namespace {

// What an ordinary user gets where the administrator has not changed it; the kernel doubles it.
constexpr int kReceiveBuffer = 212992;
constexpr unsigned kBatch = 32;
constexpr size_t kSlot =
    QIVEN_PACKET_MAX + 64;  // not a power of two: the slots' first bytes share no cache set

constexpr uint64_t kLossPause = 10 * kMillisecond;

}  // namespace

struct Staging {
    std::array<mmsghdr, kBatch> rgMessage;
    std::array<iovec, kBatch> rgVector;
    std::array<sockaddr_in, kBatch> rgFrom;
    struct Control {
        alignas(cmsghdr) char rgb[CMSG_SPACE(sizeof(in_pktinfo)) + CMSG_SPACE(2 * sizeof(int64_t))];
    };
    std::array<Control, kBatch> rgControl;
    std::array<std::array<unsigned char, kSlot>, kBatch> rgSlot;
};

namespace {

int OpenOne(uint16_t usPort) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) return -errno;
    const int iOn = 1;
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(usPort);
    // A smaller buffer, no timestamps: the port works all the same.
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &kReceiveBuffer, sizeof kReceiveBuffer);
    setsockopt(fd, SOL_SOCKET, SO_TIMESTAMPNS, &iOn, sizeof iOn);
    AttachNothing(fd);
    if (setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &iOn, sizeof iOn) == 0 &&
        setsockopt(fd, IPPROTO_IP, IP_PKTINFO, &iOn, sizeof iOn) == 0 &&
        bind(fd, reinterpret_cast<const sockaddr *>(&local), sizeof local) == 0)
        return fd;
    const int iError = errno;
    close(fd);
    return -iError;
}

uint32_t Dropped(int fd) {
    uint32_t rgul[SK_MEMINFO_VARS] = {};
    socklen_t cb = sizeof rgul;
    return getsockopt(fd, SOL_SOCKET, SO_MEMINFO, rgul, &cb) == 0 ? rgul[SK_MEMINFO_DROPS] : 0;
}

void ReadDropped(const Sockets &sockets, std::array<uint32_t, kSocketsMax> &rg) {
    for (unsigned i = 0; i < sockets.nSockets; ++i)
        rg[i] = Dropped(sockets.rgFd[i]);
}

// While the sockets reject everything, every broadcast counts once with each: counts that stand still for a
// moment are of the same instant.
void TakeBase(Sockets &sockets) {
    constexpr int kTries = 32;
    std::array<uint32_t, kSocketsMax> rg{};
    ReadDropped(sockets, sockets.losses.rgBase);
    for (int i = 0; i < kTries; ++i) {
        ReadDropped(sockets, rg);
        if (rg == sockets.losses.rgBase) return;
        sockets.losses.rgBase = rg;
    }
}

bool AttachShares(const Sockets &sockets) {
    for (unsigned i = 0; i < sockets.nSockets; ++i) {
        if (!AttachShare(sockets.rgFd[i], sockets.ulSeed, i)) return false;
    }
    return true;
}

// One socket takes everything where filters are refused.
void UseOne(Sockets &sockets) {
    const int iNothing = 0;
    while (sockets.nSockets > 1)
        close(sockets.rgFd[--sockets.nSockets]);
    setsockopt(sockets.rgFd[0], SOL_SOCKET, SO_DETACH_FILTER, &iNothing, sizeof iNothing);
}

void PrepareStaging(Staging &staging) {
    for (unsigned i = 0; i < kBatch; ++i) {
        staging.rgVector[i] = {staging.rgSlot[i].data(), QIVEN_PACKET_MAX};
        msghdr &message = staging.rgMessage[i].msg_hdr;
        message = {};
        message.msg_name = &staging.rgFrom[i];
        message.msg_iov = &staging.rgVector[i];
        message.msg_iovlen = 1;
        message.msg_control = staging.rgControl[i].rgb;
    }
}

// When a batch was read, by both clocks.
struct ReadTime {
    uint64_t ullUs;
    int64_t llUnixUs;
};

void SetArrival(Datagram &datagram, const timespec &stamp, const ReadTime &now) {
    const int64_t llUnixUs = static_cast<int64_t>(stamp.tv_sec) * 1000000 + stamp.tv_nsec / 1000;
    const int64_t llAgo = now.llUnixUs - llUnixUs;
    // A clock that was set in between tells nothing.
    if (llAgo < 0 || static_cast<uint64_t>(llAgo) > now.ullUs) return;
    datagram.llArrivedUnixUs = llUnixUs;
    datagram.ullArrivedUs = now.ullUs - static_cast<uint64_t>(llAgo);
}

Datagram Describe(mmsghdr &received, const sockaddr_in &from, const ReadTime &now) {
    Datagram datagram{now.ullUs, now.llUnixUs, from.sin_addr.s_addr, 0, ntohs(from.sin_port), 0,
                      false,     false};
    msghdr &message = received.msg_hdr;
    datagram.blCut = (message.msg_flags & MSG_TRUNC) != 0;
    datagram.cb = static_cast<uint16_t>(received.msg_len);
    for (cmsghdr *p = CMSG_FIRSTHDR(&message); p != nullptr; p = CMSG_NXTHDR(&message, p)) {
        if (p->cmsg_level == IPPROTO_IP && p->cmsg_type == IP_PKTINFO) {
            in_pktinfo info;
            memcpy(&info, CMSG_DATA(p), sizeof info);
            datagram.ulIfIndex = static_cast<uint32_t>(info.ipi_ifindex);
            // For a broadcast the kernel names the address that an answer should come from.
            datagram.blDirected = info.ipi_spec_dst.s_addr == info.ipi_addr.s_addr;
        } else if (p->cmsg_level == SOL_SOCKET && p->cmsg_type == SCM_TIMESTAMPNS) {
            timespec stamp;
            memcpy(&stamp, CMSG_DATA(p), sizeof stamp);
            SetArrival(datagram, stamp, now);
        }
    }
    return datagram;
}

void Keep(Sockets &sockets, unsigned uSocket, mmsghdr &received, const sockaddr_in &from,
          const unsigned char *pb, const ReadTime &now) {
    Datagram datagram = Describe(received, from, now);
    ++sockets.ullRead;
    if (!datagram.blDirected) {
        ++sockets.losses.rgGiven[uSocket];
        // A broadcast that came in a frame for one receiver passes every filter.
        const unsigned uOwner = SocketOf(sockets.ulSeed, datagram.ulSource, pb, datagram.cb);
        if (sockets.nSockets > 1 && uOwner != uSocket) return;
        ++sockets.losses.ulKept;
    }
    ++sockets.ullReceived;
    if (datagram.blCut) datagram.cb = 0;
    if (!Put(sockets.inbox, uSocket, datagram, pb)) ++sockets.ullNoMemory;
}

// How many came, at most a batch; below 0 if none did.
int ReadBatch(Sockets &sockets, unsigned uSocket) {
    Staging &staging = *sockets.pStaging;
    for (mmsghdr &message : staging.rgMessage) {
        message.msg_hdr.msg_namelen = sizeof(sockaddr_in);
        message.msg_hdr.msg_controllen = sizeof(Staging::Control);
    }
    const int n = recvmmsg(sockets.rgFd[uSocket], staging.rgMessage.data(), kBatch, MSG_DONTWAIT, nullptr);
    const ReadTime now{NowUs(), UnixUs()};
    for (int i = 0; i < n; ++i) {
        const auto u = static_cast<size_t>(i);
        Keep(sockets, uSocket, staging.rgMessage[u], staging.rgFrom[u], staging.rgSlot[u].data(), now);
    }
    return n;
}

}  // namespace

int OpenSockets(Sockets &sockets, uint16_t usPort) {
    sockets.pStaging = static_cast<Staging *>(malloc(sizeof(Staging)));
    if (sockets.pStaging == nullptr) return -ENOMEM;
    PrepareStaging(*sockets.pStaging);
    if (getrandom(&sockets.ulSeed, sizeof sockets.ulSeed, GRND_NONBLOCK) != sizeof sockets.ulSeed)
        sockets.ulSeed = static_cast<uint32_t>(NowUs());
    for (; sockets.nSockets < kSocketsMax; ++sockets.nSockets) {
        const int fd = OpenOne(usPort);
        if (fd < 0 && sockets.nSockets == 0) {
            CloseSockets(sockets);
            return fd;
        }
        if (fd < 0) break;
        sockets.rgFd[sockets.nSockets] = fd;
    }
    if (sockets.nSockets < kSocketsMax) UseOne(sockets);
    TakeBase(sockets);
    if (sockets.nSockets == 1 || !AttachShares(sockets)) UseOne(sockets);
    return 0;
}

void CloseSockets(Sockets &sockets) {
    for (unsigned i = 0; i < sockets.nSockets; ++i)
        close(sockets.rgFd[i]);
    sockets.nSockets = 0;
    free(sockets.pStaging);
    sockets.pStaging = nullptr;
    FreeInbox(sockets.inbox);
}

size_t StagingSize() {
    return sizeof(Staging);
}

bool Empty(Sockets &sockets, unsigned uReady, uint64_t ullUntilUs) {
    for (unsigned i = 0; i < sockets.nSockets; ++i) {
        if ((uReady >> i & 1U) == 0) continue;
        for (;;) {
            if (!HasSpace(sockets.inbox, kBatch) || NowUs() >= ullUntilUs) return false;
            // Less than a batch: the socket was empty. An error waiting at the socket was somebody's refusal.
            const int n = ReadBatch(sockets, i);
            if (n < 0 && errno == EINTR) continue;
            if (n < static_cast<int>(kBatch)) break;
        }
    }
    return true;
}

void LookAtLosses(Sockets &sockets, uint64_t ullNowUs) {
    Losses &losses = sockets.losses;
    losses.blLooked = ullNowUs >= losses.ullDueUs;
    if (!losses.blLooked) return;
    losses.rgDroppedBefore = losses.rgDropped;
    ReadDropped(sockets, losses.rgDropped);
}

void BalanceLosses(Sockets &sockets, uint64_t ullNowUs, bool blEmptied) {
    Losses &losses = sockets.losses;
    if (losses.ullDueUs == kNever && sockets.ullRead != losses.ullReadThen)
        losses.ullDueUs = ullNowUs + kLossPause;
    if (!losses.blLooked || !blEmptied) return;
    losses.blLooked = false;
    const bool blQuiet = sockets.ullRead == losses.ullReadThen && losses.rgDropped == losses.rgDroppedBefore;
    losses.ullReadThen = sockets.ullRead;
    losses.ullDueUs = blQuiet ? kNever : ullNowUs + kLossPause;

    // Differences of counts that wrap.
    const auto Seen = [&losses](unsigned i) {
        return losses.rgGiven[i] + losses.rgDropped[i] - losses.rgBase[i];
    };
    int32_t iLeast = 0;
    int32_t iSum = 0;
    for (unsigned i = 0; i < sockets.nSockets; ++i) {
        const auto iMore = static_cast<int32_t>(Seen(i) - Seen(0));
        iLeast = std::min(iLeast, iMore);
        iSum += iMore;
    }
    uint32_t ulLost = Seen(0) + static_cast<uint32_t>(iLeast) - losses.ulKept;
    // What one socket has seen beyond the others was for this machine alone. In a storm the counts are not of
    // one instant, and only what is certain counts: the kernel's are older than what was read, so the least
    // of the sums is never too high.
    if (blQuiet) ulLost += static_cast<uint32_t>(iSum - iLeast * static_cast<int32_t>(sockets.nSockets));
    const auto iMoreLost = static_cast<int32_t>(ulLost - losses.ulLost);
    if (iMoreLost <= 0) return;
    losses.ulLost = ulLost;
    losses.ullLost += static_cast<uint32_t>(iMoreLost);
}

}  // namespace qiven::watch
