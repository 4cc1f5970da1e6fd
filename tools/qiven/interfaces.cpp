#include <qiven/iface.h>

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <string_view>

#include "commands.h"
#include "exit.h"
#include "fields.h"
#include "output.h"

namespace qiven {

namespace {

constexpr uint64_t kSchema = 1;

struct Options {
    output::Format format = output::Format::kTable;
    output::Colour colour = output::Colour::kAuto;
};

// 0 is what nobody filled in, all bits set is "none".
output::Value AddressOf(uint32_t ulAddress) {
    if (ulAddress == 0 || ulAddress == 0xFFFFFFFF) return {};
    return fields::Dotted(ulAddress);
}

output::Row RowOf(const QIVEN_NETIF &netIf) {
    const auto &rgMac = netIf.rgMac;
    // The interface's own DNS server goes before the machine's.
    const output::Value own = AddressOf(netIf.ulDNS);
    const output::Value dns = std::holds_alternative<std::monostate>(own) ? AddressOf(gulDNS) : own;
    return {std::string(netIf.szIfName),
            fmt::format("{:02x}", fmt::join(rgMac, ":")),
            AddressOf(netIf.ulIP),
            AddressOf(netIf.ulMask),
            AddressOf(netIf.ulBroadCast),
            AddressOf(netIf.ulGateway),
            dns,
            std::string(netIf.blStatic != 0 ? "static" : "dhcp"),
            netIf.blActive != 0};
}

char szRefusal[200] = "";  // the last thing that the kernel did not tell

// The library goes on without what it cannot learn, and only its messages say so. A file that is not there
// and an address that an interface does not have are no failures.
int KeepRefusal(const char *szMessage) {
    static_assert(ENOENT == 2 && EADDRNOTAVAIL == 99);
    const std::string_view message = szMessage;
    if (!message.ends_with("error:(2)") && !message.ends_with("error:(99)"))
        snprintf(szRefusal, sizeof szRefusal, "%s",
                 szMessage + std::min(message.find(' ') + 1, message.size()));
    return 0;
}

int Interfaces(const Options &options) {
    std::array<QIVEN_NETIF, QIVEN_IFACE_MAX> table{};
    QIVEN_LOG log{};
    QIVENLogFuncSet(&log, QIVEN_LOG_ERR, KeepRefusal);
    const int nNetIf = QIVENIfaceInit(&log, table.data(), QIVEN_IFACE_MAX);
    if (nNetIf < 0) {
        fputs("qiven interfaces: the kernel's list of interfaces cannot be read (/proc/net/dev)\n", stderr);
        return kNetwork;
    }
    output::Writer writer;
    writer.format = options.format;
    writer.colour = options.colour;
    writer.schema = kSchema;
    writer.columns = {{"interface"}, {"mac"}, {"address"},       {"netmask"}, {"broadcast"},
                      {"gateway"},   {"dns"}, {"configuration"}, {"active"}};
    output::Begin(writer);
    std::for_each_n(table.begin(), nNetIf,
                    [&writer](const QIVEN_NETIF &netIf) { output::WriteRow(writer, RowOf(netIf)); });
    output::End(writer);
    if (*szRefusal != '\0') {
        fprintf(stderr, "qiven interfaces: the list is not complete: %s\n", szRefusal);
        return kNetwork;
    }
    if (nNetIf > 0) return kDone;
    fputs("qiven interfaces: no usable interface; \"qiven doctor\" says why\n", stderr);
    return kNothing;
}

}  // namespace

void RegisterInterfaces(CLI::App &app, std::function<int()> &run) {
    CLI::App *pSub = app.add_subcommand("interfaces", "List the interfaces that are searched by");
    const auto options = std::make_shared<Options>();
    output::AddOptions(*pSub, options->format, options->colour);
    pSub->callback([options, &run] { run = [options] { return Interfaces(*options); }; });
}

}  // namespace qiven
