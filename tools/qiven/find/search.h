// One run of "qiven find": the receive loop and what it decides.
#pragma once

#include <string>

#include "find/options.h"

namespace qiven::find {

// Searches and shows what is found. Returns the exit status. One run per process: the library's callbacks and
// the signal handlers carry no context.
// pfnExplain says why nothing was found, to a person at a terminal.
int Search(const Options &options, std::string (*pfnExplain)());

}  // namespace qiven::find
