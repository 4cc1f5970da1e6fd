// The subcommand: lists the interfaces with their addresses and configuration.
#include <qiven/iface.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <string_view>
#include <vector>

#include "commands.h"
#include "exit_status.h"
#include "fields.h"
#include "interface_list.h"
#include "messages.h"
#include "output.h"

namespace qiven::interfaces {

namespace {

// 0 means that the value is not known, all bits set that there is none.
output::Value AddressOf(uint32_t ulAddress) {
    if (ulAddress == 0 || ulAddress == 0xFFFFFFFF) return {};
    return fields::Dotted(ulAddress);
}

output::Row RowOf(const QIVEN_NETIF &netIf) {
    // The DNS server of the interface precedes that of the machine.
    output::Value dns = AddressOf(netIf.ulDNS);
    if (std::holds_alternative<std::monostate>(dns)) dns = AddressOf(gulDNS);
    output::Row row;
    row.emplace_back(std::string(netIf.szIfName));
    row.emplace_back(fields::MacText(netIf.rgMac));
    for (const uint32_t ulAddress : {netIf.ulIP, netIf.ulMask, netIf.ulBroadCast, netIf.ulGateway})
        row.push_back(AddressOf(ulAddress));
    row.push_back(std::move(dns));
    row.emplace_back(std::string(netIf.blStatic != 0 ? "static" : "dhcp"));
    row.emplace_back(netIf.blActive != 0);
    return row;
}

char szRefusal[200] = "";  // the last failure to read from the kernel

// The library continues if it cannot read something, and reports it only in its messages.
int KeepRefusal(const char *szMessage) {
    const std::string_view message = szMessage;
    if (interface_list::IsFailure(message))
        snprintf(szRefusal, sizeof szRefusal, "%s",
                 szMessage + std::min(message.find(' ') + 1, message.size()));
    return 0;
}

int Run(output::Format format, terminal::Colour colour) {
    std::array<QIVEN_NETIF, QIVEN_IFACE_MAX> table{};
    QIVEN_LOG log{};
    QIVENLogFuncSet(&log, QIVEN_LOG_ERR, KeepRefusal);
    const int nNetIf = QIVENIfaceInit(&log, table.data(), QIVEN_IFACE_MAX);
    if (nNetIf < 0) {
        messages::Say("the kernel's list of interfaces cannot be read (/proc/net/dev)", "interfaces");
        return exit_status::kFailed;
    }
    output::Writer writer;
    writer.format = format;
    writer.colour = colour;
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
        return exit_status::kFailed;
    }
    if (nNetIf > 0) return exit_status::kDone;
    messages::Say("no usable interface; \"qiven doctor\" says why", "interfaces");
    return exit_status::kNotFound;
}

}  // namespace

command_line::Subcommand Command() {
    static auto format = output::Format::kTable;
    static auto colour = terminal::Colour::kAuto;
    return {.szHelp = "List the interfaces used for searching",
            .options = output::Declare(format, colour),
            .run = [] { return Run(format, colour); }};
}

}  // namespace qiven::interfaces
