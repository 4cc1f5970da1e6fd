// One run of "qiven find": the loop and the exit status.
#pragma once

#include "commands.h"
#include "find/options.h"

namespace qiven::find {

// Searches, and shows the hosts that answer. Returns the exit status. pfnExplain says why no host was found;
// it is used on a terminal.
int Search(const Options &options, Explain pfnExplain);

}  // namespace qiven::find
