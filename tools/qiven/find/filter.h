// Which hosts "qiven find" shows: --name, --model, --type and --service.
#pragma once

#include <qiven/nasinfo.h>

#include "find/options.h"

namespace qiven::find {

// False also for packets that are not answers: the queries of this and other searchers arrive, too.
bool IsWantedHost(const Options &options, const nasinfo &record);

}  // namespace qiven::find
