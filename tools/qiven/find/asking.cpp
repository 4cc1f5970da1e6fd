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
    return interface_filter::WhyNone(
        filter, [pWatch](uint32_t ulAfter) { return QIVENWatchInterface(pWatch, ulAfter); });
}

}  // namespace qiven::find
