// The query of "qiven find": its fields, and the interfaces on which it is sent.
#pragma once

#include <qiven/udp.h>

#include <set>
#include <string>
#include <vector>

namespace qiven::find {

struct Querier {
    std::vector<std::string> interfaces, excludes;  // patterns
    bool blAllInterfaces = false;
    QIVEN_LOG *pLog = nullptr;

    std::set<std::string> complained;  // messages that are not repeated
};

// Whether the options allow an interface to be used. Interfaces of containers and virtual machines are left
// out unless they are named or all are wanted.
bool IsWanted(const Querier &querier, const std::string &name);

struct Queried {
    int nSent = 0;               // interfaces on which the query was sent
    bool blNoInterface = false;  // there is no interface to send it on
};

// Sends the query, which carries the process key, on every wanted interface that has an address, from that
// address. Reports each failure once, and the reason if there is no such interface.
Queried SendQueries(Querier &querier);

}  // namespace qiven::find
