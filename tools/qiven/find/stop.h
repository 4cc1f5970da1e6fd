// When "qiven find" stops.
#pragma once

#include <cstdint>

#include "find/run.h"

namespace qiven::find {

// The number of hosts after which the run stops (--count, --expect); 0 if there is none.
uint64_t WantedHosts(const Options &options);

// Seconds until the run stops if no new host answers; below 0 if it does not stop by itself.
double SecondsLeft(const Run &run);

bool IsOver(const Run &run);

}  // namespace qiven::find
