// The Linux enumeration: one reader per configuration source, on top of one key/value reader. Whatever a
// reader does not understand it leaves out; nothing in a configuration file ends an enumeration.
#pragma once

#include <qiven/iface.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace qiven::iface_lnx {

inline constexpr const char *kRoom = "iface_lnx";
inline constexpr std::size_t kValueSize = 128;
inline constexpr std::size_t kPathSize = 4096;

struct FileCloser {
    void operator()(FILE *pf) const { fclose(pf); }
};
using File = std::unique_ptr<FILE, FileCloser>;

// Opens for reading without ever waiting: a FIFO in the place of a file is at its end at once. Sets errno.
File OpenFile(const char *szPath);

// Hands out the lines of a file that say something. A line may have any length; a NUL byte ends its text.
class LineReader {
  public:
    explicit LineReader(FILE *pf) : m_pf(pf) {}
    ~LineReader() { free(m_szLine); }
    LineReader(const LineReader &) = delete;
    LineReader &operator=(const LineReader &) = delete;

    // The next line that is neither empty nor a comment, without its leading blanks, valid until the next
    // call; null at the end or at a read error (no memory is one).
    char *Next();

  private:
    FILE *m_pf;
    char *m_szLine = nullptr;
    std::size_t m_cbLine = 0;
};

// Stores an address that inet_addr accepts; 255.255.255.255 cannot be told apart from a refusal.
bool ParseAddress(const char *szText, uint32_t &ulAddr);

// First value of a key, in whichever section it stands: 1 found, 0 not found, -1 bad argument or a value
// that needs more than kValueSize bytes. Searches from the start of the stream.
int GetKeyValue(const QIVEN_LOG *pLog, FILE *pfSrc, const char *szKey, char *szValue, char chDelim);
// The same in a file that is opened for this look; -1 also when it cannot be opened.
int GetKeyValueFromFile(const QIVEN_LOG *pLog, const char *szFile, const char *szKey, char *szValue,
                        char chDelim);

// /proc/net/dev: lists the usable devices among its lines. Number listed, or -1 at a read error.
int ListDevices(const QIVEN_LOG *pLog, FILE *pfDev, QIVEN_NETIF *rgNetIf, int numNetIf);

// /etc/resolv.conf: sets gulDNS.
void ParseResolvConf(const QIVEN_LOG *pLog);

// One keyfile: completes the record with its hardware address.
void ParseNMKeyfile(const QIVEN_LOG *pLog, FILE *pf, QIVEN_NETIF *rgNetIf, int n);
int ParseNMKeyfiles(const QIVEN_LOG *pLog, QIVEN_NETIF *rgNetIf, int n);

// One ifcfg file: 0, or -1 when a look into it failed.
int ParseIfCfg(const QIVEN_LOG *pLog, const char *szIfCfg, QIVEN_NETIF *pNetIf);
void ParseIfCfgFiles(const QIVEN_LOG *pLog, QIVEN_NETIF *rgNetIf, int n);

// The lines of /etc/network/interfaces.
void ParseStanzas(FILE *pf, QIVEN_NETIF *rgNetIf, int n);
void ParseNetworkInterfaces(const QIVEN_LOG *pLog, QIVEN_NETIF *rgNetIf, int n);

}  // namespace qiven::iface_lnx
