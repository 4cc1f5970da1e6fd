// Finds firewall rules that drop datagrams of the discovery port, in nftables and iptables.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace qiven::doctor {

enum class Direction { kIn, kOut };

// A broadcast of this machine's to the discovery port, on its way out or back in.
struct Datagram {
    Direction direction;
    std::string interface;
    uint32_t ulSource;  // host byte order
};

struct Finding {
    std::optional<std::string> rule;  // in words
    bool blRead;                      // whether the rules could be read
};

// The rule or policy that most likely drops or rejects a datagram that is known to be lost.
Finding FindDrop(const Datagram &datagram);

}  // namespace qiven::doctor
