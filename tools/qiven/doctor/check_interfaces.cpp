#include <fmt/format.h>

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>

#include "doctor/checks.h"
#include "text.h"

namespace qiven::doctor {

namespace {

constexpr const char *kName = "cards";

// Why an interface is searched by, or why not.
enum class Use { kUsable, kBridge, kNoAddress, kNoCarrier, kDown, kTunnel, kUnknown };

struct Card {
    std::string name;
    Use use;
};

// The bridges and links of containers and virtual machines, which `qiven find` leaves out by default.
bool IsContainerLink(const std::string &name) {
    constexpr std::array kPatterns = {"docker*", "veth*", "br-*", "virbr*"};
    return std::any_of(kPatterns.begin(), kPatterns.end(),
                       [&name](const char *szPattern) { return text::Matches(szPattern, name); });
}

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

// The table cannot tell a card without an address from one that the kernel refused to speak of.
bool LacksAddress(const std::string &name) {
    ifreq request{};
    request.ifr_addr.sa_family = AF_INET;
    return Ask(name, SIOCGIFADDR, request) == EADDRNOTAVAIL;
}

Use UseOf(const std::string &name, std::optional<short> flags, const QIVEN_NETIF *pNetIf) {
    if (IsContainerLink(name)) return Use::kBridge;
    if (pNetIf != nullptr && pNetIf->blActive != 0) return Use::kUsable;
    if (pNetIf != nullptr) return LacksAddress(name) ? Use::kNoAddress : Use::kUnknown;
    if (!flags) return Use::kUnknown;
    if ((*flags & IFF_UP) == 0) return Use::kDown;
    if ((*flags & IFF_RUNNING) == 0) return Use::kNoCarrier;
    // The table takes every other running card, unless the kernel did not answer it.
    return (*flags & (IFF_POINTOPOINT | IFF_SLAVE)) != 0 || IsTunOrTap(name) ? Use::kTunnel : Use::kUnknown;
}

// Nothing, with errno set, when the kernel does not list them.
std::optional<std::vector<Card>> ListCards(const std::vector<QIVEN_NETIF> &table) {
    struct Freer {
        void operator()(struct if_nameindex *p) const { if_freenameindex(p); }
    };
    std::vector<Card> cards;
    const std::unique_ptr<struct if_nameindex, Freer> names(if_nameindex());
    if (names == nullptr) return std::nullopt;
    for (const struct if_nameindex *p = names.get(); p->if_name != nullptr; ++p) {
        const std::optional<short> flags = FlagsOf(p->if_name);
        if (flags && (*flags & IFF_LOOPBACK) != 0) continue;
        const auto row = std::find_if(table.begin(), table.end(), [p](const QIVEN_NETIF &netIf) {
            return strcmp(netIf.szIfName, p->if_name) == 0;
        });
        cards.push_back({p->if_name, UseOf(p->if_name, flags, row == table.end() ? nullptr : &*row)});
    }
    return cards;
}

std::string NamesOf(const std::vector<Card> &cards, Use use) {
    std::string names;
    for (const Card &card : cards)
        if (card.use == use) names += (names.empty() ? "" : ", ") + text::Escape(card.name);
    return names;
}

struct Explanation {
    Use use;
    const char *szText;  // {} is the names
    const char *szRemedy;
};

// The nearer a card is to being usable, the likelier it is the one that was meant.
constexpr Explanation kExplanations[] = {
    {Use::kNoAddress, "no IPv4 address on the card that is connected: {}",
     "get one by DHCP, or set one with \"ip address add ADDRESS/LENGTH brd + dev NAME\""},
    {Use::kNoCarrier, "no carrier on the card that is up: {}",
     "plug the cable in, or join the wireless network"},
    {Use::kDown, "no active card, all are down: {}", "bring one up with \"ip link set NAME up\""},
    {Use::kBridge, "there are only container bridges: {}",
     "connect a card to the network of the hosts, or search the bridges with --all-interfaces"},
    {Use::kTunnel, "only tunnels and the like are active, which carry no broadcasts: {}",
     "connect a card to the network of the hosts"},
};

Check Skipped(std::string reason) {
    return {kName, Result::kSkipped, std::move(reason), {}};
}

Check Explain(const std::vector<Card> &cards) {
    for (const Explanation &explanation : kExplanations) {
        const std::string names = NamesOf(cards, explanation.use);
        if (!names.empty())
            return {kName, Result::kFault, fmt::format(fmt::runtime(explanation.szText), names),
                    explanation.szRemedy};
    }
    return {kName, Result::kFault, "no card: this machine has no interface but the loopback",
            "add a network card, or give this container one"};
}

}  // namespace

Check CheckCards(std::vector<QIVEN_NETIF> &usable) {
    std::vector<QIVEN_NETIF> table(QIVEN_IFACE_MAX);
    const int nNetIf = QIVENIfaceInit(nullptr, table.data(), QIVEN_IFACE_MAX);
    if (nNetIf < 0) return Skipped("the kernel's list of interfaces (/proc/net/dev) cannot be read");
    table.resize(static_cast<size_t>(nNetIf));
    std::copy_if(table.begin(), table.end(), std::back_inserter(usable), [](const QIVEN_NETIF &netIf) {
        return netIf.blActive != 0 && !IsContainerLink(netIf.szIfName);
    });
    const auto cards = ListCards(table);
    if (!cards) return Skipped(fmt::format("the interfaces cannot be listed: {}", strerror(errno)));
    if (const std::string unknown = NamesOf(*cards, Use::kUnknown); !unknown.empty())
        return Skipped("the state of " + unknown + " cannot be read");
    if (usable.empty()) return Explain(*cards);
    const std::string unaddressed = NamesOf(*cards, Use::kNoAddress);
    const std::string names = NamesOf(*cards, Use::kUsable);
    if (unaddressed.empty()) return {kName, Result::kOk, "searched by: " + names, {}};
    return {kName,
            Result::kNote,
            fmt::format("searched by: {}; without an IPv4 address: {}", names, unaddressed),
            {}};
}

}  // namespace qiven::doctor
