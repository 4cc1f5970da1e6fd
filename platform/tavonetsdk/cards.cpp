// The numbered network cards of the machine.
#include "tavonetsdk.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

static_assert(sizeof(TAVO_NET_CARD) == 72 && offsetof(TAVO_NET_CARD, szAddr) == 30,
              "programs built for the maker's library read the address there");

namespace {

struct FreeNames {
    void operator()(struct if_nameindex *p) const { if_freenameindex(p); }
};
using InterfaceNames = std::unique_ptr<struct if_nameindex, FreeNames>;

struct RequestSocket {
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    RequestSocket() = default;
    RequestSocket(const RequestSocket &) = delete;
    RequestSocket &operator=(const RequestSocket &) = delete;
    ~RequestSocket() {
        if (fd >= 0) close(fd);
    }
};

ifreq RequestFor(const char *szName) {
    ifreq request{};
    memcpy(request.ifr_name, szName, strnlen(szName, sizeof request.ifr_name - 1));
    return request;
}

bool GetAddr(int fd, const char *szName, in_addr *pAddr) {
    ifreq request = RequestFor(szName);
    if (ioctl(fd, SIOCGIFADDR, &request) != 0 || request.ifr_addr.sa_family != AF_INET) return false;
    sockaddr_in addr{};
    memcpy(&addr, &request.ifr_addr, sizeof addr);
    *pAddr = addr.sin_addr;
    return addr.sin_addr.s_addr != htonl(INADDR_ANY);
}

bool CanBroadcast(int fd, const char *szName) {
    constexpr unsigned kWanted = IFF_UP | IFF_RUNNING | IFF_BROADCAST;
    ifreq request = RequestFor(szName);
    if (ioctl(fd, SIOCGIFFLAGS, &request) != 0) return false;
    const auto uFlags = static_cast<unsigned short>(request.ifr_flags);
    return (uFlags & (kWanted | IFF_LOOPBACK)) == kWanted;
}

bool IsEthName(std::string_view name) {
    constexpr std::string_view kPrefix = "eth";
    return name.size() > kPrefix.size() && name.substr(0, kPrefix.size()) == kPrefix &&
           name.find_first_not_of("0123456789", kPrefix.size()) == std::string_view::npos;
}

int Fill(in_addr addr, TAVO_NET_CARD *pCard) {
    return inet_ntop(AF_INET, &addr, pCard->szAddr, sizeof pCard->szAddr) == nullptr ? -1 : 1;
}

}  // namespace

int TAVONetGetCard1(int iCard, int /*iFlags*/, TAVO_NET_CARD *pCard) {
    if (iCard < 0 || pCard == nullptr) return -1;
    const RequestSocket sock;
    const InterfaceNames names(if_nameindex());
    if (sock.fd < 0 || names == nullptr) return -1;

    char szEth[IFNAMSIZ];
    snprintf(szEth, sizeof szEth, "eth%d", iCard);
    bool blEthNames = false;
    int iUsable = 0;
    in_addr addrUsable{};
    for (const struct if_nameindex *p = names.get(); p->if_name != nullptr; ++p) {
        in_addr addr{};
        if (strcmp(p->if_name, szEth) == 0) {
            return GetAddr(sock.fd, p->if_name, &addr) ? Fill(addr, pCard) : -1;
        }
        blEthNames = blEthNames || IsEthName(p->if_name);
        if (blEthNames || !CanBroadcast(sock.fd, p->if_name) || !GetAddr(sock.fd, p->if_name, &addr))
            continue;
        if (iUsable++ == iCard) addrUsable = addr;
    }
    return blEthNames || iUsable <= iCard ? 0 : Fill(addrUsable, pCard);
}
