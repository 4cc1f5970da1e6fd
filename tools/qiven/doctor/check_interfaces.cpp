// Checks whether an interface can be used for searching, and explains why not.
#include <fmt/format.h>

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include "container_interfaces.h"
#include "doctor/checks.h"
#include "interface_list.h"
#include "text.h"

namespace qiven::doctor {

namespace {

constexpr const char *kName = "interfaces";

// Whether an interface is used for searching, or why not.
enum class Use { kUsable, kContainer, kNoAddress, kNoCarrier, kDown, kTunnel, kUnknown };

struct InterfaceUse {
    std::string name;
    Use use;
};

bool IsTunOrTap(const std::string &name) {
    return access(fmt::format("/sys/class/net/{}/tun_flags", name).c_str(), F_OK) == 0;
}

// 0, or the error.
int Ask(const std::string &name, unsigned long ulRequest, ifreq &request) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd == -1) return errno;
    name.copy(request.ifr_name, sizeof request.ifr_name - 1);
    const int iError = ioctl(fd, ulRequest, &request) == 0 ? 0 : errno;
    close(fd);
    return iError;
}

std::optional<short> FlagsOf(const std::string &name) {
    ifreq request{};
    return Ask(name, SIOCGIFFLAGS, request) == 0 ? std::optional(request.ifr_flags) : std::nullopt;
}

// The table does not distinguish an interface without an address from one whose address could not be read.
bool LacksAddress(const std::string &name) {
    ifreq request{};
    request.ifr_addr.sa_family = AF_INET;
    return Ask(name, SIOCGIFADDR, request) == EADDRNOTAVAIL;
}

Use UseOf(const std::string &name, std::optional<short> flags, const QIVEN_NETIF *pNetIf) {
    if (IsContainerInterface(name)) return Use::kContainer;
    if (pNetIf != nullptr && pNetIf->blActive != 0) return Use::kUsable;
    if (pNetIf != nullptr) return LacksAddress(name) ? Use::kNoAddress : Use::kUnknown;
    if (!flags) return Use::kUnknown;
    if ((*flags & IFF_UP) == 0) return Use::kDown;
    if ((*flags & IFF_RUNNING) == 0) return Use::kNoCarrier;
    // The table contains every other running interface, unless the kernel refused to describe it.
    return (*flags & (IFF_POINTOPOINT | IFF_SLAVE)) != 0 || IsTunOrTap(name) ? Use::kTunnel : Use::kUnknown;
}

// Empty, with errno set, if the kernel does not list them.
std::optional<std::vector<InterfaceUse>> ListUses(const std::vector<QIVEN_NETIF> &table) {
    std::vector<InterfaceUse> uses;
    const auto names = interface_list::Names();
    if (!names) return std::nullopt;
    for (const std::string &name : *names) {
        const std::optional<short> flags = FlagsOf(name);
        if (flags && (*flags & IFF_LOOPBACK) != 0) continue;
        const auto row = std::find_if(table.begin(), table.end(),
                                      [&name](const QIVEN_NETIF &netIf) { return netIf.szIfName == name; });
        uses.push_back({name, UseOf(name, flags, row == table.end() ? nullptr : &*row)});
    }
    return uses;
}

std::string NamesOf(const std::vector<InterfaceUse> &uses, Use use) {
    std::string names;
    for (const InterfaceUse &one : uses)
        if (one.use == use) names += (names.empty() ? "" : ", ") + text::Escape(one.name);
    return names;
}

struct Explanation {
    Use use;
    const char *szText;  // {} is the names
    const char *szRemedy;
};

// The first that applies: the closer an interface is to being usable, the more likely it is the intended one.
constexpr Explanation kExplanations[] = {
    {Use::kNoAddress, "the connected interface has no IPv4 address: {}",
     "get one by DHCP, or set one with \"ip address add ADDRESS/LENGTH brd + dev NAME\""},
    {Use::kNoCarrier, "the interface that is up has no carrier: {}",
     "plug in the cable, or join the wireless network"},
    {Use::kDown, "all interfaces are down: {}", "bring one up with \"ip link set NAME up\""},
    {Use::kContainer, "there are only interfaces of containers or virtual machines: {}",
     "connect an interface to the network of the hosts, or search these with --all-interfaces"},
    {Use::kTunnel, "the only active interfaces are tunnels and the like, which do not carry broadcasts: {}",
     "connect an interface to the network of the hosts"},
};

Check Skipped(std::string reason) {
    return {kName, Result::kSkipped, std::move(reason), {}};
}

Check Explain(const std::vector<InterfaceUse> &uses) {
    for (const Explanation &explanation : kExplanations) {
        const std::string names = NamesOf(uses, explanation.use);
        if (!names.empty())
            return {kName, Result::kFault, fmt::format(fmt::runtime(explanation.szText), names),
                    explanation.szRemedy};
    }
    return {kName, Result::kFault, "this machine has no interface other than the loopback",
            "add a network interface to this machine or container"};
}

}  // namespace

Check CheckInterfaces(std::vector<QIVEN_NETIF> &usable) {
    std::vector<QIVEN_NETIF> table(QIVEN_IFACE_MAX);
    const int nNetIf = QIVENIfaceInit(nullptr, table.data(), QIVEN_IFACE_MAX);
    if (nNetIf < 0) return Skipped("the kernel's list of interfaces (/proc/net/dev) cannot be read");
    table.resize(static_cast<size_t>(nNetIf));
    std::copy_if(table.begin(), table.end(), std::back_inserter(usable), [](const QIVEN_NETIF &netIf) {
        return netIf.blActive != 0 && !IsContainerInterface(netIf.szIfName);
    });
    const auto uses = ListUses(table);
    if (!uses) return Skipped(fmt::format("the interfaces cannot be listed: {}", strerror(errno)));
    if (const std::string unknown = NamesOf(*uses, Use::kUnknown); !unknown.empty())
        return Skipped("the state of " + unknown + " cannot be read");
    if (usable.empty()) return Explain(*uses);
    const std::string unaddressed = NamesOf(*uses, Use::kNoAddress);
    const std::string names = NamesOf(*uses, Use::kUsable);
    if (unaddressed.empty()) return {kName, Result::kOk, "used for searching: " + names, {}};
    return {kName,
            Result::kNote,
            fmt::format("used for searching: {}; without an IPv4 address: {}", names, unaddressed),
            {}};
}

}  // namespace qiven::doctor
