#include "interface_list.h"

#include <net/if.h>

#include <cerrno>
#include <cstdio>
#include <memory>

namespace qiven::interface_list {

std::optional<std::vector<std::string>> Names() {
    struct Freer {
        void operator()(struct if_nameindex *p) const { if_freenameindex(p); }
    };
    const std::unique_ptr<struct if_nameindex, Freer> index(if_nameindex());
    if (index == nullptr) return std::nullopt;
    std::vector<std::string> names;
    for (const struct if_nameindex *p = index.get(); p->if_name != nullptr; ++p)
        names.emplace_back(p->if_name);
    return names;
}

int List(const QIVEN_LOG *pLog, const std::function<bool(const std::string &)> &isWanted,
         std::vector<QIVEN_NETIF> &list) {
    list.clear();
    const auto names = Names();
    if (!names) return errno;
    for (const std::string &name : *names) {
        if (!isWanted(name) || QIVENIfaceGetActive(pLog, name.c_str()) != 0) continue;
        QIVEN_NETIF netIf{};
        snprintf(netIf.szIfName, sizeof netIf.szIfName, "%s", name.c_str());
        netIf.blActive = QIVENIfaceGetNetSetting(pLog, &netIf) == 0 ? 1 : 0;
        list.push_back(netIf);
    }
    return 0;
}

bool IsFailure(std::string_view message) {
    static_assert(ENOENT == 2 && EADDRNOTAVAIL == 99);
    return !message.empty() && !message.ends_with("error:(2)") && !message.ends_with("error:(99)");
}

}  // namespace qiven::interface_list
