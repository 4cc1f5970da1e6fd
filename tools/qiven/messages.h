// Messages on standard error, and the messages of the library, which are shown on request only, because most
// of them are caused by packets of other senders.
//
// Nothing here throws, and neither a closed pipe nor a full disk ends the program. A message that cannot be
// written is counted; the next one that can is preceded by the number of lost messages.
#pragma once

#include <qiven/log.h>

#include <string>
#include <string_view>

namespace qiven::messages {

// Writes one line: "qiven: TEXT", or "qiven SUBCOMMAND: TEXT". Escapes the text, and cuts it if it is
// very long.
void Say(std::string_view text, std::string_view subcommand = {}) noexcept;

// Writes bytes unchanged, for a line of progress. They are not counted if they cannot be written.
void Show(std::string_view bytes) noexcept;

// While an object of this type exists, a message is lost if writing it would wait for its reader. Other
// senders cause messages, so a program that answers or searches must not wait for the reader of its log. The
// flags of standard error stay unchanged, because other processes share them.
struct NeverWait {
    NeverWait() noexcept;
    ~NeverWait();
    NeverWait(const NeverWait &) = delete;
    NeverWait &operator=(const NeverWait &) = delete;
};

// A log record whose last message is kept for TakeLast(). With blVerbose all are shown, up to a rate limit:
// further ones are counted, and the next one shows the count.
QIVEN_LOG *Record(bool blVerbose);

// Text of the last level-1 message, without its place in the source; empty if there was none since the
// last call.
std::string TakeLast();

}  // namespace qiven::messages
