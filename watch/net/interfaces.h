// The interfaces of this machine, as the kernel reports them and their changes.
#pragma once

#include <qiven/watch.h>

#include <cstdint>

namespace qiven::watch {

constexpr uint32_t kInterfacesMax = 2048;
constexpr uint32_t kInterfaceAddressesMax = 8192;

struct Interface {
    QIVEN_INTERFACE shown;
    uint32_t ulStateTold;  // what the caller was told; GONE before anything
    bool blTell;           // the caller is to be told
    uint8_t nAsks;         // queries that it shall still have of its own, because it is new
};

struct AddressOf {
    uint32_t ulIfIndex, ulOrder;
    QIVEN_INTERFACE_ADDRESS address;
};

// Interfaces by rising number, and their addresses in the same order.
struct List {
    Interface *rg;
    QIVEN_INTERFACE_ADDRESS *rgAddress;
    AddressOf *rgAddressOf;  // as they come from the kernel
    uint32_t n, nCapacity, nAddresses, nAddressCapacity;
    bool blIncomplete;  // there was no memory for all
};

enum class Phase { kIdle, kLinks, kAddresses };

struct Interfaces {
    int fd = -1;
    QIVEN_INTERFACE_FUNC pfnChoose = nullptr;
    void *pvUser = nullptr;
    List now{}, next{};
    Interface *rgGone = nullptr;  // of which the caller was told, and is to be told that they are gone
    uint32_t nGone = 0;
    Phase phase = Phase::kIdle;
    uint32_t ulSequence = 0;
    uint64_t ullDueUs = 0;  // of the next enumeration; kNever: nothing has changed
    uint32_t nChanges = 0;  // enumerations that found a difference
    bool blTell = false;    // the caller is to be told of one of them
    bool blAsk = false;     // one of them shall have queries of its own
    int iError = 0;
};

// 0 or a negative errno. Open enumerates; Update reads what has changed and returns false if its time was up.
int OpenInterfaces(Interfaces &interfaces, QIVEN_INTERFACE_FUNC pfnChoose, void *pvUser);
bool UpdateInterfaces(Interfaces &interfaces, uint64_t ullUntilUs);
void CloseInterfaces(Interfaces &interfaces);

// Null if there is none of that number, or none after it.
Interface *FindInterface(const Interfaces &interfaces, uint32_t ulIfIndex);
Interface *InterfaceAfter(const Interfaces &interfaces, uint32_t ulIfIndex);

inline bool IsUsed(const Interface &interface) {
    return interface.shown.ulState == QIVEN_INTERFACE_USED ||
           interface.shown.ulState == QIVEN_INTERFACE_FAILED;
}
bool HasNetworkOf(const Interface &interface, uint32_t ulAddress);
bool SharesNetwork(const Interface &interface, const Interface &other);
bool IsOwnAddress(const Interfaces &interfaces, uint32_t ulAddress);
// Notes how sending went, 0 or a negative errno.
void NoteSent(Interfaces &interfaces, Interface &interface, int iResult);

// The next interface of which the caller is to be told, as it is now; null if there is none.
const QIVEN_INTERFACE *TakeChanged(Interfaces &interfaces);

// For netlink.cpp: takes over a list that is complete.
void Adopt(Interfaces &interfaces);
bool AddInterface(List &list, const QIVEN_INTERFACE &interface);
bool AddAddress(List &list, const AddressOf &address);
void FreeList(List &list);
// One step of reading; false if there is nothing from the kernel now.
bool ReadKernel(Interfaces &interfaces, uint64_t ullNowUs);
int Request(Interfaces &interfaces, Phase phase);
int OpenNetlink();

}  // namespace qiven::watch
