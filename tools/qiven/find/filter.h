// Which hosts "qiven find" shows: --name, --model, --type and --service.
#pragma once

#include <qiven/watch.h>

#include "find/options.h"

namespace qiven::find {

// False also for a host that was heard only on interfaces that are not searched.
bool IsWantedHost(const Options &options, const QIVEN_WATCH_HOST &host);

}  // namespace qiven::find
