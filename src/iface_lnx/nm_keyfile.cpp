#include <dirent.h>
#include <netinet/in.h>
#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <span>

#include "iface_lnx/iface_lnx.h"

namespace qiven::iface_lnx {

namespace {

constexpr const char *kDirectory = "/etc/NetworkManager/system-connections";

struct DirCloser {
    void operator()(DIR *pDir) const { closedir(pDir); }
};

// "%x:%x:%x:%x:%x:%x" as scanf reads it (blanks, a sign or 0x in front of a number, anything behind the
// last one), but defined for numbers of any size.
bool ParseMac(const char *szText, unsigned char (&rgMac)[6]) {
    for (size_t i = 0; i < sizeof rgMac; ++i) {
        if (i > 0 && *szText++ != ':') return false;
        char *szEnd = nullptr;
        rgMac[i] = static_cast<unsigned char>(strtoul(szText, &szEnd, 16) & 0xFF);
        if (szEnd == szText) return false;
        szText = szEnd;
    }
    return true;
}

QIVEN_NETIF *FindByMac(const unsigned char (&rgMac)[6], std::span<QIVEN_NETIF> table) {
    const auto it = std::find_if(table.begin(), table.end(), [&](const QIVEN_NETIF &netIf) {
        return memcmp(netIf.rgMac, rgMac, sizeof rgMac) == 0;
    });
    return it == table.end() ? nullptr : &*it;
}

void ApplyDns(char *szValue, QIVEN_NETIF &netIf) {
    const size_t cb = strlen(szValue);
    if (cb > 0 && szValue[cb - 1] == ';') szValue[cb - 1] = '\0';
    if (ParseAddress(szValue, netIf.ulDNS) && gulDNS == INADDR_NONE) gulDNS = netIf.ulDNS;
}

// Address, prefix length, gateway; only the gateway is news.
void ApplyAddresses(char *szValue, QIVEN_NETIF &netIf) {
    char *szRest = nullptr;
    const char *szField = strtok_r(szValue, ";", &szRest);
    for (int i = 0; i < 2 && szField != nullptr; ++i)
        szField = strtok_r(nullptr, ";", &szRest);
    if (szField != nullptr) ParseAddress(szField, netIf.ulGateway);
}

bool IsRegular(FILE *pf) {
    struct stat status {};
    return fstat(fileno(pf), &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

void ParseNMKeyfile(const QIVEN_LOG *pLog, FILE *pf, QIVEN_NETIF *rgNetIf, int n) {
    char szValue[kValueSize];
    unsigned char rgMac[6];
    if (GetKeyValue(pLog, pf, "mac-address", szValue, '=') != 1 || !ParseMac(szValue, rgMac)) return;
    QIVEN_NETIF *pNetIf = FindByMac(rgMac, {rgNetIf, static_cast<size_t>(std::max(n, 0))});
    if (pNetIf == nullptr) return;
    if (GetKeyValue(pLog, pf, "method", szValue, '=') == 1 && strcasecmp(szValue, "manual") == 0)
        pNetIf->blStatic = 1;
    if (GetKeyValue(pLog, pf, "dns", szValue, '=') == 1) ApplyDns(szValue, *pNetIf);
    if (GetKeyValue(pLog, pf, "addresses1", szValue, '=') == 1) ApplyAddresses(szValue, *pNetIf);
}

int ParseNMKeyfiles(const QIVEN_LOG *pLog, QIVEN_NETIF *rgNetIf, int n) {
    const std::unique_ptr<DIR, DirCloser> dir(opendir(kDirectory));
    if (dir == nullptr) return -1;
    while (const dirent *pEntry = readdir(dir.get())) {
        if (strcmp(pEntry->d_name, ".") == 0 || strcmp(pEntry->d_name, "..") == 0) continue;
        char szPath[kPathSize];
        snprintf(szPath, sizeof szPath, "%s/%s", kDirectory, pEntry->d_name);
        const File file = OpenFile(szPath);
        if (file != nullptr && IsRegular(file.get())) ParseNMKeyfile(pLog, file.get(), rgNetIf, n);
    }
    return 0;
}

}  // namespace qiven::iface_lnx
