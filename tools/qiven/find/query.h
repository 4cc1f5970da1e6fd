// Asking the segment: which interfaces, and the query out of each of them.
#pragma once

#include <qiven/udp.h>

#include <set>
#include <string>
#include <vector>

namespace qiven::find {

struct Asker {
    std::vector<std::string> interfaces, excludes;  // patterns
    bool blAllInterfaces = false;
    QIVEN_LOG *pLog = nullptr;

    std::set<std::string> complained;  // what was said once is not said again
};

// Whether the patterns let an interface be used. Bridges and interfaces of containers and virtual machines
// are left out unless they are named or all are wanted.
bool IsWanted(const Asker &asker, const std::string &name);

struct Asked {
    int nSent = 0;        // interfaces that the query was sent on
    bool blNone = false;  // there is no interface to send it on
};

// Sends the query, which carries the process key, on every wanted interface that has an address, from that
// address. Says once for each interface if that failed, and why if there is none.
Asked Ask(Asker &asker);

}  // namespace qiven::find
