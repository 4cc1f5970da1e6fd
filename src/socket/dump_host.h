// Callbacks of the host search.
#pragma once

#include <qiven/nasinfo.h>

namespace qiven::socket {

// 1 for records that describe a host (types 2 and 6), else 0.
int checkNasinfoType(nasinfo *pnasinfo);
// Appends a host's line to the list file of its type. -1 when the record is null, else 0.
int addNasinfoToList(nasinfo *pnasinfo);
// Writes a finished message to standard error unchanged. Returns 0.
int logToStderr(const char *szMessage);

}  // namespace qiven::socket
