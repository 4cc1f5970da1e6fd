// ifcfg files, the configuration of Red Hat and its relatives.
#include "base/message.h"
#include "iface_lnx/config_file.h"
#include "iface_lnx/sources.h"

namespace qiven::iface_lnx {

namespace {

constexpr char kPrefix[] = "/etc/sysconfig/network-scripts/ifcfg-";

}  // namespace

int ParseIfCfg(const QIVEN_LOG *pLog, const char *szIfCfg, QIVEN_NETIF *pNetIf) {
    if (!base::Check(pLog, kModule, szIfCfg != nullptr, "((void *)0) != szIfCfg") ||
        !base::Check(pLog, kModule, pNetIf != nullptr, "NULL != pNetIf"))
        return -1;
    char szValue[kValueSize];
    int iFound = GetKeyValueFromFile(pLog, szIfCfg, "BOOTPROTO", szValue, '=');
    if (iFound == -1) return -1;
    if (iFound == 1 && (IsKeyword(szValue, "none") || IsKeyword(szValue, "static"))) pNetIf->blStatic = 1;
    // If the interface uses DHCP, a gateway in the file may be a leftover.
    if (pNetIf->blStatic == 0) return 0;
    iFound = GetKeyValueFromFile(pLog, szIfCfg, "GATEWAY", szValue, '=');
    if (iFound == -1) return -1;
    if (iFound == 1) ParseAddress(szValue, pNetIf->ulGateway);
    return 0;
}

void ParseIfCfgFiles(const QIVEN_LOG *pLog, QIVEN_NETIF *rgNetIf, int n) {
    for (int i = 0; i < n; ++i) {
        QIVEN_NETIF &netIf = rgNetIf[i];
        char szPath[kConfigPathSize];
        snprintf(szPath, sizeof szPath, "%s%s", kPrefix, netIf.szIfName);
        if (ParseIfCfg(pLog, szPath, &netIf) == 0) continue;
        // The names of these files pad bytes below 0x10 with a blank, not with a zero.
        const unsigned char *rgMac = netIf.rgMac;
        snprintf(szPath, sizeof szPath, "%s%s-%2x:%2x:%2x:%2x:%2x:%2x", kPrefix, netIf.szIfName, rgMac[0],
                 rgMac[1], rgMac[2], rgMac[3], rgMac[4], rgMac[5]);
        ParseIfCfg(pLog, szPath, &netIf);
    }
}

}  // namespace qiven::iface_lnx
