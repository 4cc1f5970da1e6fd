#include <dirent.h>

#include <cstring>

#include "iface/copy_text.h"
#include "iface_lnx/iface_lnx.h"
#include "log/message.h"

namespace {

using qiven::iface_lnx::kRoom;

constexpr int kHeaderLines = 2;

bool CheckTable(const QIVEN_LOG *pLog, qiven::log::Where where, const QIVEN_NETIF *rgNetIf, int numNetIf) {
    return qiven::log::Check(pLog, where, rgNetIf != nullptr, "((void *)0) != rgNetIf") &&
           qiven::log::Check(pLog, where, 0 < numNetIf, "0 < numNetIf") &&
           qiven::log::Check(pLog, where, QIVEN_IFACE_MAX >= numNetIf, "QIVEN_IFACE_MAX >= numNetIf");
}

bool HasIfCfgDirectory() {
    DIR *pDir = opendir("/etc/sysconfig/network-scripts/");
    if (pDir == nullptr) return false;
    closedir(pDir);
    return true;
}

}  // namespace

int qiven::iface_lnx::ListDevices(const QIVEN_LOG *pLog, FILE *pfDev, QIVEN_NETIF *rgNetIf, int numNetIf) {
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
        if (QIVENIfaceGetActive(pLog, szName) == -1) continue;
        iface::CopyText(rgNetIf[n].szIfName, szName);
        rgNetIf[n].blActive = 1;
        ++n;
    }
    return ferror(pfDev) != 0 ? -1 : n;
}

int QIVENGetIfListLnx(const QIVEN_LOG *pLog, QIVEN_NETIF *rgNetIf, int numNetIf) {
    if (!CheckTable(pLog, kRoom, rgNetIf, numNetIf)) return -1;
    const qiven::iface_lnx::File file(fopen("/proc/net/dev", "re"));
    return file == nullptr ? -1 : qiven::iface_lnx::ListDevices(pLog, file.get(), rgNetIf, numNetIf);
}

int QIVENIfaceInitLnx(const QIVEN_LOG *pLog, QIVEN_NETIF *rgNetIf, int numNetIf) {
    if (!CheckTable(pLog, kRoom, rgNetIf, numNetIf)) return -1;
    qiven::iface_lnx::ParseResolvConf(pLog);
    const int n = QIVENGetIfListLnx(pLog, rgNetIf, numNetIf);
    for (int i = 0; i < n; ++i) {
        if (rgNetIf[i].blActive == 1 && QIVENIfaceGetNetSetting(pLog, &rgNetIf[i]) == -1)
            rgNetIf[i].blActive = 0;
    }
    qiven::iface_lnx::ParseNMKeyfiles(pLog, rgNetIf, n);
    if (HasIfCfgDirectory())
        qiven::iface_lnx::ParseIfCfgFiles(pLog, rgNetIf, n);
    else
        qiven::iface_lnx::ParseNetworkInterfaces(pLog, rgNetIf, n);
    return n;
}
