// When "qiven find" stops.
#pragma once

#include "find/run.h"

namespace qiven::find {

// Whether --count or --expect is met.
bool HasEnough(const Run &run);

// Whether the run stops at a certain time, whatever happens until then.
bool HasDeadline(const Options &options);
Clock::duration TimeLeft(const Run &run);

bool IsOver(const Run &run);

// Whether there are fewer hosts than --count or --expect wants.
bool AreMissing(const Run &run);

}  // namespace qiven::find
