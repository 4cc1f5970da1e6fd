// Makes text from the network or from a file safe for terminals and logs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qiven::text {

// The first code point of a UTF-8 text and its length, or length 0 if the first byte does not start a valid
// sequence (overlong forms and surrogates are not valid). The text must not be empty.
struct CodePoint {
    char32_t value;
    size_t cbLength;
};
CodePoint Next(std::string_view text);

bool IsUtf8(std::string_view text);

// Escapes everything that could control a terminal or deceive a reader: "\\" for a backslash, "\xNN" for a
// control byte or a byte that is not UTF-8, "\uNNNN" or "\UNNNNNNNN" for C1 controls, bidirectional and other
// invisible format controls, line and paragraph separators. Reversible. With blAscii everything beyond ASCII
// is escaped, too; the character cAlso, such as a list separator, becomes "\xNN".
std::string Escape(std::string_view text, bool blAscii = false, char cAlso = '\0');

// Whether the locale uses UTF-8, so that letters beyond ASCII can be shown.
bool IsUtf8Locale();

// Columns of an escaped text on a terminal.
size_t Width(std::string_view text);
// The text, cut to uColumns columns with a mark at its end if it is longer.
std::string Cut(std::string_view text, size_t uColumns);

std::string Hex(std::string_view bytes);

// Whether the text matches a shell pattern (*, ?, [...]), ignoring case if blFoldCase is set.
bool Matches(const std::string &pattern, const std::string &text, bool blFoldCase = false);

}  // namespace qiven::text
