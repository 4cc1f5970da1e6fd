// Entry points of the interface table.
#include <qiven/iface.h>

#include <netinet/in.h>

#include "base/message.h"
#include "iface_lnx/enumerate.h"
#include "iface_lnx/kernel.h"

uint32_t gulDNS = 0;

namespace {

constexpr char kModule[] = "iface";

}  // namespace

int QIVENIfaceInit(const QIVEN_LOG *pLog, QIVEN_NETIF *rgNetIf, int numNetIf) {
    gulDNS = INADDR_NONE;
    return QIVENIfaceInitLnx(pLog, rgNetIf, numNetIf);
}

int QIVENIfaceInitLnx(const QIVEN_LOG *pLog, QIVEN_NETIF *rgNetIf, int numNetIf) {
    return qiven::iface_lnx::FillTable(pLog, rgNetIf, numNetIf, gulDNS);
}

int QIVENGetIfListLnx(const QIVEN_LOG *pLog, QIVEN_NETIF *rgNetIf, int numNetIf) {
    return qiven::iface_lnx::ListInterfaces(pLog, rgNetIf, numNetIf);
}

int QIVENIfaceGetActive(const QIVEN_LOG *pLog, const char *szIf) {
    if (!qiven::base::Check(pLog, kModule, szIf != nullptr, "(((void *)0) != szIf)")) return -1;
    return qiven::iface_lnx::IsUsable(pLog, szIf) ? 0 : -1;
}

int QIVENIfaceGetNetSetting(const QIVEN_LOG *pLog, QIVEN_NETIF *pNetIf) {
    if (!qiven::base::Check(pLog, kModule, pNetIf != nullptr, "((void *)0) != pNetIf")) return -1;
    return qiven::iface_lnx::ReadAddresses(pLog, *pNetIf) ? 0 : -1;
}
