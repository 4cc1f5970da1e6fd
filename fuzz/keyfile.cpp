// Any text as a keyfile of NetworkManager.
#include "netifs.h"

namespace {

using fuzz::Looked;
using Lines = std::vector<std::string>;

// Uses scanf where its result is defined, that is, except for "0x" without digits and for large numbers.
bool SlowMac(const std::string &text, unsigned char (&rgMac)[6]) {
    const std::vector<std::string> numbers = fuzz::Split(text, ":", true);
    if (numbers.size() < 6) return false;
    for (size_t i = 0; i < 6; ++i) {
        char *szEnd = nullptr;
        const unsigned long long ullValue = strtoull(numbers[i].c_str(), &szEnd, 16);
        const bool blNumber = szEnd != numbers[i].c_str();
        if (!blNumber || (i < 5 && *szEnd != '\0')) return false;
        rgMac[i] = static_cast<unsigned char>(ullValue & 0xFF);
    }
    return true;
}

void Apply(const std::string &text, fuzz::Table &table, Lines &messages) {
    unsigned char rgMac[6];
    const auto mac = Looked(text, "mac-address", '=', messages);
    if (!mac || !SlowMac(*mac, rgMac)) return;
    for (QIVEN_NETIF *pNetIf = table.rgNetIf; pNetIf < table.rgNetIf + fuzz::Table::kCount; ++pNetIf) {
        if (memcmp(pNetIf->rgMac, rgMac, sizeof rgMac) != 0) continue;
        const auto method = Looked(text, "method", '=', messages);
        if (method && fuzz::SameWord(*method, "manual")) pNetIf->blStatic = 1;
        auto dns = Looked(text, "dns", '=', messages);
        if (dns && !dns->empty() && dns->back() == ';') dns->pop_back();
        if (dns && fuzz::SlowAddress(*dns, pNetIf->ulDNS) && table.ulMachineDNS == INADDR_NONE)
            table.ulMachineDNS = pNetIf->ulDNS;
        const auto addresses = Looked(text, "addresses1", '=', messages);
        if (!addresses) return;
        const Lines parts = fuzz::Split(*addresses, ";", false);
        if (parts.size() > 2) fuzz::SlowAddress(parts[2], pNetIf->ulGateway);
        return;
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t cbData) {
    const std::string_view text = fuzz::AsText(pData, cbData);
    for (const uint32_t ulMachineDNS : {INADDR_NONE, 1U}) {
        fuzz::Table expected;
        expected.ulMachineDNS = ulMachineDNS;
        fuzz::Table table = expected;
        Lines messages;
        Apply(std::string(text), expected, messages);
        LogCapture log;
        const MemoryFile file(text);
        qiven::iface_lnx::ParseNMKeyfile(log.Record(), file.Stream(), table.rgNetIf, fuzz::Table::kCount,
                                         table.ulMachineDNS);
        fuzz::RequireSameTable(expected, table);
        fuzz::Require(LogCapture::Take() == messages, "values that are too long are reported, nothing else");
    }
    return 0;
}
