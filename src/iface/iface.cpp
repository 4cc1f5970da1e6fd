#include <qiven/iface.h>

#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "iface/copy_text.h"
#include "log/descriptor.h"
#include "log/message.h"

uint32_t gulDNS = 0;

namespace {

using qiven::Descriptor;
using qiven::log::Where;

constexpr const char *kRoom = "iface";
constexpr size_t kPathSize = 4096;

// Any datagram socket will do: the requests below are about devices, not about the socket.
int OpenRequestSocket(const QIVEN_LOG *pLog, Where where) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd == -1) qiven::log::Error(pLog, where, "Open socket error:(%d)", errno);
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

bool IsUsable(short sFlags) {
    constexpr int kRefused = IFF_LOOPBACK | IFF_POINTOPOINT | IFF_SLAVE;
    constexpr int kNeeded = IFF_UP | IFF_RUNNING;
    return (sFlags & (kRefused | kNeeded)) == kNeeded;
}

struct AddressQuery {
    unsigned long ulRequest;
    const char *szRequest;
    uint32_t QIVEN_NETIF::*pField;
};

// In this order: the kernel answers the later requests for the address that the first one left in the
// request.
constexpr AddressQuery kAddressQueries[] = {
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

int QIVENIfaceInit(const QIVEN_LOG *pLog, QIVEN_NETIF *rgNetIf, int numNetIf) {
    gulDNS = INADDR_NONE;
    return QIVENIfaceInitLnx(pLog, rgNetIf, numNetIf);
}

int QIVENIfaceGetActive(const QIVEN_LOG *pLog, const char *szIf) {
    if (!qiven::log::Check(pLog, kRoom, szIf != nullptr, "(((void *)0) != szIf)")) return -1;
    const Descriptor sock(OpenRequestSocket(pLog, kRoom));
    if (!sock.IsOpen()) return -1;
    ifreq request{};
    qiven::iface::CopyText(request.ifr_name, szIf);
    if (IsTunOrTap(szIf)) return -1;
    if (!Ask(sock, SIOCGIFFLAGS, request)) {
        qiven::log::Error(pLog, kRoom, "ioctl(SIOCGIFFLAGS) error:(%d)", errno);
        return -1;
    }
    return IsUsable(request.ifr_flags) ? 0 : -1;
}

int QIVENIfaceGetNetSetting(const QIVEN_LOG *pLog, QIVEN_NETIF *pNetIf) {
    if (!qiven::log::Check(pLog, kRoom, pNetIf != nullptr, "((void *)0) != pNetIf")) return -1;
    const Descriptor sock(OpenRequestSocket(pLog, kRoom));
    if (!sock.IsOpen()) return -1;
    ifreq request{};
    qiven::iface::CopyText(request.ifr_name, pNetIf->szIfName);
    request.ifr_addr.sa_family = AF_INET;
    if (!Ask(sock, SIOCGIFHWADDR, request)) {
        qiven::log::Error(pLog, kRoom, "ioctl SIOCGIFHWADDR %s error:(%d)", pNetIf->szIfName, errno);
        return -1;
    }
    memcpy(pNetIf->rgMac, request.ifr_hwaddr.sa_data, sizeof pNetIf->rgMac);
    for (const AddressQuery &query : kAddressQueries) {
        if (!Ask(sock, query.ulRequest, request)) {
            qiven::log::Error(pLog, kRoom, "ioctl %s %s error:(%d)", query.szRequest, pNetIf->szIfName,
                              errno);
            pNetIf->blActive = 0;
            return -1;
        }
        pNetIf->*query.pField = AddressOf(request);
    }
    return 0;
}
