#include "interface_filter.h"

#include <fmt/format.h>

#include <algorithm>

#include "container_interfaces.h"
#include "output/text.h"

namespace qiven::interface_filter {

namespace {

bool MatchesAny(const std::vector<std::string> &patterns, const std::string &name) {
    return std::any_of(patterns.begin(), patterns.end(),
                       [&name](const std::string &pattern) { return text::Matches(pattern, name); });
}

}  // namespace

std::vector<command_line::Option> Declare(Filter &filter, const char *szGroup) {
    return {{.szNames = "--interface",
             .target = &filter.interfaces,
             .help = "Use only interfaces whose name matches",
             .szValue = "IF",
             .szGroup = szGroup,
             .blCommas = true},
            {.szNames = "--exclude",
             .target = &filter.excludes,
             .help = "Do not use interfaces whose name matches",
             .szValue = "IF",
             .szGroup = szGroup,
             .blCommas = true},
            {.szNames = "--all-interfaces",
             .target = &filter.blAll,
             .help = fmt::format("Use all interfaces, including {}", fmt::join(kContainerInterfaces, ", ")),
             .szGroup = szGroup}};
}

bool IsWanted(const Filter &filter, const std::string &name) {
    if (MatchesAny(filter.excludes, name)) return false;
    if (!filter.interfaces.empty()) return MatchesAny(filter.interfaces, name);
    return filter.blAll || !IsContainerInterface(name);
}

int Choose(const QIVEN_INTERFACE *pInterface, void *pvFilter) {
    return IsWanted(*static_cast<const Filter *>(pvFilter), pInterface->szIfName) ? 1 : 0;
}

std::string WhyNone(const Filter &filter, const After &after) {
    bool blUsable = false;
    const QIVEN_INTERFACE *p = nullptr;
    for (uint32_t ulAfter = 0; (p = after(ulAfter)) != nullptr; ulAfter = p->ulIfIndex) {
        const bool blLacksAddress = p->ulState == QIVEN_INTERFACE_NO_ADDRESS;
        if (blLacksAddress && IsWanted(filter, p->szIfName)) return "no chosen interface has an IPv4 address";
        blUsable |= blLacksAddress || p->ulState == QIVEN_INTERFACE_LEFT_OUT;
    }
    if (!blUsable) return "no usable network interface (up, with a carrier, not loopback)";
    if (!filter.interfaces.empty()) return "no usable interface has a chosen name";
    return "every usable interface is left out; see --interface and --all-interfaces";
}

}  // namespace qiven::interface_filter
