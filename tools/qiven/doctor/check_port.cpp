// Opens the discovery port, and explains why it cannot be opened.
#include <fmt/format.h>

#include <cerrno>
#include <utility>

#include "doctor/checks.h"
#include "doctor/port_holder.h"

namespace qiven::doctor {

Port OpenPort(const interface_filter::Filter &filter) {
    Port port;
    QIVEN_ENDPOINT_CONF conf{};
    conf.cbSize = sizeof conf;
    conf.ulFlags = QIVEN_ENDPOINT_PLAIN | QIVEN_ENDPOINT_OWN | QIVEN_ENDPOINT_REFUSED;
    conf.pfnInterface = interface_filter::Choose;
    conf.pvUser = const_cast<interface_filter::Filter *>(&filter);
    QIVEN_ENDPOINT *pEndpoint = nullptr;
    port.iError = QIVENEndpointOpen(&pEndpoint, &conf);
    conf.ulFlags |= QIVEN_ENDPOINT_NO_PORT;
    if (port.iError < 0) QIVENEndpointOpen(&pEndpoint, &conf);
    port.endpoint.reset(pEndpoint);
    return port;
}

Check CheckPort(const Port &port) {
    if (port.iError == 0)
        return {"port", Result::kOk, fmt::format("UDP port {} is available", QIVEN_PORT), {}};
    if (port.iError != -EADDRINUSE)
        return {"port", Result::kFault,
                fmt::format("UDP port {} cannot be opened: {}", QIVEN_PORT, QIVENWatchError(port.iError)),
                "look for a restriction of this process (a sandbox, a security module)"};
    return {"port", Result::kFault,
            fmt::format("UDP port {} is not shared by {}", QIVEN_PORT, HolderOf(QIVEN_PORT)),
            "stop that program, or make it set SO_REUSEADDR"};
}

}  // namespace qiven::doctor
