// Follows a datagram through the rules of nftables, which "nft -j list ruleset" gives as data.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "doctor/firewall.h"

namespace qiven::doctor::nft {

struct Place {
    std::string family, table, chain;
    uint64_t ullHandle = 0;  // of the rule; 0: the policy of the chain
};

// How certain it is that a rule drops the datagram. A condition on something that is not known of it, such as
// a rate, may be met.
enum class Rank { kCertain, kNamesPort, kPossible, kNone };

struct Judgement {
    bool blRead = false;      // the rules could be read, and all of them were looked at
    bool blForeign = false;   // there are rules in the form of iptables only
    Rank rank = Rank::kNone;  // of the place
    Place place;
};

// The rules that the datagram cannot reach, and those that it does not match, do not count.
Judgement Judge(const std::string &text, const Datagram &datagram);

}  // namespace qiven::doctor::nft
