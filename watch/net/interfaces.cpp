#include "interfaces.h"

#include <net/if.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "clock.h"

namespace qiven::watch {

namespace {

// Makes space for one more; false beyond the bound or without memory.
template <class T>
bool Grow(T *&rg, uint32_t n, uint32_t &nCapacity, uint32_t nMax) {
    constexpr uint32_t kFirst = 16;
    if (n < nCapacity) return true;
    if (n >= nMax) return false;
    const uint32_t nNew = std::min(nMax, nCapacity == 0 ? kFirst : nCapacity * 2);
    auto *p = static_cast<T *>(realloc(rg, nNew * sizeof(T)));
    if (p == nullptr) return false;
    rg = p;
    nCapacity = nNew;
    return true;
}

Interface *FindIn(const List &list, uint32_t ulIfIndex) {
    Interface *pEnd = list.rg + list.n;
    Interface *p = std::lower_bound(list.rg, pEnd, ulIfIndex, [](const Interface &interface, uint32_t ul) {
        return interface.shown.ulIfIndex < ul;
    });
    return p != pEnd && p->shown.ulIfIndex == ulIfIndex ? p : nullptr;
}

// Brings a list that was read into order and gives each interface its addresses.
bool Arrange(List &list) {
    if (list.blIncomplete) return false;
    std::sort(list.rg, list.rg + list.n,
              [](const Interface &a, const Interface &b) { return a.shown.ulIfIndex < b.shown.ulIfIndex; });
    std::sort(list.rgAddressOf, list.rgAddressOf + list.nAddresses,
              [](const AddressOf &a, const AddressOf &b) {
                  return a.ulIfIndex != b.ulIfIndex ? a.ulIfIndex < b.ulIfIndex : a.ulOrder < b.ulOrder;
              });
    if (list.nAddresses > 0) {
        list.rgAddress =
            static_cast<QIVEN_INTERFACE_ADDRESS *>(malloc(list.nAddresses * sizeof(QIVEN_INTERFACE_ADDRESS)));
        if (list.rgAddress == nullptr) return false;
    }
    for (uint32_t i = 0; i < list.nAddresses; ++i) {
        list.rgAddress[i] = list.rgAddressOf[i].address;
        Interface *pInterface = FindIn(list, list.rgAddressOf[i].ulIfIndex);
        if (pInterface == nullptr) continue;
        if (pInterface->shown.nAddresses++ == 0) pInterface->shown.rgAddress = &list.rgAddress[i];
    }
    return true;
}

uint32_t KernelState(const QIVEN_INTERFACE &interface) {
    if ((interface.ulFlags & (IFF_LOOPBACK | IFF_POINTOPOINT | IFF_SLAVE)) != 0 ||
        strcmp(interface.szKind, "tun") == 0)
        return QIVEN_INTERFACE_UNSUITABLE;
    if ((interface.ulFlags & IFF_UP) == 0) return QIVEN_INTERFACE_DOWN;
    if ((interface.ulFlags & IFF_RUNNING) == 0) return QIVEN_INTERFACE_NO_CARRIER;
    return QIVEN_INTERFACE_USED;
}

uint32_t StateOf(const Interfaces &interfaces, const QIVEN_INTERFACE &interface) {
    const uint32_t ulState = KernelState(interface);
    if (ulState != QIVEN_INTERFACE_USED) return ulState;
    if (interfaces.pfnChoose != nullptr && interfaces.pfnChoose(&interface, interfaces.pvUser) != 1)
        return QIVEN_INTERFACE_LEFT_OUT;
    return interface.nAddresses == 0 ? QIVEN_INTERFACE_NO_ADDRESS : QIVEN_INTERFACE_USED;
}

bool HasSameNames(const QIVEN_INTERFACE &a, const QIVEN_INTERFACE &b) {
    return strcmp(a.szIfName, b.szIfName) == 0 && a.nAddresses == b.nAddresses &&
           (a.nAddresses == 0 || memcmp(a.rgAddress, b.rgAddress, a.nAddresses * sizeof *a.rgAddress) == 0);
}

bool IsSame(const QIVEN_INTERFACE &a, const QIVEN_INTERFACE &b) {
    return a.ulFlags == b.ulFlags && a.ulMaster == b.ulMaster && HasSameNames(a, b) &&
           memcmp(a.rgMac, b.rgMac, sizeof a.rgMac) == 0;
}

// Of what is not used, a caller only wants to hear if it was used, or could be but for an address.
bool IsOfInterest(uint32_t ulState) {
    return ulState <= QIVEN_INTERFACE_NO_ADDRESS;
}

void TellIfChanged(Interfaces &interfaces, Interface &interface) {
    const uint32_t ulState = interface.shown.ulState;
    if (ulState == interface.ulStateTold) return;
    if (!IsOfInterest(ulState) && !IsOfInterest(interface.ulStateTold)) return;
    interface.blTell = interfaces.blTell = true;
}

// Remembers one that is gone, if the caller knows it. Without memory it is not told.
void NoteGone(Interfaces &interfaces, const Interface &interface) {
    if (!IsOfInterest(interface.ulStateTold) || interfaces.nGone >= kInterfacesMax) return;
    const size_t cb = (interfaces.nGone + 1) * sizeof(Interface);
    auto *p = static_cast<Interface *>(realloc(interfaces.rgGone, cb));
    if (p == nullptr) return;
    interfaces.rgGone = p;
    Interface &gone = p[interfaces.nGone++];
    gone = interface;
    gone.shown.ulState = QIVEN_INTERFACE_GONE;
    gone.shown.nAddresses = 0;
    gone.shown.rgAddress = nullptr;
    interfaces.blTell = true;
}

void Compare(Interfaces &interfaces, Interface &interface) {
    constexpr uint8_t kAsksOfNew = 2;
    const Interface *pOld = FindIn(interfaces.now, interface.shown.ulIfIndex);
    if (pOld != nullptr && IsSame(pOld->shown, interface.shown)) {
        const QIVEN_INTERFACE_ADDRESS *rgAddress = interface.shown.rgAddress;
        interface = *pOld;
        interface.shown.rgAddress = rgAddress;
        return;
    }
    ++interfaces.nChanges;
    interface.ulStateTold = pOld != nullptr ? pOld->ulStateTold : QIVEN_INTERFACE_GONE;
    interface.shown.ulState = StateOf(interfaces, interface.shown);
    TellIfChanged(interfaces, interface);
    if (!IsUsed(interface)) return;
    const bool blWasUsed = pOld != nullptr && IsUsed(*pOld);
    if (!blWasUsed || pOld->shown.rgAddress[0].ulIP != interface.shown.rgAddress[0].ulIP) {
        interface.nAsks = kAsksOfNew;
        interfaces.blAsk = true;
    }
    if (blWasUsed && !HasSameNames(pOld->shown, interface.shown)) interface.blTell = interfaces.blTell = true;
}

}  // namespace

void FreeList(List &list) {
    free(list.rg);
    free(list.rgAddress);
    free(list.rgAddressOf);
    list = {};
}

bool AddInterface(List &list, const QIVEN_INTERFACE &interface) {
    if (!Grow(list.rg, list.n, list.nCapacity, kInterfacesMax)) {
        list.blIncomplete |= list.n < kInterfacesMax;
        return false;
    }
    list.rg[list.n++] = {interface, QIVEN_INTERFACE_GONE, false, 0};
    list.rg[list.n - 1].shown.cbSize = sizeof interface;
    return true;
}

bool AddAddress(List &list, const AddressOf &address) {
    if (!Grow(list.rgAddressOf, list.nAddresses, list.nAddressCapacity, kInterfaceAddressesMax)) {
        list.blIncomplete |= list.nAddresses < kInterfaceAddressesMax;
        return false;
    }
    list.rgAddressOf[list.nAddresses] = address;
    list.rgAddressOf[list.nAddresses].ulOrder = list.nAddresses;
    ++list.nAddresses;
    return true;
}

void Adopt(Interfaces &interfaces) {
    List &next = interfaces.next;
    if (!Arrange(next)) {
        FreeList(next);
        interfaces.ullDueUs = NowUs() + kSecond;
        return;
    }
    for (uint32_t i = 0; i < next.n; ++i)
        Compare(interfaces, next.rg[i]);
    for (uint32_t i = 0; i < interfaces.now.n; ++i) {
        if (FindIn(next, interfaces.now.rg[i].shown.ulIfIndex) == nullptr)
            NoteGone(interfaces, interfaces.now.rg[i]);
    }
    FreeList(interfaces.now);
    interfaces.now = next;
    next = {};
}

bool UpdateInterfaces(Interfaces &interfaces, uint64_t ullUntilUs) {
    for (;;) {
        const uint64_t ullNowUs = NowUs();
        if (interfaces.phase == Phase::kIdle && ullNowUs >= interfaces.ullDueUs) {
            FreeList(interfaces.next);
            interfaces.ullDueUs = kNever;
            interfaces.iError = Request(interfaces, Phase::kLinks);
            if (interfaces.iError != 0) interfaces.ullDueUs = ullNowUs + kSecond;
        }
        if (!ReadKernel(interfaces, ullNowUs)) return true;
        if (ullNowUs >= ullUntilUs) return false;
    }
}

int OpenInterfaces(Interfaces &interfaces, QIVEN_INTERFACE_FUNC pfnChoose, void *pvUser) {
    interfaces.fd = OpenNetlink();
    if (interfaces.fd < 0) return interfaces.fd;
    interfaces.pfnChoose = pfnChoose;
    interfaces.pvUser = pvUser;
    UpdateInterfaces(interfaces, kNever);
    return interfaces.iError;
}

void CloseInterfaces(Interfaces &interfaces) {
    if (interfaces.fd >= 0) close(interfaces.fd);
    FreeList(interfaces.now);
    FreeList(interfaces.next);
    free(interfaces.rgGone);
    interfaces = {};
}

Interface *FindInterface(const Interfaces &interfaces, uint32_t ulIfIndex) {
    return FindIn(interfaces.now, ulIfIndex);
}

Interface *InterfaceAfter(const Interfaces &interfaces, uint32_t ulIfIndex) {
    Interface *pEnd = interfaces.now.rg + interfaces.now.n;
    Interface *p = std::upper_bound(
        interfaces.now.rg, pEnd, ulIfIndex,
        [](uint32_t ul, const Interface &interface) { return ul < interface.shown.ulIfIndex; });
    return p != pEnd ? p : nullptr;
}

bool HasNetworkOf(const Interface &interface, uint32_t ulAddress) {
    const QIVEN_INTERFACE &shown = interface.shown;
    return std::any_of(shown.rgAddress, shown.rgAddress + shown.nAddresses,
                       [ulAddress](const auto &own) { return ((own.ulIP ^ ulAddress) & own.ulMask) == 0; });
}

bool SharesNetwork(const Interface &interface, const Interface &other) {
    const QIVEN_INTERFACE &shown = other.shown;
    return std::any_of(shown.rgAddress, shown.rgAddress + shown.nAddresses,
                       [&interface](const auto &address) { return HasNetworkOf(interface, address.ulIP); });
}

bool IsOwnAddress(const Interfaces &interfaces, uint32_t ulAddress) {
    const List &list = interfaces.now;
    return std::any_of(list.rgAddress, list.rgAddress + list.nAddresses,
                       [ulAddress](const auto &own) { return own.ulIP == ulAddress; });
}

void NoteSent(Interfaces &interfaces, Interface &interface, int iResult) {
    interface.shown.iResult = iResult;
    interface.shown.ulState = iResult == 0 ? QIVEN_INTERFACE_USED : QIVEN_INTERFACE_FAILED;
    TellIfChanged(interfaces, interface);
}

const QIVEN_INTERFACE *TakeChanged(Interfaces &interfaces) {
    if (interfaces.nGone > 0) return &interfaces.rgGone[--interfaces.nGone].shown;
    for (uint32_t i = 0; i < interfaces.now.n; ++i) {
        Interface &interface = interfaces.now.rg[i];
        if (!interface.blTell) continue;
        interface.blTell = false;
        interface.ulStateTold = interface.shown.ulState;
        return &interface.shown;
    }
    interfaces.blTell = false;
    return nullptr;
}

}  // namespace qiven::watch
