#include "iface_lnx/iface_lnx.h"

// Only the first line counts: a resolver asks the others when that server does not answer, and a tab behind
// the key makes it another key.
void qiven::iface_lnx::ParseResolvConf(const QIVEN_LOG *pLog) {
    char szValue[kValueSize];
    if (GetKeyValueFromFile(pLog, "/etc/resolv.conf", "nameserver", szValue, ' ') == 1)
        ParseAddress(szValue, gulDNS);
}
