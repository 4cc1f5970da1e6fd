#include "find/asking.h"

namespace qiven::find {

namespace {

template <typename Test>
bool HasInterface(QIVEN_WATCH *pWatch, Test test) {
    const QIVEN_INTERFACE *p = nullptr;
    uint32_t ulAfter = 0;
    while ((p = QIVENWatchInterface(pWatch, ulAfter)) != nullptr) {
        if (test(*p)) return true;
        ulAfter = p->ulIfIndex;
    }
    return false;
}

}  // namespace

bool IsAnyUsed(QIVEN_WATCH *pWatch) {
    return HasInterface(pWatch, [](const QIVEN_INTERFACE &interface) {
        return interface.ulState == QIVEN_INTERFACE_USED || interface.ulState == QIVEN_INTERFACE_FAILED;
    });
}

bool IsAnyAsked(QIVEN_WATCH *pWatch) {
    return HasInterface(
        pWatch, [](const QIVEN_INTERFACE &interface) { return interface.ulState == QIVEN_INTERFACE_USED; });
}

std::string WhyNoneUsed(QIVEN_WATCH *pWatch, const interface_filter::Filter &filter) {
    if (HasInterface(pWatch, [&filter](const QIVEN_INTERFACE &interface) {
            return interface.ulState == QIVEN_INTERFACE_NO_ADDRESS &&
                   interface_filter::IsWanted(filter, interface.szIfName);
        }))
        return "no chosen interface has an IPv4 address";
    if (!HasInterface(pWatch, [](const QIVEN_INTERFACE &interface) {
            return interface.ulState == QIVEN_INTERFACE_LEFT_OUT ||
                   interface.ulState == QIVEN_INTERFACE_NO_ADDRESS;
        }))
        return "no usable network interface (up, with a carrier, not loopback)";
    if (!filter.interfaces.empty()) return "no usable interface has a name that --interface allows";
    return "every usable interface is left out; see --interface and --all-interfaces";
}

}  // namespace qiven::find
