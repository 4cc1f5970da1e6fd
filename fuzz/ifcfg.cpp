// Any text as an ifcfg file.
#include "netifs.h"

namespace {

using Lines = std::vector<std::string>;

int Apply(const std::string &text, QIVEN_NETIF &netIf, Lines &messages) {
    const auto proto = fuzz::Looked(text, "BOOTPROTO", '=', messages);
    if (!messages.empty()) return -1;
    if (proto && (fuzz::SameWord(*proto, "none") || fuzz::SameWord(*proto, "static"))) netIf.blStatic = 1;
    if (netIf.blStatic == 0) return 0;
    const auto gateway = fuzz::Looked(text, "GATEWAY", '=', messages);
    if (!messages.empty()) return -1;
    if (gateway) fuzz::SlowAddress(*gateway, netIf.ulGateway);
    return 0;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t cbData) {
    const std::string_view text = fuzz::AsText(pData, cbData);
    const MemoryFile file(text);
    for (const int blStatic : {0, 1}) {
        fuzz::Table expected;
        gulDNS = expected.ulMachineDNS;
        expected.rgNetIf[0].blStatic = blStatic;
        fuzz::Table table = expected;
        Lines messages;
        const int iResult = Apply(std::string(text), expected.rgNetIf[0], messages);
        LogCapture log;
        fuzz::Require(
            qiven::iface_lnx::ParseIfCfg(log.Record(), file.Path().c_str(), table.rgNetIf) == iResult,
            "a file fails for values that are too long, and for nothing else");
        fuzz::RequireSameTable(expected, table);
        fuzz::Require(LogCapture::Take() == messages, "values that are too long are reported, nothing else");
    }
    return 0;
}
