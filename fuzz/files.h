// For slow readers of text files: parts of a text, by value.
#pragma once

#include <string>
#include <vector>

namespace fuzz {

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

}  // namespace fuzz
