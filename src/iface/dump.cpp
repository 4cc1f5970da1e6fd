// The dump of the interface table to the log.
#include "iface/dump.h"

#include <arpa/inet.h>

#include <array>

#include "base/message.h"

namespace {

using qiven::base::Error;

constexpr char kModule[] = "iface";

// An address as dotted text. inet_ntoa() would return a buffer that all threads share.
struct DottedText {
    explicit DottedText(uint32_t ulAddr) { inet_ntop(AF_INET, &ulAddr, szText, sizeof szText); }
    char szText[INET_ADDRSTRLEN] = "";
};

}  // namespace

void qiven::iface::DumpNetIf(const QIVEN_LOG *pLog, const QIVEN_NETIF *pNetIf) {
    if (!base::Check(pLog, kModule, pNetIf != nullptr, "((void *)0) != pNetIf")) return;
    const unsigned char *rgMac = pNetIf->rgMac;
    Error(pLog, kModule, "[%s]\n", pNetIf->szIfName);
    Error(pLog, kModule, "Mac Address:\t%02X:%02X:%02X:%02X:%02X:%02X\n", rgMac[0], rgMac[1], rgMac[2],
          rgMac[3], rgMac[4], rgMac[5]);
    Error(pLog, kModule, "IP:\t%s\n", DottedText(pNetIf->ulIP).szText);
    Error(pLog, kModule, "Mask:\t%s\n", DottedText(pNetIf->ulMask).szText);
    Error(pLog, kModule, "ulBroadCast:\t%s\n", DottedText(pNetIf->ulBroadCast).szText);
    Error(pLog, kModule, "ulGateway:\t%s\n", DottedText(pNetIf->ulGateway).szText);
    Error(pLog, kModule, "DNS:\t%s\n", DottedText(pNetIf->ulDNS).szText);
    Error(pLog, kModule, "DHCP:\t%s\n", pNetIf->blStatic != 0 ? "NO" : "YES");
    Error(pLog, kModule, "Active:\t%s\n", pNetIf->blActive != 0 ? "YES" : "NO");
}

int QIVENIfaceDump(const QIVEN_LOG *pLog) {
    std::array<QIVEN_NETIF, QIVEN_IFACE_MAX> rgNetIf{};
    const int n = QIVENIfaceInit(pLog, rgNetIf.data(), QIVEN_IFACE_MAX);
    if (n == -1) {
        Error(pLog, kModule, "fail to enum IP\n");
        return -1;
    }
    Error(pLog, kModule, "Global DNS:\t%s\n", DottedText(gulDNS).szText);
    for (int i = 0; i < n; ++i)
        qiven::iface::DumpNetIf(pLog, &rgNetIf[static_cast<size_t>(i)]);
    return 0;
}
