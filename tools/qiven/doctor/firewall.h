// Finds firewall rules that drop datagrams of the discovery port, in nftables and iptables.
#pragma once

#include <optional>
#include <string>

namespace qiven::doctor {

enum class Direction { kIn, kOut };

// The rule or policy that most likely drops or rejects datagrams of the port in this direction, in words;
// empty if there is none or the rules cannot be read.
std::optional<std::string> FindDrop(Direction direction);

}  // namespace qiven::doctor
