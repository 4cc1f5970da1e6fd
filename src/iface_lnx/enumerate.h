// The Linux enumeration: the interfaces of the kernel, completed from the configuration files.
#pragma once

#include <qiven/iface.h>

#include <cstdio>

namespace qiven::iface_lnx {

// Fills the caller's table and sets ulDNS if a source names a DNS server. Returns the number of interfaces,
// or -1.
int FillTable(const QIVEN_LOG *pLog, QIVEN_NETIF *rgNetIf, int numNetIf, uint32_t &ulDNS);

// Lists the usable interfaces: their names and blActive. Returns their number, or -1.
int ListInterfaces(const QIVEN_LOG *pLog, QIVEN_NETIF *rgNetIf, int numNetIf);
// The same from an open /proc/net/dev.
int ListInterfacesOf(const QIVEN_LOG *pLog, FILE *pfDev, QIVEN_NETIF *rgNetIf, int numNetIf);

}  // namespace qiven::iface_lnx
