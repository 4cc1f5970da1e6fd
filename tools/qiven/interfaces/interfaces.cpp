#include <qiven/iface.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <string_view>
#include <vector>

#include "commands.h"
#include "exit_status.h"
#include "fields.h"
#include "messages.h"
#include "output.h"

namespace qiven::interfaces {

namespace {

constexpr uint64_t kSchema = 1;

// 0 is what nobody filled in, all bits set is "none".
output::Value AddressOf(uint32_t ulAddress) {
    if (ulAddress == 0 || ulAddress == 0xFFFFFFFF) return {};
    return fields::Dotted(ulAddress);
}

output::Row RowOf(const QIVEN_NETIF &netIf) {
    // The interface's own DNS server goes before the machine's.
    output::Value dns = AddressOf(netIf.ulDNS);
    if (std::holds_alternative<std::monostate>(dns)) dns = AddressOf(gulDNS);
    output::Row row;
    row.emplace_back(std::string(netIf.szIfName));
    row.emplace_back(fmt::format("{:02x}", fmt::join(netIf.rgMac, ":")));
    for (const uint32_t ulAddress : {netIf.ulIP, netIf.ulMask, netIf.ulBroadCast, netIf.ulGateway})
        row.push_back(AddressOf(ulAddress));
    row.push_back(std::move(dns));
    row.emplace_back(std::string(netIf.blStatic != 0 ? "static" : "dhcp"));
    row.emplace_back(netIf.blActive != 0);
    return row;
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

int Run(output::Format format, output::Colour colour) {
    std::array<QIVEN_NETIF, QIVEN_IFACE_MAX> table{};
    QIVEN_LOG log{};
    QIVENLogFuncSet(&log, QIVEN_LOG_ERR, KeepRefusal);
    const int nNetIf = QIVENIfaceInit(&log, table.data(), QIVEN_IFACE_MAX);
    if (nNetIf < 0) {
        messages::Say("the kernel's list of interfaces cannot be read (/proc/net/dev)", "interfaces");
        return kNetwork;
    }
    output::Writer writer;
    writer.format = format;
    writer.colour = colour;
    writer.schema = kSchema;
    writer.columns = {{"interface"}, {"mac"}, {"address"},       {"netmask"}, {"broadcast"},
                      {"gateway"},   {"dns"}, {"configuration"}, {"active"}};
    std::vector<output::Row> rows;
    std::for_each_n(table.begin(), nNetIf,
                    [&rows](const QIVEN_NETIF &netIf) { rows.push_back(RowOf(netIf)); });
    for (const output::Row &row : rows)
        output::Measure(writer, row);
    output::Begin(writer);
    for (const output::Row &row : rows)
        output::WriteRow(writer, row);
    output::End(writer);
    if (*szRefusal != '\0') {
        messages::Say(fmt::format("the list is not complete: {}", szRefusal), "interfaces");
        return kNetwork;
    }
    if (nNetIf > 0) return kDone;
    messages::Say("no usable interface; \"qiven doctor\" says why", "interfaces");
    return kNothing;
}

}  // namespace

command_line::Subcommand Command() {
    static auto format = output::Format::kTable;
    static auto colour = output::Colour::kAuto;
    return {.szHelp = "List the interfaces that are searched by",
            .options = output::Declare(format, colour),
            .run = [] { return Run(format, colour); }};
}

}  // namespace qiven::interfaces
