// Sending: one broadcast out of each interface, in the form that the packet calls for.
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "port.h"

namespace qiven::watch {

namespace {

constexpr unsigned kIdIP = 0x12, kIdMask = 0x13, kIdMac = 0x7C;
constexpr unsigned kIdPublicKey = 0xC4, kIdProcess = 0xC5, kIdPeerProcess = 0xC6;

void SetNumber(QIVEN_SEND &request, unsigned uId, uint32_t ulValue) {
    QIVENSendPktIDSet(nullptr, &request, uId, &ulValue, sizeof ulValue);
}

void Stamp(Port &port, const QIVEN_INTERFACE &interface, const QIVEN_TO &to) {
    QIVEN_SEND &request = port.request;
    const auto &mac = interface.rgMac;
    char szMac[sizeof nasinfo::szMacAddr] = "";
    const int cb = snprintf(szMac, sizeof szMac, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2],
                            mac[3], mac[4], mac[5]);
    QIVENSendPktIDSet(nullptr, &request, kIdMac, szMac, cb);
    if ((to.ulFlags & QIVEN_TO_ADDRESS) != 0) {
        SetNumber(request, kIdIP, interface.rgAddress[0].ulIP);
        SetNumber(request, kIdMask, interface.rgAddress[0].ulMask);
    }
    if (to.szPublicKeyHex != nullptr) {
        if (port.keys.blUsed) SetNumber(request, kIdProcess, port.keys.ulProcessID);
        SetNumber(request, kIdPeerProcess, to.ulPeerProcessID);
    } else if (request.pnasInfo->ulPktType == QIVEN_PKT_QUERY && port.keys.blUsed) {
        QIVENSendPktIDSet(nullptr, &request, kIdPublicKey, port.keys.szPublicKeyHex, QIVEN_KEY_HEX_SIZE - 1);
        SetNumber(request, kIdProcess, port.keys.ulProcessID);
    }
    port.blAskedPlain |= request.pnasInfo->ulPktType == QIVEN_PKT_QUERY && !port.keys.blUsed;
}

// Length of the packet in port.pbPacket, below 1 if the request makes none.
int Build(Port &port, const QIVEN_TO &to) {
    // The writers enlarge a buffer that is too small; this one never is.
    int cb = QIVEN_PACKET_MAX;
    if (to.szPublicKeyHex == nullptr) return QIVENPacketWrite(nullptr, &port.pbPacket, &cb, &port.request);
    char *sz = reinterpret_cast<char *>(port.pbPacket);
    const int cbPacket = QIVENPacketWriteEncrypted(nullptr, &sz, &cb, &port.request, to.szPublicKeyHex);
    port.pbPacket = reinterpret_cast<unsigned char *>(sz);
    return cbPacket;
}

// Names the interface itself: addresses need not be different on each.
int Broadcast(int fdSender, const QIVEN_INTERFACE &interface, const unsigned char *pb, size_t cb) {
    sockaddr_in everybody{};
    everybody.sin_family = AF_INET;
    everybody.sin_port = htons(QIVEN_PORT);
    everybody.sin_addr.s_addr = INADDR_BROADCAST;
    iovec vector{const_cast<unsigned char *>(pb), cb};
    alignas(cmsghdr) char rgbControl[CMSG_SPACE(sizeof(in_pktinfo))] = {};
    msghdr message{};
    message.msg_name = &everybody;
    message.msg_namelen = sizeof everybody;
    message.msg_iov = &vector;
    message.msg_iovlen = 1;
    message.msg_control = rgbControl;
    message.msg_controllen = sizeof rgbControl;
    cmsghdr *pHeader = CMSG_FIRSTHDR(&message);
    pHeader->cmsg_level = IPPROTO_IP;
    pHeader->cmsg_type = IP_PKTINFO;
    pHeader->cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
    in_pktinfo info{};
    info.ipi_ifindex = static_cast<int>(interface.ulIfIndex);
    info.ipi_spec_dst.s_addr = interface.rgAddress[0].ulIP;
    memcpy(CMSG_DATA(pHeader), &info, sizeof info);
    ssize_t cbSent;
    do {
        cbSent = sendmsg(fdSender, &message, MSG_DONTWAIT);
    } while (cbSent < 0 && errno == EINTR);
    return cbSent < 0 ? -errno : 0;
}

bool IsFor(const Port &port, const Interface &interface, const QIVEN_TO &to) {
    if (to.ulIfIndex == 0 || interface.shown.ulIfIndex == to.ulIfIndex) return true;
    if ((to.ulFlags & QIVEN_TO_SEGMENT) == 0) return false;
    const Interface *pOther = FindInterface(port.interfaces, to.ulIfIndex);
    return pOther != nullptr && SharesNetwork(interface, *pOther);
}

}  // namespace

int OpenSender() {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -errno;
    const int iOn = 1;
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(QIVEN_SOURCE_PORT);
    if (setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &iOn, sizeof iOn) != 0) {
        const int iError = errno;
        close(fd);
        return -iError;
    }
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &iOn, sizeof iOn);
    // Answers go to the discovery port whatever the source port is: one that is taken does no harm.
    (void)!bind(fd, reinterpret_cast<const sockaddr *>(&local), sizeof local);
    return fd;
}

int SendBy(Port &port, int fdSender, Interface &interface, const QIVEN_SEND &request, const QIVEN_TO &to) {
    port.request = request;
    port.requestRecord = *request.pnasInfo;
    port.request.pnasInfo = &port.requestRecord;
    Stamp(port, interface.shown, to);
    const int cb = Build(port, to);
    if (cb < 1) return -EINVAL;
    const int iResult = Broadcast(fdSender, interface.shown, port.pbPacket, static_cast<size_t>(cb));
    NoteSent(port.interfaces, interface, iResult);
    return iResult;
}

int Send(Port &port, const QIVEN_SEND &request, const QIVEN_TO &to) {
    if (request.nPktID < 1 || request.nPktID > QIVEN_SEND_MAX || request.pnasInfo == nullptr) return -EINVAL;
    if (to.szPublicKeyHex != nullptr && !IsKeyText(to.szPublicKeyHex, QIVEN_KEY_HEX_SIZE)) return -EINVAL;
    const int fdSender = OpenSender();
    if (fdSender < 0) return fdSender;
    int nSent = 0;
    int iFailed = -ENODEV;
    Interface *p = nullptr;
    for (uint32_t ulAfter = 0; (p = InterfaceAfter(port.interfaces, ulAfter)) != nullptr;) {
        ulAfter = p->shown.ulIfIndex;
        if (!IsUsed(*p) || !IsFor(port, *p, to)) continue;
        const int iResult = SendBy(port, fdSender, *p, request, to);
        if (iResult == 0)
            ++nSent;
        else
            iFailed = iResult;
    }
    close(fdSender);
    return nSent > 0 ? nSent : iFailed;
}

}  // namespace qiven::watch
