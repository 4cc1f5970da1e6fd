// The interfaces of this machine, as the kernel lists them.
#pragma once

#include <qiven/iface.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qiven::interface_list {

// All names; nothing, with errno set, if the kernel does not list them.
std::optional<std::vector<std::string>> Names();

// Lists the usable interfaces whose names are wanted, with their addresses; blActive is 0 for an interface
// without an IPv4 address. An interface that the kernel gives no information on is left out, and the log
// record has the reason. Returns 0, or the error if the kernel does not list the interfaces at all.
//
// QIVENIfaceInit() finds the same interfaces, but stops at QIVEN_IFACE_MAX, even if none of these has an
// address, and reads configuration files, which are not needed for a search.
int List(const QIVEN_LOG *pLog, const std::function<bool(const std::string &)> &isWanted,
         std::vector<QIVEN_NETIF> &list);

// Whether a message of the library about the interfaces reports a failure. A file that does not exist and an
// interface without an address are not failures.
bool IsFailure(std::string_view message);

}  // namespace qiven::interface_list
