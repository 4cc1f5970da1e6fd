// The discovery port, and the interfaces that answers go out of.
#pragma once

#include <qiven/watch.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "interface_filter.h"

namespace qiven::answer {

// An interface in use. Interfaces whose networks overlap are on one segment.
struct Outlet {
    uint32_t ulIfIndex, ulSegment;  // the segment is named by one of its interfaces
    std::string text;               // "eth1 192.0.2.1"
};

// The endpoint asks the filter as long as it is open.
struct Port {
    interface_filter::Filter filter;
    QIVEN_ENDPOINT *pEndpoint = nullptr;

    explicit Port(const interface_filter::Filter &chosen) : filter(chosen) {}
    ~Port() { QIVENEndpointClose(pEndpoint); }
    Port(const Port &) = delete;
    Port &operator=(const Port &) = delete;
};

// Null on failure; iResult then says why. With blRefused it gives out what cannot be read, too.
std::unique_ptr<Port> OpenPort(const interface_filter::Filter &filter, bool blRefused, int &iResult);

std::vector<Outlet> ListOutlets(const Port &port);
// "eth1 192.0.2.1, eth2 198.51.100.1", or "no interface (REASON)".
std::string Describe(const Port &port, const std::vector<Outlet> &outlets);
// An interface that has just appeared may not be listed yet: it is taken for a segment of its own.
uint32_t SegmentOf(const std::vector<Outlet> &outlets, uint32_t ulIfIndex);

}  // namespace qiven::answer
