// The single checks of `qiven doctor`. Each looks at one thing, changes nothing and never fails as a whole.
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
    kSkipped,  // could not be looked at, or needs something that failed before
};

struct Check {
    std::string name;
    Result result;
    std::string text;    // one sentence without its full stop
    std::string remedy;  // of a fault
};

// Whether there is an interface to search by. Fills the list of those that can be used.
Check CheckCards(std::vector<QIVEN_NETIF> &usable);

// Whether the discovery port can be listened on.
Check CheckPort();

// Sends one query by every interface while listening for what comes in, our own query above all. Listens for
// the whole time with blAll, else until every query has been heard. Adds checks "send", "loopback",
// "firewall" and "arrivals". Returns the number of answers that hosts sent.
size_t CheckTraffic(const std::vector<QIVEN_NETIF> &usable, std::chrono::milliseconds listen, bool blAll,
                    std::vector<Check> &checks);

}  // namespace qiven::doctor
