// Any text as /etc/network/interfaces.
#include "netifs.h"

namespace {

constexpr const char *kSeparators = " \t\r\n";

void Apply(const std::string &text, fuzz::Table &table) {
    QIVEN_NETIF *pCurrent = nullptr;
    for (const std::string &line : fuzz::TellingLines(text)) {
        if (line.substr(0, 5) == "iface") {
            const std::vector<std::string> words = fuzz::Split(line, kSeparators, false);
            pCurrent = nullptr;
            for (int i = fuzz::Table::kCount - 1; i >= 0; --i) {
                if (words.size() > 1 && words[1] == table.rgNetIf[i].szIfName) pCurrent = &table.rgNetIf[i];
            }
            if (pCurrent != nullptr && words.size() > 3 && fuzz::SameWord(words[3], "static"))
                pCurrent->blStatic = 1;
        } else if (line.substr(0, 7) == "gateway" && pCurrent != nullptr) {
            const std::vector<std::string> words = fuzz::Split(line.substr(7), kSeparators, false);
            if (!words.empty()) fuzz::SlowAddress(words[0], pCurrent->ulGateway);
        }
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t cbData) {
    const std::string_view text = fuzz::AsText(pData, cbData);
    fuzz::Table expected, table;
    gulDNS = expected.ulMachineDNS;
    Apply(std::string(text), expected);
    const MemoryFile file(text);
    qiven::iface_lnx::ParseStanzas(file.Stream(), table.rgNetIf, fuzz::Table::kCount);
    fuzz::RequireSameTable(expected, table);
    return 0;
}
