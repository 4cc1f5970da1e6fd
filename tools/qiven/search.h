// One run of "qiven find": the receive loop and what it decides.
#pragma once

#include "find_options.h"

namespace qiven::find {

// Searches and shows what is found. Returns the exit status. One run per process: the library's callbacks and
// the signal handlers carry no context.
int Search(const Options &options);

}  // namespace qiven::find
