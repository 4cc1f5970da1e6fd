// The DNS server in /etc/resolv.conf.
#include "iface_lnx/config_file.h"
#include "iface_lnx/sources.h"

// Only the first line with the key counts: a resolver uses the further servers only if the first does not
// answer. A tab between key and address is part of the key, so such a line does not count.
void qiven::iface_lnx::ParseResolvConf(const QIVEN_LOG *pLog, uint32_t &ulDNS) {
    char szValue[kValueSize];
    if (GetKeyValueFromFile(pLog, "/etc/resolv.conf", "nameserver", szValue, ' ') == 1)
        ParseAddress(szValue, ulDNS);
}
