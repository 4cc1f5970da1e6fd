// /etc/network/interfaces, the configuration of Debian and its relatives.
#include <cstring>

#include "iface_lnx/config_file.h"
#include "iface_lnx/sources.h"

namespace qiven::iface_lnx {

namespace {

constexpr char kSeparators[] = " \t\r\n";

bool BeginsWith(const char *szLine, const char *szWord) {
    return strncmp(szLine, szWord, strlen(szWord)) == 0;
}

QIVEN_NETIF *FindByName(const char *szName, QIVEN_NETIF *rgNetIf, int n) {
    for (int i = 0; i < n; ++i) {
        if (strcmp(rgNetIf[i].szIfName, szName) == 0) return &rgNetIf[i];
    }
    return nullptr;
}

// Reads "iface NAME FAMILY METHOD". Returns the record that the following lines are about, or null.
QIVEN_NETIF *BeginStanza(char *szLine, QIVEN_NETIF *rgNetIf, int n) {
    char *szRest = nullptr;
    strtok_r(szLine, kSeparators, &szRest);
    const char *szName = strtok_r(nullptr, kSeparators, &szRest);
    if (szName == nullptr) return nullptr;
    QIVEN_NETIF *pNetIf = FindByName(szName, rgNetIf, n);
    strtok_r(nullptr, kSeparators, &szRest);
    const char *szMethod = strtok_r(nullptr, kSeparators, &szRest);
    if (pNetIf != nullptr && szMethod != nullptr && IsKeyword(szMethod, "static")) pNetIf->blStatic = 1;
    return pNetIf;
}

void ApplyGateway(char *szText, QIVEN_NETIF &netIf) {
    char *szRest = nullptr;
    const char *szAddr = strtok_r(szText, kSeparators, &szRest);
    if (szAddr != nullptr) ParseAddress(szAddr, netIf.ulGateway);
}

}  // namespace

void ParseStanzas(FILE *pf, QIVEN_NETIF *rgNetIf, int n) {
    QIVEN_NETIF *pCurrent = nullptr;
    LineReader lines(pf);
    while (char *szLine = lines.Next()) {
        if (BeginsWith(szLine, "iface"))
            pCurrent = BeginStanza(szLine, rgNetIf, n);
        else if (pCurrent != nullptr && BeginsWith(szLine, "gateway"))
            ApplyGateway(szLine + strlen("gateway"), *pCurrent);
    }
}

void ParseNetworkInterfaces(const QIVEN_LOG *, QIVEN_NETIF *rgNetIf, int n) {
    const File file = OpenFile("/etc/network/interfaces");
    if (file != nullptr) ParseStanzas(file.get(), rgNetIf, n);
}

}  // namespace qiven::iface_lnx
