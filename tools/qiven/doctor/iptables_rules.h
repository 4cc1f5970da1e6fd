// Rules of iptables in the form of those of nftables.
#pragma once

#include <string>
#include <vector>

namespace qiven::doctor::iptables {

// The output of iptables-save as "nft -j list ruleset" would give it; the handle of a rule is the number of
// its line, from 1. A condition that has no such form may or may not be met.
std::string ToNft(const std::vector<std::string> &lines);

}  // namespace qiven::doctor::iptables
