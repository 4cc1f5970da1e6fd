// NetworkManager keyfiles.
#include <dirent.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstring>
#include <span>

#include "iface_lnx/config_file.h"
#include "iface_lnx/sources.h"

namespace qiven::iface_lnx {

namespace {

constexpr char kDirectory[] = "/etc/NetworkManager/system-connections";

struct DirectoryCloser {
    void operator()(DIR *pDir) const { closedir(pDir); }
};

// Reads a hardware address as scanf() does with "%x:%x:%x:%x:%x:%x": blanks, a sign or 0x may precede a
// number, and anything may follow the last one. Unlike scanf(), it is defined for numbers of any size.
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

void ApplyDns(char *szValue, QIVEN_NETIF &netIf, uint32_t &ulDNS) {
    const size_t cb = strlen(szValue);
    if (cb > 0 && szValue[cb - 1] == ';') szValue[cb - 1] = '\0';
    if (ParseAddress(szValue, netIf.ulDNS) && ulDNS == INADDR_NONE) ulDNS = netIf.ulDNS;
}

// The fields are address, prefix length and gateway. The kernel has already given the first two.
void ApplyAddresses(char *szValue, QIVEN_NETIF &netIf) {
    char *szRest = nullptr;
    const char *szField = strtok_r(szValue, ";", &szRest);
    for (int i = 0; i < 2 && szField != nullptr; ++i)
        szField = strtok_r(nullptr, ";", &szRest);
    if (szField != nullptr) ParseAddress(szField, netIf.ulGateway);
}

}  // namespace

void ParseNMKeyfile(const QIVEN_LOG *pLog, FILE *pf, QIVEN_NETIF *rgNetIf, int n, uint32_t &ulDNS) {
    char szValue[kValueSize];
    unsigned char rgMac[6];
    if (GetKeyValue(pLog, pf, "mac-address", szValue, '=') != 1 || !ParseMac(szValue, rgMac)) return;
    QIVEN_NETIF *pNetIf = FindByMac(rgMac, {rgNetIf, static_cast<size_t>(std::max(n, 0))});
    if (pNetIf == nullptr) return;
    if (GetKeyValue(pLog, pf, "method", szValue, '=') == 1 && IsKeyword(szValue, "manual"))
        pNetIf->blStatic = 1;
    if (GetKeyValue(pLog, pf, "dns", szValue, '=') == 1) ApplyDns(szValue, *pNetIf, ulDNS);
    if (GetKeyValue(pLog, pf, "addresses1", szValue, '=') == 1) ApplyAddresses(szValue, *pNetIf);
}

int ParseNMKeyfiles(const QIVEN_LOG *pLog, QIVEN_NETIF *rgNetIf, int n, uint32_t &ulDNS) {
    const std::unique_ptr<DIR, DirectoryCloser> dir(opendir(kDirectory));
    if (dir == nullptr) return -1;
    while (const dirent *pEntry = readdir(dir.get())) {
        if (strcmp(pEntry->d_name, ".") == 0 || strcmp(pEntry->d_name, "..") == 0) continue;
        char szPath[kConfigPathSize];
        snprintf(szPath, sizeof szPath, "%s/%s", kDirectory, pEntry->d_name);
        const File file = OpenFile(szPath);
        if (file != nullptr) ParseNMKeyfile(pLog, file.get(), rgNetIf, n, ulDNS);
    }
    return 0;
}

}  // namespace qiven::iface_lnx
