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

// Whether the patterns let an interface be used. Bridges and cards of containers and virtual machines are
// left out unless they are named or all are wanted.
bool IsWanted(const Asker &asker, const std::string &name);

// Sends the query, which carries the process key, out of every wanted interface that is usable, from its own
// address. Says once for each interface when that failed, and why when there is none.
// Returns the number of interfaces that the query left by.
int Ask(Asker &asker);

}  // namespace qiven::find
