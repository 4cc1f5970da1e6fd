// Splitting, trimming and checking of texts.
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <exception>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "szlist.h"
#include "tavocore.h"

namespace {

// isalnum() depends on the locale; host names do not.
bool IsAlnum(char ch) {
    return (ch >= 'a' && ch <= 'z') || (ch >= 'A' && ch <= 'Z') || (ch >= '0' && ch <= '9');
}

bool IsLabel(std::string_view label) {
    constexpr size_t kLabelMax = 63;
    return !label.empty() && label.size() <= kLabelMax && label.front() != '-' && label.back() != '-' &&
           std::all_of(label.begin(), label.end(), [](char ch) { return IsAlnum(ch) || ch == '-'; });
}

// Calls fnField with each field until it returns false. True if it never did.
template <class Function>
bool ForEachField(std::string_view text, std::string_view separators, Function fnField) {
    for (;;) {
        const size_t cb = text.find_first_of(separators);
        if (!fnField(text.substr(0, cb))) return false;
        if (cb == std::string_view::npos) return true;
        text.remove_prefix(cb + 1);
    }
}

}  // namespace

int TLIBCStrSep(const char *szText, const char *szSeparators, TLIBC_SZLIST_HANDLE *ppList) {
    if (szText == nullptr || szSeparators == nullptr || *szSeparators == '\0') return -1;
    if (ppList == nullptr || *ppList == nullptr) return -1;
    try {
        std::vector<std::string> rgField;
        ForEachField(szText, szSeparators, [&rgField](std::string_view field) {
            rgField.emplace_back(field);
            return true;
        });
        const auto nField = static_cast<int>(rgField.size());
        (*ppList)->Append(std::move(rgField));
        return nField;
    } catch (const std::exception &) {
        return -1;
    }
}

int TLIBCStrTrimSpace(char *szText, int /*iFlags*/) {
    if (szText == nullptr) return -1;
    constexpr std::string_view kSpaces = " \t\n\v\f\r";
    std::string_view text = szText;
    text.remove_prefix(std::min(text.find_first_not_of(kSpaces), text.size()));
    text = text.substr(0, text.find_last_not_of(kSpaces) + 1);  // npos + 1 is 0
    memmove(szText, text.data(), text.size());
    szText[text.size()] = '\0';
    return static_cast<int>(text.size());
}

int BlTLIBIsHostname(const char *szText) {
    constexpr size_t kNameMax = 253;
    if (szText == nullptr || strnlen(szText, kNameMax + 1) > kNameMax) return 0;
    return ForEachField(szText, ".", IsLabel) ? 1 : 0;
}
