// An interface table that configuration files complete, and the comparison with the expected table.
#pragma once

#include <qiven/iface.h>
#include <arpa/inet.h>

#include <cstring>

#include "files.h"
#include "fuzz.h"
#include "iface_lnx/config_file.h"
#include "iface_lnx/sources.h"
#include "support/log_capture.h"
#include "support/memory_file.h"

namespace fuzz {

// Two interfaces that the files name, and one beyond the count that must not change.
struct Table {
    QIVEN_NETIF rgNetIf[3]{};
    uint32_t ulMachineDNS = INADDR_NONE;

    Table() {
        strcpy(rgNetIf[0].szIfName, "eth0");
        strcpy(rgNetIf[1].szIfName, "br-lan.7");
        memcpy(rgNetIf[1].rgMac, "\x02\x1b\x3c\x0a\x0b\xff", 6);
        rgNetIf[2] = rgNetIf[1];
    }
    static constexpr int kCount = 2;
};

// Parses an address; returns false and leaves ulAddr unchanged if the text is not an address.
inline bool SlowAddress(const std::string &text, uint32_t &ulAddr) {
    const in_addr_t addr = inet_addr(text.c_str());
    if (addr != INADDR_NONE) ulAddr = addr;
    return addr != INADDR_NONE;
}

inline bool SameWord(const std::string &one, const char *szOther) {
    return strcasecmp(one.c_str(), szOther) == 0;
}

// The value as a lookup returns it: nothing if it is too long, which is reported.
inline std::optional<std::string> Looked(const std::string &text, const char *szKey, char cDelim,
                                         std::vector<std::string> &messages) {
    std::optional<std::string> value = SlowValue(text, szKey, cDelim);
    if (!value || value->size() <= kValueMax) return value;
    messages.push_back("1|iface_lnx:# buffer len 128, requires " + std::to_string(value->size() + 1));
    return std::nullopt;
}

inline void RequireSameTable(const Table &expected, const Table &actual) {
    // No record has padding that a parser could touch. NOLINTNEXTLINE
    Require(memcmp(expected.rgNetIf, actual.rgNetIf, sizeof expected.rgNetIf) == 0,
            "the file completes the table as it should");
    Require(expected.ulMachineDNS == actual.ulMachineDNS,
            "the file sets the machine's DNS server as it should");
}

}  // namespace fuzz
