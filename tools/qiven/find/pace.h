// When "qiven find" sends its next query.
#pragma once

#include "find/run.h"

namespace qiven::find {

bool IsQueryDue(const Run &run);

}  // namespace qiven::find
