// The library's messages, kept off the terminal unless asked for: strangers' packets cause most of them.
#pragma once

#include <qiven/log.h>

#include <string>

namespace qiven::messages {

// A log record whose messages are remembered, and shown escaped on standard error when blVerbose is set: at
// most some per second, with a note of how many were held back.
QIVEN_LOG *Record(bool blVerbose);

// Text of the last level-1 message, without the place in the source; empty when there was none since the
// last call.
std::string TakeLast();

// One line on standard error: "qiven: ..."
void Say(const std::string &text);

}  // namespace qiven::messages
