// One run of "qiven find": the receive loop, signals and the exit status.
#pragma once

#include <string>

#include "find/options.h"

namespace qiven::find {

// Searches, and shows the hosts that answer. Returns the exit status. One run per process: the library's
// callbacks and the signal handlers carry no context. pfnExplain says why no host was found; it is used on
// a terminal.
int Search(const Options &options, std::string (*pfnExplain)());

}  // namespace qiven::find
