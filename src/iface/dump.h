// The dump of one interface record.
#pragma once

#include <qiven/iface.h>

namespace qiven::iface {

// Writes the nine lines of one record; reports a null record and writes nothing for it.
void DumpNetIf(const QIVEN_LOG *pLog, const QIVEN_NETIF *pNetIf);

}  // namespace qiven::iface
