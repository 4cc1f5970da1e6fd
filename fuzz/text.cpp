// Any bytes as text from the network that is escaped for a terminal.
#include "../tools/qiven/output/text.h"
#include "fuzz.h"

namespace {

using fuzz::Require;

void AppendUtf8(std::string &text, unsigned long ulValue) {
    if (ulValue < 0x800) {
        text += static_cast<char>(0xC0 | ulValue >> 6);
    } else if (ulValue < 0x10000) {
        text += static_cast<char>(0xE0 | ulValue >> 12);
        text += static_cast<char>(0x80 | (ulValue >> 6 & 0x3F));
    } else {
        text += static_cast<char>(0xF0 | ulValue >> 18);
        text += static_cast<char>(0x80 | (ulValue >> 12 & 0x3F));
        text += static_cast<char>(0x80 | (ulValue >> 6 & 0x3F));
    }
    text += static_cast<char>(0x80 | (ulValue & 0x3F));
}

std::string Unescape(const std::string &escaped) {
    std::string text;
    for (size_t i = 0; i < escaped.size(); ++i) {
        if (escaped[i] != '\\') {
            text += escaped[i];
            continue;
        }
        const char cKind = escaped.at(++i);
        if (cKind == '\\') {
            text += cKind;
            continue;
        }
        const size_t cDigits = cKind == 'x' ? 2 : cKind == 'u' ? 4 : 8;
        const unsigned long ulValue = strtoul(escaped.substr(i + 1, cDigits).c_str(), nullptr, 16);
        if (cKind == 'x')
            text += static_cast<char>(ulValue);
        else
            AppendUtf8(text, ulValue);
        i += cDigits;
    }
    return text;
}

// Contains nothing that moves the cursor, ends a line, changes the writing direction or is invisible.
bool IsSafe(std::string_view text) {
    while (!text.empty()) {
        const qiven::text::CodePoint point = qiven::text::Next(text);
        const char32_t c = point.value;
        const bool blControl = c < 0x20 || (c >= 0x7F && c < 0xA0);
        const bool blHidden = c == 0xAD || c == 0x61C || (c >= 0x200B && c <= 0x200F) ||
                              (c >= 0x2028 && c <= 0x202E) || (c >= 0x2060 && c <= 0x206F) || c == 0xFEFF ||
                              (c >= 0xFE00 && c <= 0xFE0F) || c % 0x10000 >= 0xFFFE;
        if (point.cbLength == 0 || blControl || blHidden) return false;
        text.remove_prefix(point.cbLength);
    }
    return true;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t cbData) {
    const std::string text(fuzz::AsText(pData, cbData));
    for (const bool blAscii : {false, true}) {
        for (const char cAlso : {'\0', ',', '"'}) {
            const std::string escaped = qiven::text::Escape(text, blAscii, cAlso);
            Require(IsSafe(escaped), "escaped text is safe");
            Require(Unescape(escaped) == text, "escaping can be undone");
            Require(cAlso == '\0' || escaped.find(cAlso) == std::string::npos, "the separator is escaped");
            Require(!blAscii || std::all_of(escaped.begin(), escaped.end(), [](char c) { return c > 0; }),
                    "escaping to ASCII leaves nothing else");
            for (const size_t nColumns : {size_t{0}, size_t{1}, size_t{7}, size_t{80}}) {
                const std::string cut = qiven::text::Cut(escaped, nColumns);
                Require(qiven::text::Width(cut) <= nColumns, "a cut text has room");
                Require(IsSafe(cut), "a cut text is safe");
            }
        }
    }
    return 0;
}
