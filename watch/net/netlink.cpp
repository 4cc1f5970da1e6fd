// What the kernel says of interfaces and addresses. It answers in pieces, so a long list is read bit by bit.
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>

#include "clock.h"
#include "interfaces.h"

namespace qiven::watch {

namespace {

using Bytes = std::span<const unsigned char>;

constexpr uint64_t kPause = 50 * kMillisecond;  // changes come in swarms
constexpr uint64_t kPauseAfterError = kSecond;

template <class T>
bool Take(Bytes &bytes, T &value) {
    if (bytes.size() < sizeof value) return false;
    memcpy(&value, bytes.data(), sizeof value);
    bytes = bytes.subspan(std::min<size_t>(NLMSG_ALIGN(sizeof value), bytes.size()));
    return true;
}

// The next attribute, its type without flags; false at the end or at nonsense.
bool TakeAttribute(Bytes &bytes, unsigned &uType, Bytes &value) {
    rtattr head;
    Bytes at = bytes;
    if (!Take(at, head) || head.rta_len < sizeof head || head.rta_len > bytes.size()) return false;
    uType = head.rta_type & NLA_TYPE_MASK;
    value = bytes.subspan(sizeof head, head.rta_len - sizeof head);
    bytes = bytes.subspan(std::min<size_t>(RTA_ALIGN(head.rta_len), bytes.size()));
    return true;
}

template <size_t cb>
void CopyText(char (&sz)[cb], Bytes value) {
    const size_t cbText = strnlen(reinterpret_cast<const char *>(value.data()), value.size());
    const size_t cbCopied = std::min(cbText, cb - 1);
    memcpy(sz, value.data(), cbCopied);
    sz[cbCopied] = '\0';
}

void ReadLink(List &list, Bytes bytes) {
    ifinfomsg link;
    QIVEN_INTERFACE interface {};
    unsigned uType = 0;
    Bytes value;
    if (!Take(bytes, link) || link.ifi_index <= 0) return;
    interface.ulIfIndex = static_cast<uint32_t>(link.ifi_index);
    interface.ulFlags = link.ifi_flags;
    while (TakeAttribute(bytes, uType, value)) {
        if (uType == IFLA_IFNAME) CopyText(interface.szIfName, value);
        if (uType == IFLA_MASTER) Take(value, interface.ulMaster);
        if (uType == IFLA_ADDRESS) Take(value, interface.rgMac);
        if (uType != IFLA_LINKINFO) continue;
        Bytes kind;
        while (TakeAttribute(value, uType, kind))
            if (uType == IFLA_INFO_KIND) CopyText(interface.szKind, kind);
    }
    AddInterface(list, interface);
}

void ReadAddress(List &list, Bytes bytes) {
    ifaddrmsg message;
    AddressOf address{};
    uint32_t ulPeer = 0;
    unsigned uType = 0;
    Bytes value;
    constexpr unsigned kBits = 32;
    if (!Take(bytes, message) || message.ifa_family != AF_INET || message.ifa_prefixlen > kBits) return;
    while (TakeAttribute(bytes, uType, value)) {
        if (uType == IFA_LOCAL) Take(value, address.address.ulIP);
        if (uType == IFA_ADDRESS) Take(value, ulPeer);
        if (uType == IFA_BROADCAST) Take(value, address.address.ulBroadCast);
    }
    if (address.address.ulIP == 0) address.address.ulIP = ulPeer;
    if (address.address.ulIP == 0) return;
    const unsigned uPrefix = message.ifa_prefixlen;
    address.address.ulMask = QIVENSocketHtonl(uPrefix == 0 ? 0 : UINT32_MAX << (kBits - uPrefix));
    address.ulIfIndex = message.ifa_index;
    AddAddress(list, address);
}

void FinishPhase(Interfaces &interfaces, uint64_t ullNowUs) {
    if (interfaces.phase == Phase::kLinks) {
        interfaces.iError = Request(interfaces, Phase::kAddresses);
        if (interfaces.iError != 0) interfaces.ullDueUs = ullNowUs + kPauseAfterError;
        return;
    }
    interfaces.phase = Phase::kIdle;
    Adopt(interfaces);
}

void Again(Interfaces &interfaces, uint64_t ullDueUs) {
    interfaces.phase = Phase::kIdle;
    interfaces.ullDueUs = std::min(interfaces.ullDueUs, ullDueUs);
}

void ReadMessage(Interfaces &interfaces, const nlmsghdr &head, Bytes body, uint64_t ullNowUs) {
    // What nobody asked for announces a change.
    if (head.nlmsg_seq != interfaces.ulSequence || interfaces.phase == Phase::kIdle) {
        const bool blNews = head.nlmsg_type == RTM_NEWLINK || head.nlmsg_type == RTM_DELLINK ||
                            head.nlmsg_type == RTM_NEWADDR || head.nlmsg_type == RTM_DELADDR;
        if (blNews) interfaces.ullDueUs = std::min(interfaces.ullDueUs, ullNowUs + kPause);
        return;
    }
    if ((head.nlmsg_flags & NLM_F_DUMP_INTR) != 0)
        interfaces.ullDueUs = std::min(interfaces.ullDueUs, ullNowUs + kPause);
    if (head.nlmsg_type == RTM_NEWLINK) ReadLink(interfaces.next, body);
    if (head.nlmsg_type == RTM_NEWADDR) ReadAddress(interfaces.next, body);
    if (head.nlmsg_type == NLMSG_DONE) FinishPhase(interfaces, ullNowUs);
    if (head.nlmsg_type == NLMSG_ERROR) Again(interfaces, ullNowUs + kPauseAfterError);
}

}  // namespace

int OpenNetlink() {
    const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
    if (fd < 0) return -errno;
    sockaddr_nl local{};
    local.nl_family = AF_NETLINK;
    local.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR;
    if (bind(fd, reinterpret_cast<const sockaddr *>(&local), sizeof local) == 0) return fd;
    const int iError = errno;
    close(fd);
    return -iError;
}

int Request(Interfaces &interfaces, Phase phase) {
    struct {
        nlmsghdr head;
        ifinfomsg link;
        rtattr attribute;
        uint32_t ulMask;
    } request{};
    const bool blLinks = phase == Phase::kLinks;
    request.head.nlmsg_len = blLinks ? sizeof request : NLMSG_LENGTH(sizeof(ifaddrmsg));
    request.head.nlmsg_type = blLinks ? RTM_GETLINK : RTM_GETADDR;
    request.head.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.head.nlmsg_seq = ++interfaces.ulSequence;
    request.link.ifi_family = blLinks ? AF_UNSPEC : AF_INET;
    request.attribute = {sizeof request.attribute + sizeof request.ulMask, IFLA_EXT_MASK};
    request.ulMask = RTEXT_FILTER_SKIP_STATS;
    interfaces.phase = phase;
    ssize_t cbSent = 0;
    do {
        cbSent = send(interfaces.fd, &request, request.head.nlmsg_len, 0);
    } while (cbSent < 0 && errno == EINTR);
    if (cbSent > 0) return 0;
    interfaces.phase = Phase::kIdle;
    return -errno;
}

bool ReadKernel(Interfaces &interfaces, uint64_t ullNowUs) {
    alignas(nlmsghdr) unsigned char rgb[32768];
    const ssize_t cb = recv(interfaces.fd, rgb, sizeof rgb, MSG_DONTWAIT);
    if (cb < 0 && errno == EINTR) return true;
    if (cb < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return false;
    if (cb < 0) {  // more news than the socket holds
        Again(interfaces, ullNowUs + kPause);
        return false;
    }
    Bytes left(rgb, static_cast<size_t>(cb));
    while (!left.empty()) {
        nlmsghdr head;
        Bytes at = left;
        if (!Take(at, head) || head.nlmsg_len < sizeof head || head.nlmsg_len > left.size()) break;
        ReadMessage(interfaces, head, left.subspan(NLMSG_HDRLEN, head.nlmsg_len - NLMSG_HDRLEN), ullNowUs);
        left = left.subspan(std::min<size_t>(NLMSG_ALIGN(head.nlmsg_len), left.size()));
    }
    return true;
}

}  // namespace qiven::watch
