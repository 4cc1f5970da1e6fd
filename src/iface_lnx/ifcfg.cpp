#include <strings.h>

#include "iface_lnx/iface_lnx.h"
#include "log/message.h"

namespace qiven::iface_lnx {

namespace {

constexpr const char *kPrefix = "/etc/sysconfig/network-scripts/ifcfg-";

}  // namespace

int ParseIfCfg(const QIVEN_LOG *pLog, const char *szIfCfg, QIVEN_NETIF *pNetIf) {
    if (!log::Check(pLog, kRoom, szIfCfg != nullptr, "((void *)0) != szIfCfg") ||
        !log::Check(pLog, kRoom, pNetIf != nullptr, "NULL != pNetIf"))
        return -1;
    char szValue[kValueSize];
    int iFound = GetKeyValueFromFile(pLog, szIfCfg, "BOOTPROTO", szValue, '=');
    if (iFound == -1) return -1;
    if (iFound == 1 && (strcasecmp(szValue, "none") == 0 || strcasecmp(szValue, "static") == 0))
        pNetIf->blStatic = 1;
    // Of an interface that asks a DHCP server, the file's gateway may be a leftover.
    if (pNetIf->blStatic == 0) return 0;
    iFound = GetKeyValueFromFile(pLog, szIfCfg, "GATEWAY", szValue, '=');
    if (iFound == -1) return -1;
    if (iFound == 1) ParseAddress(szValue, pNetIf->ulGateway);
    return 0;
}

void ParseIfCfgFiles(const QIVEN_LOG *pLog, QIVEN_NETIF *rgNetIf, int n) {
    for (int i = 0; i < n; ++i) {
        QIVEN_NETIF &netIf = rgNetIf[i];
        char szPath[kPathSize];
        snprintf(szPath, sizeof szPath, "%s%s", kPrefix, netIf.szIfName);
        if (ParseIfCfg(pLog, szPath, &netIf) == 0) continue;
        // Bytes below 0x10 are padded with a blank: that is how these files are named.
        const unsigned char *rgMac = netIf.rgMac;
        snprintf(szPath, sizeof szPath, "%s%s-%2x:%2x:%2x:%2x:%2x:%2x", kPrefix, netIf.szIfName, rgMac[0],
                 rgMac[1], rgMac[2], rgMac[3], rgMac[4], rgMac[5]);
        ParseIfCfg(pLog, szPath, &netIf);
    }
}

}  // namespace qiven::iface_lnx
