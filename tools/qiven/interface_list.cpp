#include "interface_list.h"

#include <net/if.h>

#include <cerrno>
#include <cstdio>
#include <memory>

namespace qiven {

int ListInterfaces(const QIVEN_LOG *pLog, const std::function<bool(const char *)> &isWanted,
                   std::vector<QIVEN_NETIF> &list) {
    struct Freer {
        void operator()(struct if_nameindex *p) const { if_freenameindex(p); }
    };
    list.clear();
    const std::unique_ptr<struct if_nameindex, Freer> names(if_nameindex());
    if (names == nullptr) return errno;
    for (const struct if_nameindex *p = names.get(); p->if_name != nullptr; ++p) {
        if (!isWanted(p->if_name) || QIVENIfaceGetActive(pLog, p->if_name) != 0) continue;
        QIVEN_NETIF netIf{};
        snprintf(netIf.szIfName, sizeof netIf.szIfName, "%s", p->if_name);
        netIf.blActive = QIVENIfaceGetNetSetting(pLog, &netIf) == 0 ? 1 : 0;
        list.push_back(netIf);
    }
    return 0;
}

}  // namespace qiven
