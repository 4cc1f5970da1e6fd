// The dump's step for one record.
#pragma once

#include <qiven/iface.h>

namespace qiven::iface {

// Writes the nine lines of one record; a null record is reported and skipped.
void DumpNetIf(const QIVEN_LOG *pLog, const QIVEN_NETIF *pNetIf);

}  // namespace qiven::iface
