// The packets that arrive at the discovery port while `qiven doctor` listens.
#pragma once

#include <qiven/watch.h>

#include <map>
#include <set>
#include <string>

#include "doctor/checks.h"

namespace qiven::doctor {

struct Arrivals {
    std::set<uint32_t> own;  // numbers of the interfaces by which the own query came back
    // Senders of answers, by the name of the interface.
    std::map<std::string, std::set<uint32_t>> hosts, offLink, unused;
    std::set<uint32_t> local;  // addresses of this machine that answered
    size_t nQueries = 0;
    size_t nSealed = 0;
    size_t nJunk = 0;
    std::string sealedFrom;
    std::string junkFrom;
    std::string junkReason;
};

void Count(Arrivals &arrivals, const QIVEN_RECEIVED &received);

// "eth0 (3), eth1 (1)"
std::string CountsOf(const std::map<std::string, std::set<uint32_t>> &senders);

Check JudgeArrivals(const Arrivals &arrivals);

}  // namespace qiven::doctor
