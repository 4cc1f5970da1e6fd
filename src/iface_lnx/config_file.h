// Configuration files: opening them, their lines, and values by key.
#pragma once

#include <qiven/log.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace qiven::iface_lnx {

inline constexpr char kModule[] = "iface_lnx";
inline constexpr std::size_t kValueSize = 128;
inline constexpr std::size_t kConfigPathSize = 4096;

struct FileCloser {
    void operator()(FILE *pf) const { fclose(pf); }
};
using File = std::unique_ptr<FILE, FileCloser>;

// Opens a regular file for reading; null, with errno set, for anything else in its place: a FIFO would make
// the caller wait, and a device such as /dev/zero never ends.
File OpenFile(const char *szPath);

// Reads the lines of a file that are neither empty nor comments. A line may have any length; its text ends at
// a NUL byte.
class LineReader {
  public:
    explicit LineReader(FILE *pf) : m_pf(pf) {}
    ~LineReader() { free(m_szLine); }
    LineReader(const LineReader &) = delete;
    LineReader &operator=(const LineReader &) = delete;

    // Returns the next line without its leading blanks, valid until the next call; null at the end, at a read
    // error, or without memory.
    char *Next();

  private:
    FILE *m_pf;
    char *m_szLine = nullptr;
    std::size_t m_cbLine = 0;
};

// Compares keywords, ignoring the case of ASCII letters only. strcasecmp() follows the caller's locale: in a
// Turkish one, I and i are different letters.
bool IsKeyword(const char *szText, const char *szKeyword);

// Stores an address if inet_addr() accepts it. 255.255.255.255 is refused, because inet_addr() returns the
// same value for an error.
bool ParseAddress(const char *szText, uint32_t &ulAddr);

// Copies the value of the first line that has the key, in whichever section, searching from the start of the
// file. Returns 1 if found, 0 if not, -1 on a bad argument or if the value does not fit kValueSize bytes.
int GetKeyValue(const QIVEN_LOG *pLog, FILE *pfSrc, const char *szKey, char *szValue, char chDelim);
// The same for a file that is opened for this one look-up; -1 also if it cannot be opened.
int GetKeyValueFromFile(const QIVEN_LOG *pLog, const char *szFile, const char *szKey, char *szValue,
                        char chDelim);

}  // namespace qiven::iface_lnx
