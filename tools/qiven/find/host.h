// A host as the engine reports it.
#pragma once

#include <qiven/watch.h>

#include <string>

namespace qiven::find {

// The first address that was heard on an interface that is searched; null if the host was heard elsewhere
// only.
const QIVEN_WATCH_ADDRESS *FirstAddress(const QIVEN_WATCH_HOST &host);

// "attic (10.9.0.7)", for a message.
std::string Label(const QIVEN_WATCH_HOST &host);

}  // namespace qiven::find
