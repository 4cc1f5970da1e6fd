#include "find/host.h"

#include <fmt/format.h>

#include <algorithm>

#include "fields.h"

namespace qiven::find {

const QIVEN_WATCH_ADDRESS *FirstAddress(const QIVEN_WATCH_HOST &host) {
    const auto *pEnd = host.rgAddress + host.nAddresses;
    const auto *p = std::find_if(host.rgAddress, pEnd, [](const QIVEN_WATCH_ADDRESS &address) {
        return (address.ulFlags & QIVEN_ADDRESS_UNUSED) == 0;
    });
    return p == pEnd ? nullptr : p;
}

std::string Label(const QIVEN_WATCH_HOST &host) {
    const QIVEN_WATCH_ADDRESS *pAddress = FirstAddress(host);
    return fmt::format("{} ({})", fields::Text(*host.pnasInfo, *fields::ByName("name")),
                       fields::Dotted(pAddress != nullptr ? pAddress->ulIP : host.pnasInfo->ulIP));
}

}  // namespace qiven::find
