// Checks whether an interface can be used for searching, and explains why not.
#include <fmt/format.h>

#include <net/if.h>
#include <netinet/in.h>

#include <utility>

#include "doctor/checks.h"
#include "output/text.h"

namespace qiven::doctor {

namespace {

constexpr const char *kName = "interfaces";

// Whether an interface is used for searching, or why not.
enum class Use { kUsed, kPort, kNoAddress, kNoCarrier, kDown, kLeftOut, kUnsuitable };

struct InterfaceUse {
    std::string name;
    Use use;
    bool blHasAddress;
    std::string oddity;  // of the address of one that is used
};

Use UseOf(const QIVEN_INTERFACE &interface, const interface_filter::Filter &filter) {
    if (interface.ulState == QIVEN_INTERFACE_UNSUITABLE) return Use::kUnsuitable;
    if (!interface_filter::IsWanted(filter, interface.szIfName)) return Use::kLeftOut;
    switch (interface.ulState) {
        case QIVEN_INTERFACE_NO_ADDRESS:
            // The address of a bridge's port is that of the bridge.
            return interface.ulMaster != 0 ? Use::kPort : Use::kNoAddress;
        case QIVEN_INTERFACE_NO_CARRIER:
            return Use::kNoCarrier;
        case QIVEN_INTERFACE_DOWN:
            return Use::kDown;
        default:
            return Use::kUsed;
    }
}

std::string OddityOf(const QIVEN_INTERFACE &interface) {
    if (interface.nAddresses == 0) return {};
    const QIVEN_INTERFACE_ADDRESS &address = interface.rgAddress[0];
    constexpr uint32_t kLinkLocal = 0xA9FE0000;  // 169.254.0.0/16
    if ((ntohl(address.ulIP) & 0xFFFF0000) == kLinkLocal) return "has only a link-local address";
    return address.ulMask == UINT32_MAX ? "has an address without a network (/32)" : "";
}

std::vector<InterfaceUse> ListUses(const Port &port, const interface_filter::Filter &filter) {
    std::vector<InterfaceUse> uses;
    ForEachInterface(port, [&](const QIVEN_INTERFACE &interface) {
        if ((interface.ulFlags & IFF_LOOPBACK) != 0) return;
        const Use use = UseOf(interface, filter);
        uses.push_back({text::Escape(interface.szIfName), use, interface.nAddresses > 0,
                        use == Use::kUsed ? OddityOf(interface) : ""});
    });
    return uses;
}

// The first few, and how many more there are.
template <typename Test>
std::string NamesOf(const std::vector<InterfaceUse> &uses, Test isMeant) {
    constexpr size_t kNames = 8;
    std::string names;
    size_t n = 0;
    for (const InterfaceUse &one : uses)
        if (isMeant(one) && n++ < kNames) names += (names.empty() ? "" : ", ") + one.name;
    return n > kNames ? fmt::format("{} and {} more", names, n - kNames) : names;
}

std::string NamesOf(const std::vector<InterfaceUse> &uses, Use use) {
    return NamesOf(uses, [use](const InterfaceUse &one) { return one.use == use; });
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
    {Use::kLeftOut, "there are only interfaces of containers or virtual machines: {}",
     "connect an interface to the network of the hosts, or search these with --all-interfaces"},
    {Use::kPort, "there are only ports of a bridge, which has no address itself: {}",
     "give the bridge an address, by DHCP or with \"ip address add ADDRESS/LENGTH brd + dev NAME\""},
    {Use::kUnsuitable,
     "the only active interfaces are tunnels and the like, which do not carry broadcasts: {}",
     "connect an interface to the network of the hosts"},
};
// Of the user's own choice.
constexpr Explanation kNotChosen{Use::kLeftOut,
                                 "--interface or --exclude leaves out every usable interface: {}",
                                 "choose one that is connected to the network of the hosts"};

Check Explain(const std::vector<InterfaceUse> &uses, const interface_filter::Filter &filter) {
    // One that could be used may be the intended one, whatever is wrong with the others.
    const std::string leftOut =
        NamesOf(uses, [](const InterfaceUse &one) { return one.use == Use::kLeftOut && one.blHasAddress; });
    const bool blChosen = !filter.interfaces.empty() || !filter.excludes.empty();
    for (const Explanation &one : kExplanations) {
        const std::string names = NamesOf(uses, one.use);
        if (names.empty()) continue;
        const Explanation &explanation = one.use == Use::kLeftOut && blChosen ? kNotChosen : one;
        const std::string before =
            leftOut.empty() || one.use == Use::kLeftOut
                ? ""
                : fmt::format("left out: {} (see --interface and --all-interfaces); ", leftOut);
        return {kName, Result::kFault, before + fmt::format(fmt::runtime(explanation.szText), names),
                explanation.szRemedy};
    }
    return {kName, Result::kFault, "this machine has no interface other than the loopback",
            "add a network interface to this machine or container"};
}

}  // namespace

Check CheckInterfaces(const Port &port, const interface_filter::Filter &filter) {
    // Every machine has a loopback: an empty list is none.
    if (QIVENEndpointInterface(port.endpoint.get(), 0) == nullptr)
        return {kName,
                Result::kSkipped,
                "the kernel does not list the interfaces" +
                    (port.endpoint == nullptr ? fmt::format(": {}", QIVENWatchError(port.iError)) : ""),
                {}};
    const std::vector<InterfaceUse> uses = ListUses(port, filter);
    const std::string used = NamesOf(uses, Use::kUsed);
    if (used.empty()) return Explain(uses, filter);
    Check check{kName, Result::kOk, "used for searching: " + used, {}};
    const auto add = [&check](const std::string &text, const std::string &names, Result result) {
        if (names.empty()) return;
        check.text += fmt::format("; {}: {}", text, names);
        if (result == Result::kNote) check.result = result;
    };
    add("without an IPv4 address", NamesOf(uses, Use::kNoAddress), Result::kNote);
    add("left out", NamesOf(uses, Use::kLeftOut), Result::kOk);
    for (const InterfaceUse &one : uses) {
        if (one.oddity.empty()) continue;
        check.text += fmt::format("; {} {}", one.name, one.oddity);
        check.result = Result::kNote;
    }
    return check;
}

}  // namespace qiven::doctor
