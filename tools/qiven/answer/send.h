// Sends the record of the host on every active interface, with the addresses of that interface.
#pragma once

#include <qiven/iface.h>

#include <array>
#include <cstdint>
#include <string>

#include "answer/config.h"
#include "answer/limits.h"

namespace qiven::answer {

// The interfaces on which answers are sent. The list is renewed for an answer, but not for each answer of
// a burst.
struct Sender {
    QIVEN_LOG *pLog = nullptr;  // of messages::Record()
    uint32_t ulProcessID = 0;   // of this process
    std::array<QIVEN_NETIF, QIVEN_IFACE_MAX> table{};
    int nListed = 0;
    Milliseconds read = 0;
    std::string failure;  // why the list may be incomplete
    bool blFresh = false;
};

// The interfaces on which answers are sent now: "eth1 192.0.2.1, eth2 198.51.100.1".
std::string Outlets(Sender &sender, Milliseconds now);

// Sends the answer, sealed for the searcher if one is given. Returns the failure on an interface, or why no
// interface was used; empty on success. Throws std::bad_alloc if memory runs out.
std::string Send(Sender &sender, const Announcement &announcement, const Searcher *pSearcher,
                 Milliseconds now);

}  // namespace qiven::answer
