// What the kernel says about an interface. The messages of these functions name the module "iface".
#pragma once

#include <qiven/iface.h>

#include <cstddef>
#include <cstring>

namespace qiven::iface_lnx {

// Copies an interface name and cuts it to the array: 64 bytes in a record, 16 in a request to the kernel.
template <std::size_t cbTo>
void CopyName(char (&szTo)[cbTo], const char *szFrom) {
    const std::size_t cb = strnlen(szFrom, cbTo - 1);
    std::memcpy(szTo, szFrom, cb);
    szTo[cb] = '\0';
}

// Returns whether an interface is up and running, and neither loopback, point-to-point, bonding slave, tun
// nor tap. False also if the kernel cannot be asked.
bool IsUsable(const QIVEN_LOG *pLog, const char *szIf);

// Reads the hardware address, the address, the broadcast address and the mask of the interface that the
// record names, in this order. False at the first that cannot be read; blActive is 0 then, unless the socket
// or the hardware address failed.
bool ReadAddresses(const QIVEN_LOG *pLog, QIVEN_NETIF &netIf);

}  // namespace qiven::iface_lnx
