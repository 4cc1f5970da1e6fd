// Values by key, as ifcfg files, keyfiles and resolv.conf have them.
#include <algorithm>
#include <cerrno>
#include <string_view>

#include "base/message.h"
#include "iface_lnx/config_file.h"

namespace qiven::iface_lnx {

namespace {

constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";

void TrimEnd(std::string_view &text) {
    while (!text.empty() && kWhiteSpace.find(text.back()) != std::string_view::npos)
        text.remove_suffix(1);
}

std::string_view KeyOf(std::string_view line, char chDelim) {
    line.remove_suffix(line.size() - std::min(line.find(chDelim), line.size()));
    TrimEnd(line);
    return line;
}

std::string_view ValueOf(std::string_view line, char chDelim) {
    line.remove_prefix(std::min(line.find(chDelim), line.size()));
    while (!line.empty() && (line.front() == chDelim || kBlanks.find(line.front()) != std::string_view::npos))
        line.remove_prefix(1);
    TrimEnd(line);
    if (line.empty() || line.front() != '"' || line.back() != '"') return line;
    line.remove_prefix(1);
    // A value of one quote is empty now: the quote was both the first and the last character.
    if (!line.empty()) line.remove_suffix(1);
    return line;
}

int CopyValue(const QIVEN_LOG *pLog, std::string_view value, char *szValue) {
    const unsigned long long cbNeeded = value.size() + 1;
    if (cbNeeded > kValueSize) {
        base::Error(pLog, kModule, "buffer len %d, requires %llu", static_cast<int>(kValueSize), cbNeeded);
        return -1;
    }
    value.copy(szValue, value.size());
    szValue[value.size()] = '\0';
    return 1;
}

}  // namespace

int GetKeyValue(const QIVEN_LOG *pLog, FILE *pfSrc, const char *szKey, char *szValue, char chDelim) {
    if (!base::Check(pLog, kModule, pfSrc != nullptr, "((void *)0) != pfSrc") ||
        !base::Check(pLog, kModule, szKey != nullptr, "((void *)0) != szKey") ||
        !base::Check(pLog, kModule, szValue != nullptr, "((void *)0) != szValue") ||
        !base::Check(pLog, kModule, chDelim != 0, "0 != chDelim"))
        return -1;
    rewind(pfSrc);
    LineReader lines(pfSrc);
    while (const char *szLine = lines.Next()) {
        if (KeyOf(szLine, chDelim) == szKey) return CopyValue(pLog, ValueOf(szLine, chDelim), szValue);
    }
    return 0;
}

int GetKeyValueFromFile(const QIVEN_LOG *pLog, const char *szFile, const char *szKey, char *szValue,
                        char chDelim) {
    if (!base::Check(pLog, kModule, szFile != nullptr, "((void *)0) != szFile") ||
        !base::Check(pLog, kModule, szKey != nullptr, "((void *)0) != szKey") ||
        !base::Check(pLog, kModule, szValue != nullptr, "((void *)0) != szValue") ||
        !base::Check(pLog, kModule, chDelim != 0, "0 != chDelim"))
        return -1;
    const File file = OpenFile(szFile);
    if (file == nullptr) {
        base::Error(pLog, kModule, "failed to open file %s error:(%d)", szFile, errno);
        return -1;
    }
    return GetKeyValue(pLog, file.get(), szKey, szValue, chDelim);
}

}  // namespace qiven::iface_lnx
