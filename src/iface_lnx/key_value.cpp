#include <arpa/inet.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "iface_lnx/iface_lnx.h"
#include "log/message.h"

namespace qiven::iface_lnx {

namespace {

constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kWhitespace = " \t\n\v\f\r";

void TrimEnd(std::string_view &text) {
    while (!text.empty() && kWhitespace.find(text.back()) != std::string_view::npos)
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
    // A lone quote was both the first and the last character.
    if (!line.empty()) line.remove_suffix(1);
    return line;
}

int CopyValue(const QIVEN_LOG *pLog, std::string_view value, char *szValue) {
    const unsigned long long cbNeeded = value.size() + 1;
    if (cbNeeded > kValueSize) {
        log::Error(pLog, kRoom, "buffer len %d, requires %llu", static_cast<int>(kValueSize), cbNeeded);
        return -1;
    }
    value.copy(szValue, value.size());
    szValue[value.size()] = '\0';
    return 1;
}

}  // namespace

File OpenFile(const char *szPath) {
    const int fd = open(szPath, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd == -1) return nullptr;
    File file(fdopen(fd, "r"));
    if (file == nullptr) {
        const int iError = errno;
        close(fd);
        errno = iError;
    }
    return file;
}

char *LineReader::Next() {
    while (getline(&m_szLine, &m_cbLine, m_pf) != -1) {
        char *szText = m_szLine + strspn(m_szLine, kBlanks.data());
        if (strchr("\r\n#", *szText) == nullptr) return szText;  // finds the NUL of an empty line, too
    }
    return nullptr;
}

bool ParseAddress(const char *szText, uint32_t &ulAddr) {
    const in_addr_t addr = inet_addr(szText);
    if (addr == INADDR_NONE) return false;
    ulAddr = addr;
    return true;
}

int GetKeyValue(const QIVEN_LOG *pLog, FILE *pfSrc, const char *szKey, char *szValue, char chDelim) {
    if (!log::Check(pLog, kRoom, pfSrc != nullptr, "((void *)0) != pfSrc") ||
        !log::Check(pLog, kRoom, szKey != nullptr, "((void *)0) != szKey") ||
        !log::Check(pLog, kRoom, szValue != nullptr, "((void *)0) != szValue") ||
        !log::Check(pLog, kRoom, chDelim != 0, "0 != chDelim"))
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
    if (!log::Check(pLog, kRoom, szFile != nullptr, "((void *)0) != szFile") ||
        !log::Check(pLog, kRoom, szKey != nullptr, "((void *)0) != szKey") ||
        !log::Check(pLog, kRoom, szValue != nullptr, "((void *)0) != szValue") ||
        !log::Check(pLog, kRoom, chDelim != 0, "0 != chDelim"))
        return -1;
    const File file = OpenFile(szFile);
    if (file == nullptr) {
        log::Error(pLog, kRoom, "failed to open file %s error:(%d)", szFile, errno);
        return -1;
    }
    return GetKeyValue(pLog, file.get(), szKey, szValue, chDelim);
}

}  // namespace qiven::iface_lnx
