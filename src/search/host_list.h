// The host list: where it is, and what writes it.
#pragma once

#include <qiven/nasinfo.h>

#include <cstddef>

namespace qiven::search {

// While a search writes it.
inline constexpr char kListFile[] = "/tmp/tavoqx.list";
// After the search has finished.
inline constexpr char kFinishedListFile[] = "/tmp/tavoqx.list.tmp";
// For answers of type 6, if the file exists.
inline constexpr char kInstListFile[] = "/tmp/grinst_chche.list";

// A search writes lines of at most 1023 characters, but every user of the machine can put a list of their own
// into /tmp: the reader keeps at most this much of a line.
inline constexpr std::size_t kListLineMax = 65536;

// The filter of a search: 1 for records that describe a host (types 2 and 6), else 0.
int checkNasinfoType(nasinfo *pnasinfo);
// The handler of a search: appends a host's line to the list file of its type. Returns -1 for a null record,
// else 0.
int addNasinfoToList(nasinfo *pnasinfo);

bool FileExists(const char *szPath);

}  // namespace qiven::search
