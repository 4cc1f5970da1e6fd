// Any text as each of the configuration files: values are found as a second, slow search finds them, and a
// file completes the interfaces that it is about, nothing else.
#include <qiven/iface.h>
#include <arpa/inet.h>

#include <cstring>
#include <optional>

#include "files.h"
#include "fuzz.h"
#include "iface_lnx/config_file.h"
#include "iface_lnx/sources.h"
#include "redirect.h"
#include "support/log_capture.h"
#include "support/memory_file.h"

namespace {

using fuzz::Require;
using namespace qiven::iface_lnx;

constexpr size_t kCount = 2;

// The value of the first line with the key, of any length.
std::optional<std::string> SlowValue(const std::string &text, const std::string &key, char cDelim) {
    const char szWhitespaceAndDelim[] = {' ', '\t', '\n', '\v', '\f', '\r', cDelim, '\0'};
    const char szBlanksAndDelim[] = {' ', '\t', cDelim, '\0'};
    for (const std::string &all : fuzz::Split(text, "\n", true)) {
        const std::string line = fuzz::TrimStart(all.c_str(), " \t");  // a NUL ends a line
        const size_t cbKey = line.find(cDelim);
        const bool blSkipped = line.empty() || line[0] == '\r' || line[0] == '#';
        if (blSkipped || fuzz::TrimEnd(line.substr(0, cbKey), szWhitespaceAndDelim) != key) continue;
        std::string value = cbKey == std::string::npos ? "" : line.substr(cbKey + 1);
        value = fuzz::TrimEnd(fuzz::TrimStart(value, szBlanksAndDelim), " \t\n\v\f\r");
        if (value == "\"") return "";
        const bool blQuoted = value.size() > 1 && value.front() == '"' && value.back() == '"';
        return blQuoted ? value.substr(1, value.size() - 2) : value;
    }
    return std::nullopt;
}

void RequireSameValue(const MemoryFile &file, const std::string &text, const char *szKey, char cDelim) {
    const std::optional<std::string> value = SlowValue(text, szKey, cDelim);
    const bool blFits = value && value->size() < kValueSize;
    char szValue[kValueSize] = "kept";
    LogCapture log;
    const int iResult = GetKeyValue(log.Record(), file.Stream(), szKey, szValue, cDelim);
    Require(iResult == (blFits ? 1 : value ? -1 : 0), "a key is found where it is, once");
    Require(szValue == (blFits ? *value : "kept"), "a value that is found is stored, and no other");
    Require(LogCapture::Take().empty() == (iResult >= 0), "a value that is too long is reported");
}

// The interfaces that a file may complete, and one behind them.
struct Table {
    QIVEN_NETIF rgNetIf[kCount + 1]{};
    Table() {
        strcpy(rgNetIf[0].szIfName, "eth0");
        strcpy(rgNetIf[1].szIfName, "br-lan.7");
        memcpy(rgNetIf[1].rgMac, "\x02\x1b\x3c\x0a\x0b\xff", 6);
        rgNetIf[2] = rgNetIf[1];
    }
};

template <class Parse>
void RequireCompleted(Parse parse) {
    Table table;
    uint32_t ulDNS = gulDNS = INADDR_NONE;
    parse(table.rgNetIf, ulDNS);
    Require(ulDNS == INADDR_NONE || ulDNS == table.rgNetIf[0].ulDNS || ulDNS == table.rgNetIf[1].ulDNS,
            "the machine's DNS server is that of an interface");
    Table expected;
    for (size_t i = 0; i < kCount; ++i) {
        Require(table.rgNetIf[i].blStatic == 0 || table.rgNetIf[i].blStatic == 1, "a mark is 0 or 1");
        Require(table.rgNetIf[i].ulGateway != INADDR_NONE && table.rgNetIf[i].ulDNS != INADDR_NONE,
                "what is not an address is not stored");
        expected.rgNetIf[i].blStatic = table.rgNetIf[i].blStatic;
        expected.rgNetIf[i].ulGateway = table.rgNetIf[i].ulGateway;
        expected.rgNetIf[i].ulDNS = table.rgNetIf[i].ulDNS;
    }
    // No record has padding that a parser could touch. NOLINTNEXTLINE
    Require(memcmp(expected.rgNetIf, table.rgNetIf, sizeof table.rgNetIf) == 0, "nothing else changes");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t cbData) {
    const std::string text(fuzz::AsText(pData, cbData));
    const MemoryFile file(text);
    for (const char cDelim : {' ', '='}) {
        for (const char *szKey : {"nameserver", "mac-address", "BOOTPROTO", "K", ""})
            RequireSameValue(file, text, szKey, cDelim);
    }
    LogCapture log;
    RequireCompleted([&](QIVEN_NETIF *rgNetIf, uint32_t &ulDNS) {
        rewind(file.Stream());
        ParseNMKeyfile(log.Record(), file.Stream(), rgNetIf, kCount, ulDNS);
    });
    RequireCompleted([&](QIVEN_NETIF *rgNetIf, uint32_t &) {
        rewind(file.Stream());
        ParseStanzas(file.Stream(), rgNetIf, kCount);
    });
    RequireCompleted([&](QIVEN_NETIF *rgNetIf, uint32_t &) {
        LogCapture::Take();
        const int iResult = ParseIfCfg(log.Record(), file.Path().c_str(), rgNetIf);
        Require(iResult == (LogCapture::Take().empty() ? 0 : -1), "a failure is reported");
    });
    fuzz::g_from = "/etc/resolv.conf";
    fuzz::g_to = file.Path();
    uint32_t ulDNS = INADDR_NONE;
    ParseResolvConf(log.Record(), ulDNS);
    const std::string value = SlowValue(text, "nameserver", ' ').value_or("");
    Require(ulDNS == (value.size() < kValueSize ? inet_addr(value.c_str()) : INADDR_NONE),
            "the first server is taken if it has an address");
    return 0;
}
