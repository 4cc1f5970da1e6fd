// The sockets of a port, and an exact account of what they lose.
#pragma once

#include <sys/socket.h>

#include <array>
#include <cstdint>

#include "clock.h"
#include "filter.h"
#include "inbox.h"

namespace qiven::watch {

// The kernel counts for each socket what it rejected or had no space for. A broadcast reaches every socket,
// so what a socket was given and what it dropped add up to all of them; what is missing of that was lost.
struct Losses {
    std::array<uint32_t, kSocketsMax> rgBase{};   // the kernel's counts when the port was opened
    std::array<uint32_t, kSocketsMax> rgGiven{};  // broadcasts that were read from each socket
    uint32_t ulKept = 0;                          // broadcasts, each once
    std::array<uint32_t, kSocketsMax> rgDropped{}, rgDroppedBefore{};
    uint32_t ulLost = 0;
    uint64_t ullLost = 0;
    uint64_t ullReadThen = 0;
    uint64_t ullDueUs = kNever;  // of the next look at the kernel's counts; kNever: all is accounted for
    bool blLooked = false;
};

struct Staging;

struct Sockets {
    std::array<int, kSocketsMax> rgFd;
    unsigned nSockets = 0;
    uint32_t ulSeed = 0;
    uint64_t ullReceived = 0, ullNoMemory = 0;
    uint64_t ullRead = 0;  // also copies
    Losses losses;
    Inbox inbox;
    Staging *pStaging = nullptr;
};

// 0 or a negative errno; then everything is closed.
int OpenSockets(Sockets &sockets, uint16_t usPort);
void CloseSockets(Sockets &sockets);

size_t StagingSize();

// Empties the sockets whose bit is set into the inbox; true if it did, false if time or space ended before.
bool Empty(Sockets &sockets, unsigned uReady, uint64_t ullUntilUs);

// Around an emptying of all sockets that could have something: reads the kernel's counts before, and draws
// the balance after it.
void LookAtLosses(Sockets &sockets, uint64_t ullNowUs);
void BalanceLosses(Sockets &sockets, uint64_t ullNowUs, bool blEmptied);

}  // namespace qiven::watch
