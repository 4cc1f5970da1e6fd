// Shared by the slow readers of text files: lines and words, passed by value.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace fuzz {

inline const char *const kBlanks = " \t";

inline std::vector<std::string> Split(const std::string &text, const char *szSeparators, bool blEmptyToo) {
    std::vector<std::string> parts(1);
    for (const char c : text) {
        if (std::string(szSeparators).find(c) == std::string::npos)
            parts.back() += c;
        else if (blEmptyToo || !parts.back().empty())
            parts.emplace_back();
    }
    if (!blEmptyToo && parts.back().empty()) parts.pop_back();
    return parts;
}

inline std::string TrimStart(std::string text, const char *szWhat) {
    while (!text.empty() && std::string(szWhat).find(text.front()) != std::string::npos)
        text.erase(0, 1);
    return text;
}

inline std::string TrimEnd(std::string text, const char *szWhat) {
    while (!text.empty() && std::string(szWhat).find(text.back()) != std::string::npos)
        text.pop_back();
    return text;
}

// The lines that are not empty or comments, without leading blanks; a NUL ends the text of a line.
inline std::vector<std::string> TellingLines(const std::string &text) {
    std::vector<std::string> telling;
    for (const std::string &line : Split(text, "\n", true)) {
        const std::string rest = TrimStart(line.c_str(), kBlanks);
        if (!rest.empty() && rest[0] != '\r' && rest[0] != '#') telling.push_back(rest);
    }
    return telling;
}

// The value of the first line with the key, of any length; nothing without such a line.
inline std::optional<std::string> SlowValue(const std::string &text, const std::string &key, char cDelim) {
    const char szWhitespaceAndDelim[] = {' ', '\t', '\n', '\v', '\f', '\r', cDelim, '\0'};
    const char szBlanksAndDelim[] = {' ', '\t', cDelim, '\0'};
    for (const std::string &line : TellingLines(text)) {
        const size_t cbKey = line.find(cDelim);
        if (TrimEnd(line.substr(0, cbKey), szWhitespaceAndDelim) != key) continue;
        std::string value = cbKey == std::string::npos ? "" : line.substr(cbKey + 1);
        value = TrimEnd(TrimStart(value, szBlanksAndDelim), " \t\n\v\f\r");
        if (value == "\"") return "";
        if (value.size() > 1 && value.front() == '"' && value.back() == '"')
            return value.substr(1, value.size() - 2);
        return value;
    }
    return std::nullopt;
}

constexpr size_t kValueMax = 127;

}  // namespace fuzz
