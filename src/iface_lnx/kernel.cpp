// Requests to the kernel about one interface: ioctl() and sysfs.
#include "iface_lnx/kernel.h"

#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "base/descriptor.h"
#include "base/message.h"

namespace qiven::iface_lnx {

namespace {

using base::Descriptor;
using base::Error;

// Not "iface_lnx": these messages are those of the entry points above.
constexpr char kModule[] = "iface";
constexpr size_t kPathSize = 4096;

// Any datagram socket will do: the requests are about interfaces, not about the socket.
int OpenRequestSocket(const QIVEN_LOG *pLog, base::Where where) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd == -1) Error(pLog, where, "Open socket error:(%d)", errno);
    return fd;
}

bool Ask(const Descriptor &sock, unsigned long ulRequest, ifreq &request) {
    return ioctl(sock.fd, ulRequest, &request) != -1;
}

bool IsTunOrTap(const char *szIf) {
    char szPath[kPathSize];
    snprintf(szPath, sizeof szPath, "/sys/class/net/%s/tun_flags", szIf);
    return access(szPath, F_OK) == 0;
}

bool AreUsable(short sFlags) {
    constexpr int kRefused = IFF_LOOPBACK | IFF_POINTOPOINT | IFF_SLAVE;
    constexpr int kNeeded = IFF_UP | IFF_RUNNING;
    return (sFlags & (kRefused | kNeeded)) == kNeeded;
}

struct AddressRequest {
    unsigned long ulRequest;
    const char *szRequest;
    uint32_t QIVEN_NETIF::*pField;
};

// The order matters, because an answer overwrites the address in the request. The second request still holds
// the address of the first answer, so the kernel answers for that address. The third holds a broadcast
// address, which no interface has; the kernel then answers for the first address of the interface, which is
// the one that the first request returned.
constexpr AddressRequest kAddressRequests[] = {
    {SIOCGIFADDR, "SIOCGIFADDR", &QIVEN_NETIF::ulIP},
    {SIOCGIFBRDADDR, "SIOCGIFBRDADDR", &QIVEN_NETIF::ulBroadCast},
    {SIOCGIFNETMASK, "SIOCGIFNETMASK", &QIVEN_NETIF::ulMask},
};

uint32_t AddressOf(const ifreq &request) {
    sockaddr_in addr;
    memcpy(&addr, &request.ifr_addr, sizeof addr);
    return addr.sin_addr.s_addr;
}

}  // namespace

bool IsUsable(const QIVEN_LOG *pLog, const char *szIf) {
    const Descriptor sock(OpenRequestSocket(pLog, kModule));
    if (!sock.IsOpen()) return false;
    ifreq request{};
    CopyName(request.ifr_name, szIf);
    if (IsTunOrTap(szIf)) return false;
    if (!Ask(sock, SIOCGIFFLAGS, request)) {
        Error(pLog, kModule, "ioctl(SIOCGIFFLAGS) error:(%d)", errno);
        return false;
    }
    return AreUsable(request.ifr_flags);
}

bool ReadAddresses(const QIVEN_LOG *pLog, QIVEN_NETIF &netIf) {
    const Descriptor sock(OpenRequestSocket(pLog, kModule));
    if (!sock.IsOpen()) return false;
    ifreq request{};
    CopyName(request.ifr_name, netIf.szIfName);
    request.ifr_addr.sa_family = AF_INET;
    if (!Ask(sock, SIOCGIFHWADDR, request)) {
        Error(pLog, kModule, "ioctl SIOCGIFHWADDR %s error:(%d)", netIf.szIfName, errno);
        return false;
    }
    memcpy(netIf.rgMac, request.ifr_hwaddr.sa_data, sizeof netIf.rgMac);
    for (const AddressRequest &query : kAddressRequests) {
        if (!Ask(sock, query.ulRequest, request)) {
            Error(pLog, kModule, "ioctl %s %s error:(%d)", query.szRequest, netIf.szIfName, errno);
            netIf.blActive = 0;
            return false;
        }
        netIf.*query.pField = AddressOf(request);
    }
    return true;
}

}  // namespace qiven::iface_lnx
