// Datagrams that were taken from the sockets and not looked at yet.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "filter.h"

namespace qiven::watch {

struct Datagram {
    uint64_t ullArrivedUs;  // monotonic
    int64_t llArrivedUnixUs;
    uint32_t ulSource;   // network order
    uint32_t ulIfIndex;  // 0: not known
    uint16_t usPort;     // host order
    uint16_t cb;
    bool blDirected;  // to this machine alone
    bool blCut;       // it was longer than a packet can be; its bytes are not kept
};

struct Chunk;

// One queue per socket: what comes out of a socket is in the order of arrival already.
struct Queue {
    Chunk *pFirst = nullptr, *pLast = nullptr;
    size_t cbTaken = 0;  // of the first chunk
};

struct Inbox {
    std::array<Queue, kSocketsMax> rgQueue{};
    Chunk *pSpare = nullptr;
    size_t nChunks = 0, nSpare = 0;
    size_t nDatagrams = 0;
};

constexpr size_t kInboxMax = size_t{2} << 20;  // as qiven/watch.h states it

void FreeInbox(Inbox &inbox);
size_t MemoryOf(const Inbox &inbox);

// Whether the bound leaves space for so many datagrams, however large they are.
bool HasSpace(const Inbox &inbox, size_t nDatagrams);
// Appends one; false if there is no memory.
bool Put(Inbox &inbox, unsigned uQueue, const Datagram &datagram, const unsigned char *pb);
// Takes the one that arrived first; false if there is none. Its bytes hold until the next call.
bool TakeFirst(Inbox &inbox, Datagram &datagram, const unsigned char *&pb);

}  // namespace qiven::watch
