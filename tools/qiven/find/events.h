// The events of the engine: which of them become rows, lines of --watch or warnings.
#pragma once

#include "find/run.h"

namespace qiven::find {

// Whether the next event may be taken. Those of --watch that may not be written wait in the engine, which
// joins the events of a host.
bool MayTakeEvent(Run &run);

// Takes events until there is no more, or none may be taken.
void TakeEvents(Run &run);

}  // namespace qiven::find
