// Sends a host's record out of every active interface, each copy with that interface's own address.
#pragma once

#include <qiven/iface.h>

#include <array>
#include <cstdint>
#include <string>

#include "answer/config.h"
#include "answer/limits.h"

namespace qiven::answer {

// Where answers go out. The interfaces are those of a moment ago: listed anew for an answer, but not for
// every one of a burst.
struct Sender {
    QIVEN_LOG *pLog = nullptr;  // of messages::Record()
    uint32_t ulProcessID = 0;   // our own
    std::array<QIVEN_NETIF, QIVEN_IFACE_MAX> table{};
    int nListed = 0;
    Milliseconds read = 0;
    std::string failure;  // of the listing: what it leaves out
    bool blFresh = false;
};

// "eth1 192.0.2.1, eth2 198.51.100.1": where answers go out now.
std::string Outlets(Sender &sender, Milliseconds now);

// Sends the answer, sealed for the searcher if one is given. Returns what went wrong on an interface, or why
// no interface was used; empty if all is well. Throws std::bad_alloc without memory.
std::string Send(Sender &sender, const Announcement &announcement, const Searcher *pSearcher,
                 Milliseconds now);

}  // namespace qiven::answer
