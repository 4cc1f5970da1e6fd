// The interfaces that can be searched through. QIVENIfaceInit() looks for the same ones, but stops at
// QIVEN_IFACE_MAX, even if none of these has an address; and it reads files of the system's configuration, of
// which nothing is needed here.
#pragma once

#include <qiven/iface.h>

#include <functional>
#include <vector>

namespace qiven {

// Lists the usable interfaces whose names are wanted, with what the kernel knows of them; blActive is 0 for
// one without an IPv4 address. One that the kernel does not tell about is left out, and the log record has
// the reason. Returns 0, or the error if the kernel does not list them at all.
int ListInterfaces(const QIVEN_LOG *pLog, const std::function<bool(const char *)> &isWanted,
                   std::vector<QIVEN_NETIF> &list);

}  // namespace qiven
