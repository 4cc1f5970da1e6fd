// Standard output, which may be slow, full or closed. Each function throws std::system_error if it cannot be
// written; main() turns that into a message and an exit status.
#pragma once

#include <string>
#include <string_view>

namespace qiven::standard_output {

// Writes everything, and waits for the reader.
void Write(std::string_view text);

// Text that is written as far as standard output takes it without waiting.
struct Queue {
    std::string text;
    size_t cbSent = 0;  // of the text
    int iError = 0;     // why the last attempt failed, unless it was for a reader that waits
};

// Writes what it can; true if nothing is left. After an error that may pass, such as a full disk, later calls
// try again.
bool Send(Queue &queue);

[[noreturn]] void ThrowError(int iError);

// Ends the process by SIGPIPE, as a write would, if the reader of standard output has gone: a long run that
// has nothing to write would not notice.
void EndWithoutReader();

}  // namespace qiven::standard_output
