// Messages on standard error, and the library's, which are kept off the terminal unless asked for: strangers'
// packets cause most of them.
//
// Nothing here throws, and neither a reader that has gone nor a full disk ends the program. A message that
// cannot be written is counted, and the next one that can comes after a line with the number of lost ones.
#pragma once

#include <qiven/log.h>

#include <string>
#include <string_view>

namespace qiven::messages {

// One line: "qiven: TEXT", or "qiven SUBCOMMAND: TEXT". The text is escaped here, and cut when it is very
// long.
void Say(std::string_view text, std::string_view subcommand = {}) noexcept;

// Bytes as they are, for a line of progress. Not counted when they cannot be written.
void Show(std::string_view bytes) noexcept;

// While one of these exists, a message whose reader sleeps is lost instead of waiting. Strangers cause
// messages, so a program that answers or searches must not wait for the reader of its log. The flags of
// standard error stay as they are, because other processes share them.
struct NeverWait {
    NeverWait() noexcept;
    ~NeverWait();
    NeverWait(const NeverWait &) = delete;
    NeverWait &operator=(const NeverWait &) = delete;
};

// A log record whose messages are remembered, and shown when blVerbose is set: some at once, then a few per
// second, with a note of how many were held back.
QIVEN_LOG *Record(bool blVerbose);

// Text of the last level-1 message, without the place in the source; empty when there was none since the
// last call.
std::string TakeLast();

}  // namespace qiven::messages
