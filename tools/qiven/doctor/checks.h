// The checks of `qiven doctor`. They do not change anything.
#pragma once

#include <qiven/watch.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "interface_filter.h"

namespace qiven::doctor {

enum class Result {
    kOk,       // as it should be
    kNote,     // worth knowing, not the cause
    kFault,    // a cause
    kSkipped,  // could not be made, or depends on a check that failed
};

struct Check {
    std::string name;
    Result result;
    std::string text;    // one sentence without a full stop
    std::string remedy;  // of a fault
};

struct EndpointCloser {
    void operator()(QIVEN_ENDPOINT *pEndpoint) const { QIVENEndpointClose(pEndpoint); }
};

// The discovery port. If it cannot be opened, what is left of it: the interfaces, and sending.
struct Port {
    std::unique_ptr<QIVEN_ENDPOINT, EndpointCloser> endpoint;  // null if not even that is left
    int iError = 0;                                            // why it cannot be opened, negative
};
Port OpenPort(const interface_filter::Filter &filter);

// Calls the function for each interface of this machine.
template <typename Function>
void ForEachInterface(const Port &port, Function function) {
    const QIVEN_INTERFACE *p = nullptr;
    for (uint32_t ulAfter = 0; (p = QIVENEndpointInterface(port.endpoint.get(), ulAfter)) != nullptr;) {
        ulAfter = p->ulIfIndex;
        function(*p);
    }
}

// Whether an interface can be used for searching, and why not.
Check CheckInterfaces(const Port &port, const interface_filter::Filter &filter);

// Whether it is possible to listen on the discovery port.
Check CheckPort(const Port &port);

// Sends one query on every interface that is used and listens for incoming packets, in particular for these
// queries. With blAll it listens for the whole time, else until all of the queries have come back. Adds the
// checks "send", "loopback", "firewall" and "arrivals". Returns where hosts answered, in words; empty if none
// did.
std::string CheckTraffic(const Port &port, std::chrono::milliseconds listen, bool blAll,
                         std::vector<Check> &checks);

}  // namespace qiven::doctor
