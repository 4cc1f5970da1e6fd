// The addresses of a host, and what was said from each.
#include <algorithm>
#include <cstring>

#include "hosts.h"

namespace qiven::watch {

namespace {

uint32_t AddressFlags(const QIVEN_RECEIVED &received) {
    const uint32_t ulIP = received.pnasInfo->ulIP;
    uint32_t ulFlags = ulIP != 0 && ulIP != received.ulSource ? QIVEN_ADDRESS_DIFFERS : 0;
    if ((received.ulFlags & QIVEN_RECEIVED_OFF_LINK) != 0) ulFlags |= QIVEN_ADDRESS_OFF_LINK;
    if ((received.ulFlags & QIVEN_RECEIVED_SEALED) != 0) ulFlags |= QIVEN_ADDRESS_SEALED;
    if ((received.ulFlags & QIVEN_RECEIVED_UNUSED) != 0) ulFlags |= QIVEN_ADDRESS_UNUSED;
    return ulFlags;
}

bool GrowAddresses(Table &table, Host &host) {
    const uint32_t nNew = host.nCapacity == 0 ? 1 : host.nCapacity * 2;
    auto *rgAddress = static_cast<QIVEN_WATCH_ADDRESS *>(Allocate(table.budget, nNew * kAddressSize));
    if (rgAddress == nullptr) return false;
    auto *rgSaying = reinterpret_cast<Saying *>(rgAddress + nNew);
    std::copy(host.rgAddress, host.rgAddress + host.shown.nAddresses, rgAddress);
    std::copy(host.rgSaying, host.rgSaying + host.shown.nAddresses, rgSaying);
    Free(table.budget, host.rgAddress, host.nCapacity * kAddressSize);
    host.rgAddress = rgAddress;
    host.rgSaying = rgSaying;
    host.nCapacity = nNew;
    return true;
}

}  // namespace

bool AddAddress(Table &table, Host &host, const QIVEN_RECEIVED &received, uint64_t ullSays) {
    uint32_t u = host.shown.nAddresses;
    if (u == QIVEN_WATCH_ADDRESSES_MAX) {
        const auto isOlder = [](const auto &a, const auto &b) { return a.ullLastUs < b.ullLastUs; };
        u = static_cast<uint32_t>(std::min_element(host.rgAddress, host.rgAddress + u, isOlder) -
                                  host.rgAddress);
        RemoveAddress(host, u);
        u = host.shown.nAddresses;
    }
    if ((u == host.nCapacity || host.rgAddress == nullptr) && !GrowAddresses(table, host)) return false;
    QIVEN_WATCH_ADDRESS &address = host.rgAddress[u];
    address = {};
    address.ulIP = received.pnasInfo->ulIP;
    address.ulSource = received.ulSource;
    address.ulIfIndex = received.ulIfIndex;
    memcpy(address.szIfName, received.szIfName, sizeof address.szIfName);
    memcpy(address.szMacAddr, received.pnasInfo->szMacAddr, sizeof address.szMacAddr);
    ++host.shown.nAddresses;
    RefreshAddress(table, host, u, received, ullSays);
    return true;
}

void RefreshAddress(Table &table, Host &host, uint32_t uAddress, const QIVEN_RECEIVED &received,
                    uint64_t ullSays) {
    QIVEN_WATCH_ADDRESS &address = host.rgAddress[uAddress];
    address.ulFlags = AddressFlags(received);
    address.ullLastUs = received.ullMonotonicUs;
    host.rgSaying[uAddress] = {ullSays, table.ullDatagram, received.pnasInfo->ulProcessID};
    Learn(table.known, table.ullDatagram, host.shown.ulHost);
}

void RemoveAddress(Host &host, uint32_t uAddress) {
    const uint32_t n = host.shown.nAddresses--;
    std::copy(host.rgAddress + uAddress + 1, host.rgAddress + n, host.rgAddress + uAddress);
    std::copy(host.rgSaying + uAddress + 1, host.rgSaying + n, host.rgSaying + uAddress);
}

}  // namespace qiven::watch
