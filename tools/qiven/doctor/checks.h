// The checks of `qiven doctor`. They do not change anything.
#pragma once

#include <qiven/iface.h>

#include <chrono>
#include <string>
#include <vector>

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

// Whether an interface can be used for searching. Fills the list of those that can.
Check CheckInterfaces(std::vector<QIVEN_NETIF> &usable);

// Whether it is possible to listen on the discovery port.
Check CheckPort();

// Sends one query on every interface and listens for incoming packets, in particular for these queries. With
// blAll it listens for the whole time, else until all of the queries have come back. Adds the checks "send",
// "loopback", "firewall" and "arrivals". Returns the number of answers of hosts.
size_t CheckTraffic(const std::vector<QIVEN_NETIF> &usable, std::chrono::milliseconds listen, bool blAll,
                    std::vector<Check> &checks);

}  // namespace qiven::doctor
