#include "output/text.h"

#include <fmt/format.h>

#include <fnmatch.h>
#include <langinfo.h>

#include <algorithm>
#include <cstring>
#include <cwchar>

namespace qiven::text {

namespace {

struct Range {
    char32_t first, last;
};

// C1 controls, format controls, invisible letters, variation selectors, separators that end a line, tags,
// noncharacters: they change the look of other text or cannot be seen.
constexpr Range kHidden[] = {
    {0x80, 0x9F},     {0xAD, 0xAD},       {0x34F, 0x34F},     {0x61C, 0x61C},     {0x115F, 0x1160},
    {0x17B4, 0x17B5}, {0x180B, 0x180F},   {0x200B, 0x200F},   {0x2028, 0x202E},   {0x2060, 0x206F},
    {0x3164, 0x3164}, {0xFDD0, 0xFDEF},   {0xFE00, 0xFE0F},   {0xFEFF, 0xFEFF},   {0xFFA0, 0xFFA0},
    {0xFFF0, 0xFFFB}, {0x1BCA0, 0x1BCA3}, {0x1D173, 0x1D17A}, {0xE0000, 0xE0FFF},
};

bool IsHidden(char32_t value) {
    const bool blNoCharacter = (value & 0xFFFE) == 0xFFFE;  // the last two of each plane
    return blNoCharacter || std::any_of(std::begin(kHidden), std::end(kHidden), [value](const Range &range) {
               return range.first <= value && value <= range.last;
           });
}

// Length of the sequence that starts with a lead byte, and the smallest value that needs this length.
struct Lead {
    size_t cbLength;
    char32_t bits, least;
};

Lead ReadLead(unsigned char b) {
    if (b < 0x80) return {1, b, 0};
    if ((b & 0xE0) == 0xC0) return {2, b & 0x1FU, 0x80};
    if ((b & 0xF0) == 0xE0) return {3, b & 0x0FU, 0x800};
    if ((b & 0xF8) == 0xF0) return {4, b & 0x07U, 0x10000};
    return {0, 0, 0};
}

size_t WidthOf(char32_t value) {
    if (value < 0x80) return 1;
    const int iWidth = wcwidth(static_cast<wchar_t>(value));
    return iWidth < 0 ? 1 : static_cast<size_t>(iWidth);
}

}  // namespace

CodePoint Next(std::string_view text) {
    const Lead lead = ReadLead(static_cast<unsigned char>(text[0]));
    if (lead.cbLength == 0 || lead.cbLength > text.size()) return {0, 0};
    char32_t value = lead.bits;
    for (size_t i = 1; i < lead.cbLength; ++i) {
        const auto b = static_cast<unsigned char>(text[i]);
        if ((b & 0xC0) != 0x80) return {0, 0};
        value = (value << 6) | (b & 0x3FU);
    }
    const bool blSurrogate = value >= 0xD800 && value <= 0xDFFF;
    if (value < lead.least || value > 0x10FFFF || blSurrogate) return {0, 0};
    return {value, lead.cbLength};
}

bool IsUtf8(std::string_view text) {
    while (!text.empty()) {
        const CodePoint point = Next(text);
        if (point.cbLength == 0) return false;
        text.remove_prefix(point.cbLength);
    }
    return true;
}

std::string Escape(std::string_view text, bool blAscii, char cAlso) {
    std::string result;
    while (!text.empty()) {
        const CodePoint point = Next(text);
        const auto b = static_cast<unsigned char>(text[0]);
        if (b == '\\') {
            result += "\\\\";
        } else if (point.cbLength == 0 || b < 0x20 || b == 0x7F || (cAlso != '\0' && text[0] == cAlso)) {
            result += fmt::format("\\x{:02x}", b);
        } else if (point.cbLength > 1 && (blAscii || IsHidden(point.value))) {
            const auto value = static_cast<uint32_t>(point.value);
            result += value <= 0xFFFF ? fmt::format("\\u{:04x}", value) : fmt::format("\\U{:08x}", value);
        } else {
            result += text.substr(0, point.cbLength);
        }
        text.remove_prefix(std::max<size_t>(point.cbLength, 1));
    }
    return result;
}

bool IsUtf8Locale() {
    return strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
}

size_t Width(std::string_view text) {
    size_t uWidth = 0;
    while (!text.empty()) {
        const CodePoint point = Next(text);
        uWidth += WidthOf(point.value);
        text.remove_prefix(std::max<size_t>(point.cbLength, 1));
    }
    return uWidth;
}

std::string Cut(std::string_view text, size_t uColumns) {
    if (uColumns == 0) return {};
    if (Width(text) <= uColumns) return std::string(text);
    const size_t uSpace = uColumns - 1;
    size_t uWidth = 0;
    size_t cbKept = 0;
    while (cbKept < text.size()) {
        const CodePoint point = Next(text.substr(cbKept));
        if (uWidth + WidthOf(point.value) > uSpace) break;
        uWidth += WidthOf(point.value);
        cbKept += std::max<size_t>(point.cbLength, 1);
    }
    return std::string(text.substr(0, cbKept)) + (IsUtf8Locale() ? "\u2026" : "~");
}

std::string Hex(std::string_view bytes) {
    std::string result;
    for (const char c : bytes)
        result += fmt::format("{:02x}", static_cast<unsigned char>(c));
    return result;
}

bool Matches(const std::string &pattern, const std::string &text, bool blFoldCase) {
    // glibc refuses text that is not valid in the locale; then the bytes decide.
    const int iFlags = blFoldCase ? FNM_CASEFOLD : 0;
    return fnmatch(pattern.c_str(), text.c_str(), iFlags) == 0;
}

}  // namespace qiven::text
