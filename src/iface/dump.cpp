#include "iface/dump.h"

#include <arpa/inet.h>

#include <array>

#include "log/message.h"

namespace {

constexpr const char *kRoom = "iface";

// Dotted decimal, without the static buffer of inet_ntoa that two threads would share.
struct Dotted {
    explicit Dotted(uint32_t ulAddr) { inet_ntop(AF_INET, &ulAddr, szText, sizeof szText); }
    char szText[INET_ADDRSTRLEN] = "";
};

}  // namespace

void qiven::iface::DumpNetIf(const QIVEN_LOG *pLog, const QIVEN_NETIF *pNetIf) {
    if (!log::Check(pLog, kRoom, pNetIf != nullptr, "((void *)0) != pNetIf")) return;
    const unsigned char *rgMac = pNetIf->rgMac;
    log::Error(pLog, kRoom, "[%s]\n", pNetIf->szIfName);
    log::Error(pLog, kRoom, "Mac Address:\t%02X:%02X:%02X:%02X:%02X:%02X\n", rgMac[0], rgMac[1], rgMac[2],
               rgMac[3], rgMac[4], rgMac[5]);
    log::Error(pLog, kRoom, "IP:\t%s\n", Dotted(pNetIf->ulIP).szText);
    log::Error(pLog, kRoom, "Mask:\t%s\n", Dotted(pNetIf->ulMask).szText);
    log::Error(pLog, kRoom, "ulBroadCast:\t%s\n", Dotted(pNetIf->ulBroadCast).szText);
    log::Error(pLog, kRoom, "ulGateway:\t%s\n", Dotted(pNetIf->ulGateway).szText);
    log::Error(pLog, kRoom, "DNS:\t%s\n", Dotted(pNetIf->ulDNS).szText);
    log::Error(pLog, kRoom, "DHCP:\t%s\n", pNetIf->blStatic != 0 ? "NO" : "YES");
    log::Error(pLog, kRoom, "Active:\t%s\n", pNetIf->blActive != 0 ? "YES" : "NO");
}

int QIVENIfaceDump(const QIVEN_LOG *pLog) {
    std::array<QIVEN_NETIF, QIVEN_IFACE_MAX> rgNetIf{};
    const int n = QIVENIfaceInit(pLog, rgNetIf.data(), QIVEN_IFACE_MAX);
    if (n == -1) {
        qiven::log::Error(pLog, kRoom, "fail to enum IP\n");
        return -1;
    }
    qiven::log::Error(pLog, kRoom, "Global DNS:\t%s\n", Dotted(gulDNS).szText);
    for (int i = 0; i < n; ++i)
        qiven::iface::DumpNetIf(pLog, &rgNetIf[static_cast<size_t>(i)]);
    return 0;
}
