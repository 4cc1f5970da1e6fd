// Text that came off the network or out of a file, made safe for terminals and logs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qiven::text {

// One step through UTF-8: the code point at the front and its length, or length 0 when the first byte starts
// no valid sequence (overlong forms and surrogates are not valid). The text must not be empty.
struct CodePoint {
    char32_t value;
    size_t cbLength;
};
CodePoint Next(std::string_view text);

bool IsUtf8(std::string_view text);

// The text with everything that could steer or deceive a reader spelt out: "\\" for a backslash, "\xNN" for a
// control byte or a byte that is no UTF-8, "\uNNNN" or "\UNNNNNNNN" for C1 controls, bidirectional and other
// invisible format controls, line and paragraph separators. Reversible. With blAscii everything beyond ASCII
// is spelt out, too; a list separator given as cAlso becomes "\xNN".
std::string Escape(std::string_view text, bool blAscii = false, char cAlso = '\0');

// Whether the locale's character set is UTF-8, so that letters beyond ASCII may be shown as they are.
bool IsUtf8Locale();

// Columns that an escaped text takes on a terminal.
size_t Width(std::string_view text);
// The text cut to so many columns, with a mark where something is missing.
std::string Cut(std::string_view text, size_t uColumns);

std::string Hex(std::string_view bytes);

// Shell pattern (*, ?, [...]); letters compare without regard to case on request.
bool Matches(const std::string &pattern, const std::string &text, bool blFoldCase = false);

}  // namespace qiven::text
