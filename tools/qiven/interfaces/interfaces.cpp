// The subcommand: lists the interfaces with their addresses and configuration.
#include <qiven/iface.h>
#include <qiven/watch.h>

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "commands.h"
#include "exit_status.h"
#include "fields.h"
#include "messages.h"
#include "output/output.h"

namespace qiven::interfaces {

namespace {

// 0 means that the value is not known, all bits set that there is none.
output::Value AddressOf(uint32_t ulAddress) {
    if (ulAddress == 0 || ulAddress == 0xFFFFFFFF) return {};
    return fields::Dotted(ulAddress);
}

// What the configuration files say of an interface; null if it is not in the library's table, whose size is
// limited.
using Configuration = const QIVEN_NETIF *;

output::Value DnsOf(Configuration pNetIf) {
    if (pNetIf == nullptr) return {};
    // The DNS server of the interface precedes that of the machine.
    output::Value dns = AddressOf(pNetIf->ulDNS);
    return std::holds_alternative<std::monostate>(dns) ? AddressOf(gulDNS) : std::move(dns);
}

output::Row RowOf(const QIVEN_INTERFACE &interface, Configuration pNetIf) {
    const QIVEN_INTERFACE_ADDRESS none{};
    const QIVEN_INTERFACE_ADDRESS &address = interface.nAddresses > 0 ? interface.rgAddress[0] : none;
    output::Row row;
    row.emplace_back(std::string(interface.szIfName));
    row.emplace_back(fields::MacText(interface.rgMac));
    row.push_back(AddressOf(address.ulIP));
    row.push_back(interface.nAddresses > 0 ? output::Value(fields::Dotted(address.ulMask)) : output::Value());
    row.push_back(AddressOf(address.ulBroadCast));
    row.push_back(pNetIf != nullptr ? AddressOf(pNetIf->ulGateway) : output::Value());
    row.push_back(DnsOf(pNetIf));
    row.push_back(pNetIf != nullptr && pNetIf->blStatic != 0 ? output::Value(std::string("static"))
                                                             : output::Value());
    row.emplace_back(interface.nAddresses > 0);
    return row;
}

char szRefusal[200] = "";  // the last failure to read from the kernel

// The library continues if it cannot read something, and reports it only in its messages. A file that does
// not exist and an interface without an address are not failures.
int KeepRefusal(const char *szMessage) {
    static_assert(ENOENT == 2 && EADDRNOTAVAIL == 99);
    const std::string_view message = szMessage;
    if (!message.empty() && !message.ends_with("error:(2)") && !message.ends_with("error:(99)"))
        snprintf(szRefusal, sizeof szRefusal, "%s",
                 szMessage + std::min(message.find(' ') + 1, message.size()));
    return 0;
}

// False if the library cannot read it.
bool ReadConfiguration(std::vector<QIVEN_NETIF> &table) {
    QIVEN_LOG log{};
    QIVENLogFuncSet(&log, QIVEN_LOG_ERR, KeepRefusal);
    table.resize(QIVEN_IFACE_MAX);
    const int nNetIf = QIVENIfaceInit(&log, table.data(), QIVEN_IFACE_MAX);
    table.resize(static_cast<size_t>(std::max(nNetIf, 0)));
    return nNetIf >= 0;
}

struct Closer {
    void operator()(QIVEN_ENDPOINT *pEndpoint) const { QIVENEndpointClose(pEndpoint); }
};
using Kernel = std::unique_ptr<QIVEN_ENDPOINT, Closer>;

// Null if the kernel does not list the interfaces, which has been said.
Kernel ReadKernel() {
    QIVEN_ENDPOINT *pEndpoint = nullptr;
    QIVEN_ENDPOINT_CONF conf{};
    conf.cbSize = sizeof conf;
    conf.ulFlags = QIVEN_ENDPOINT_PLAIN | QIVEN_ENDPOINT_NO_PORT;
    const int iResult = QIVENEndpointOpen(&pEndpoint, &conf);
    Kernel kernel(pEndpoint);
    // Every machine has a loopback: an empty list is none.
    if (QIVENEndpointInterface(pEndpoint, 0) != nullptr) return kernel;
    messages::Say(fmt::format("the kernel does not list the interfaces{}{}", iResult < 0 ? ": " : "",
                              iResult < 0 ? QIVENWatchError(iResult) : ""),
                  "interfaces");
    return nullptr;
}

std::vector<output::Row> ListRows(const Kernel &kernel, const std::vector<QIVEN_NETIF> &table) {
    std::vector<output::Row> rows;
    const QIVEN_INTERFACE *p = nullptr;
    for (uint32_t ulAfter = 0; (p = QIVENEndpointInterface(kernel.get(), ulAfter)) != nullptr;) {
        ulAfter = p->ulIfIndex;
        if (p->ulState != QIVEN_INTERFACE_USED && p->ulState != QIVEN_INTERFACE_NO_ADDRESS) continue;
        const auto at = std::find_if(table.begin(), table.end(), [p](const QIVEN_NETIF &netIf) {
            return std::string_view(netIf.szIfName) == p->szIfName;
        });
        rows.push_back(RowOf(*p, at == table.end() ? nullptr : &*at));
    }
    return rows;
}

int Run(output::Format format, terminal::Colour colour) {
    const Kernel kernel = ReadKernel();
    if (kernel == nullptr) return exit_status::kFailed;
    std::vector<QIVEN_NETIF> table;
    if (!ReadConfiguration(table)) {
        messages::Say("the configuration of the interfaces cannot be read (/proc/net/dev)", "interfaces");
        return exit_status::kFailed;
    }
    output::Writer writer;
    writer.format = format;
    writer.colour = colour;
    writer.columns = {{"interface"}, {"mac"}, {"address"},       {"netmask"}, {"broadcast"},
                      {"gateway"},   {"dns"}, {"configuration"}, {"active"}};
    const std::vector<output::Row> rows = ListRows(kernel, table);
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
    if (!rows.empty()) return exit_status::kDone;
    messages::Say("no usable interface; \"qiven doctor\" says why", "interfaces");
    return exit_status::kNotFound;
}

}  // namespace

command_line::Subcommand Command() {
    static auto format = output::Format::kTable;
    static auto colour = terminal::Colour::kAuto;
    return {.szHelp = "List the interfaces that can be used for searching",
            .options = output::Declare(format, colour),
            .run = [] { return Run(format, colour); }};
}

}  // namespace qiven::interfaces
