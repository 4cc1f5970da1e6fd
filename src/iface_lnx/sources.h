// The configuration sources, one reader each. A reader ignores what it does not understand: nothing in a
// configuration file fails an enumeration. n is the number of records, below 1 for none.
#pragma once

#include <qiven/iface.h>

#include <cstdio>

namespace qiven::iface_lnx {

// /etc/resolv.conf: sets ulDNS.
void ParseResolvConf(const QIVEN_LOG *pLog, uint32_t &ulDNS);

// One NetworkManager keyfile: completes the record with its hardware address. Sets ulDNS if it is 0xFFFFFFFF.
void ParseNMKeyfile(const QIVEN_LOG *pLog, FILE *pf, QIVEN_NETIF *rgNetIf, int n, uint32_t &ulDNS);
// All keyfiles. Returns 0, or -1 if their directory cannot be opened.
int ParseNMKeyfiles(const QIVEN_LOG *pLog, QIVEN_NETIF *rgNetIf, int n, uint32_t &ulDNS);

// One ifcfg file. Returns 0, or -1 if a look-up in it failed.
int ParseIfCfg(const QIVEN_LOG *pLog, const char *szIfCfg, QIVEN_NETIF *pNetIf);
// The ifcfg file of each record.
void ParseIfCfgFiles(const QIVEN_LOG *pLog, QIVEN_NETIF *rgNetIf, int n);

// The stanzas of a file in the format of /etc/network/interfaces.
void ParseStanzas(FILE *pf, QIVEN_NETIF *rgNetIf, int n);
// /etc/network/interfaces.
void ParseNetworkInterfaces(const QIVEN_LOG *pLog, QIVEN_NETIF *rgNetIf, int n);

}  // namespace qiven::iface_lnx
