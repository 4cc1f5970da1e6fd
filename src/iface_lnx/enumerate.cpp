// The order of one enumeration, and the list of interfaces in /proc/net/dev.
#include "iface_lnx/enumerate.h"

#include <dirent.h>

#include <cstring>

#include "base/message.h"
#include "iface_lnx/config_file.h"
#include "iface_lnx/kernel.h"
#include "iface_lnx/sources.h"

namespace qiven::iface_lnx {

namespace {

constexpr int kHeaderLines = 2;

bool CheckTable(const QIVEN_LOG *pLog, base::Where where, const QIVEN_NETIF *rgNetIf, int numNetIf) {
    return base::Check(pLog, where, rgNetIf != nullptr, "((void *)0) != rgNetIf") &&
           base::Check(pLog, where, 0 < numNetIf, "0 < numNetIf") &&
           base::Check(pLog, where, QIVEN_IFACE_MAX >= numNetIf, "QIVEN_IFACE_MAX >= numNetIf");
}

bool HasIfCfgDirectory() {
    DIR *pDir = opendir("/etc/sysconfig/network-scripts/");
    if (pDir == nullptr) return false;
    closedir(pDir);
    return true;
}

}  // namespace

int ListInterfacesOf(const QIVEN_LOG *pLog, FILE *pfDev, QIVEN_NETIF *rgNetIf, int numNetIf) {
    char szLine[512];
    int iLine = 0;
    int n = 0;
    while (fgets(szLine, sizeof szLine, pfDev) != nullptr) {
        if (iLine < kHeaderLines) {
            ++iLine;
            continue;
        }
        char *szColon = strchr(szLine, ':');
        if (szColon == nullptr) continue;
        if (n == numNetIf) break;
        *szColon = '\0';
        const char *szName = szLine + strspn(szLine, " \t");
        if (!IsUsable(pLog, szName)) continue;
        CopyName(rgNetIf[n].szIfName, szName);
        rgNetIf[n].blActive = 1;
        ++n;
    }
    return ferror(pfDev) != 0 ? -1 : n;
}

int ListInterfaces(const QIVEN_LOG *pLog, QIVEN_NETIF *rgNetIf, int numNetIf) {
    if (!CheckTable(pLog, kModule, rgNetIf, numNetIf)) return -1;
    const File file(fopen("/proc/net/dev", "re"));
    return file == nullptr ? -1 : ListInterfacesOf(pLog, file.get(), rgNetIf, numNetIf);
}

int FillTable(const QIVEN_LOG *pLog, QIVEN_NETIF *rgNetIf, int numNetIf, uint32_t &ulDNS) {
    if (!CheckTable(pLog, kModule, rgNetIf, numNetIf)) return -1;
    ParseResolvConf(pLog, ulDNS);
    const int n = ListInterfaces(pLog, rgNetIf, numNetIf);
    for (int i = 0; i < n; ++i) {
        if (rgNetIf[i].blActive == 1 && !ReadAddresses(pLog, rgNetIf[i])) rgNetIf[i].blActive = 0;
    }
    ParseNMKeyfiles(pLog, rgNetIf, n, ulDNS);
    if (HasIfCfgDirectory())
        ParseIfCfgFiles(pLog, rgNetIf, n);
    else
        ParseNetworkInterfaces(pLog, rgNetIf, n);
    return n;
}

}  // namespace qiven::iface_lnx
