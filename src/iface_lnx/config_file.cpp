// Opening a configuration file, its lines, keywords and addresses.
#include "iface_lnx/config_file.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace qiven::iface_lnx {

namespace {

char ToLower(char ch) {
    return static_cast<char>('A' <= ch && ch <= 'Z' ? ch - 'A' + 'a' : ch);
}

// Sets errno if it returns false.
bool IsRegular(int fd) {
    struct stat status {};
    if (fstat(fd, &status) != 0) return false;
    errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    return S_ISREG(status.st_mode);
}

}  // namespace

File OpenFile(const char *szPath) {
    const int fd = open(szPath, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd == -1) return nullptr;
    File file(IsRegular(fd) ? fdopen(fd, "r") : nullptr);
    if (file == nullptr) {
        const int iError = errno;
        close(fd);
        errno = iError;
    }
    return file;
}

char *LineReader::Next() {
    while (getline(&m_szLine, &m_cbLine, m_pf) != -1) {
        char *szText = m_szLine + strspn(m_szLine, " \t");
        if (strchr("\r\n#", *szText) == nullptr)
            return szText;  // strchr() also finds the NUL of an empty line
    }
    return nullptr;
}

bool IsKeyword(const char *szText, const char *szKeyword) {
    while (*szText != '\0' && ToLower(*szText) == ToLower(*szKeyword)) {
        ++szText;
        ++szKeyword;
    }
    return *szText == *szKeyword;
}

bool ParseAddress(const char *szText, uint32_t &ulAddr) {
    const in_addr_t addr = inet_addr(szText);
    if (addr == INADDR_NONE) return false;
    ulAddr = addr;
    return true;
}

}  // namespace qiven::iface_lnx
