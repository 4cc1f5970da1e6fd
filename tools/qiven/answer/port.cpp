#include "answer/port.h"

#include <algorithm>

#include "fields.h"
#include "output/format.h"

namespace qiven::answer {

namespace {

bool IsUsed(const QIVEN_INTERFACE &interface) {
    return interface.ulState == QIVEN_INTERFACE_USED || interface.ulState == QIVEN_INTERFACE_FAILED;
}

struct Network {
    uint32_t ulSegment;
    QIVEN_INTERFACE_ADDRESS address;
};

bool Overlap(const QIVEN_INTERFACE_ADDRESS &one, const QIVEN_INTERFACE_ADDRESS &other) {
    return ((one.ulIP ^ other.ulIP) & one.ulMask & other.ulMask) == 0;
}

// Adds the networks of an interface; the result is its segment.
uint32_t Join(std::vector<Network> &networks, const QIVEN_INTERFACE &interface) {
    uint32_t ulSegment = interface.ulIfIndex;
    const QIVEN_INTERFACE_ADDRESS *pEnd = interface.rgAddress + interface.nAddresses;
    for (const QIVEN_INTERFACE_ADDRESS *p = interface.rgAddress; p != pEnd; ++p)
        for (const Network &network : networks)
            if (Overlap(*p, network.address)) ulSegment = std::min(ulSegment, network.ulSegment);
    for (const QIVEN_INTERFACE_ADDRESS *p = interface.rgAddress; p != pEnd; ++p)
        networks.push_back({ulSegment, *p});
    return ulSegment;
}

}  // namespace

// Answers that are sealed name the process, so it has keys; but nothing can be meant for it.
std::unique_ptr<Port> OpenPort(const interface_filter::Filter &filter, bool blRefused, int &iResult) {
    auto port = std::make_unique<Port>(filter);
    QIVEN_ENDPOINT_CONF conf{};
    conf.cbSize = sizeof conf;
    conf.ulFlags = QIVEN_ENDPOINT_SHUT | (blRefused ? QIVEN_ENDPOINT_REFUSED : 0);
    conf.ulTypes = 1U << QIVEN_PKT_QUERY;
    conf.pfnInterface = interface_filter::Choose;
    conf.pvUser = &port->filter;
    iResult = QIVENEndpointOpen(&port->pEndpoint, &conf);
    if (iResult < 0) port.reset();
    return port;
}

std::vector<Outlet> ListOutlets(const Port &port) {
    std::vector<Outlet> outlets;
    std::vector<Network> networks;
    const QIVEN_INTERFACE *p = nullptr;
    for (uint32_t ulAfter = 0; (p = QIVENEndpointInterface(port.pEndpoint, ulAfter)) != nullptr;) {
        ulAfter = p->ulIfIndex;
        if (!IsUsed(*p)) continue;
        outlets.push_back({p->ulIfIndex, Join(networks, *p),
                           fmt::format("{} {}", p->szIfName, fields::Dotted(p->rgAddress[0].ulIP))});
    }
    return outlets;
}

std::string Describe(const Port &port, const std::vector<Outlet> &outlets) {
    std::string text;
    for (const Outlet &outlet : outlets)
        text += (text.empty() ? "" : ", ") + outlet.text;
    if (!text.empty()) return text;
    const auto After = [&port](uint32_t ulAfter) { return QIVENEndpointInterface(port.pEndpoint, ulAfter); };
    return fmt::format("no interface ({})", interface_filter::WhyNone(port.filter, After));
}

uint32_t SegmentOf(const std::vector<Outlet> &outlets, uint32_t ulIfIndex) {
    const auto found = std::find_if(outlets.begin(), outlets.end(), [ulIfIndex](const Outlet &outlet) {
        return outlet.ulIfIndex == ulIfIndex;
    });
    return found != outlets.end() ? found->ulSegment : ulIfIndex;
}

}  // namespace qiven::answer
