#include "inbox.h"

#include <qiven/packet.h>

#include <cstdlib>
#include <cstring>

namespace qiven::watch {

namespace {

constexpr size_t kChunkSize = size_t{64} << 10;
constexpr size_t kChunksMax = kInboxMax / kChunkSize;
constexpr size_t kSpareMax = kSocketsMax;
constexpr size_t kAlign = alignof(Datagram);

constexpr size_t EntrySize(size_t cbDatagram) {
    return (sizeof(Datagram) + cbDatagram + kAlign - 1) / kAlign * kAlign;
}

}  // namespace

struct Chunk {
    Chunk *pNext;
    size_t cbUsed;
    alignas(Datagram) unsigned char rgb[kChunkSize - 2 * sizeof(void *)];
};
static_assert(sizeof(Chunk) == kChunkSize);

namespace {

Chunk *NewChunk(Inbox &inbox) {
    Chunk *pChunk = inbox.pSpare;
    if (pChunk != nullptr) {
        inbox.pSpare = pChunk->pNext;
        --inbox.nSpare;
    } else if (inbox.nChunks < kChunksMax) {
        pChunk = static_cast<Chunk *>(malloc(sizeof(Chunk)));
        inbox.nChunks += pChunk != nullptr ? 1 : 0;
    }
    if (pChunk == nullptr) return nullptr;
    pChunk->pNext = nullptr;
    pChunk->cbUsed = 0;
    return pChunk;
}

void Release(Inbox &inbox, Chunk *pChunk) {
    if (inbox.nSpare < kSpareMax) {
        pChunk->pNext = inbox.pSpare;
        inbox.pSpare = pChunk;
        ++inbox.nSpare;
        return;
    }
    free(pChunk);
    --inbox.nChunks;
}

void FreeList(Chunk *pChunk) {
    while (pChunk != nullptr) {
        Chunk *pNext = pChunk->pNext;
        free(pChunk);
        pChunk = pNext;
    }
}

// The queue's first chunk is given back when the next call finds it used up, so that bytes taken from it
// hold.
const Datagram *Head(Inbox &inbox, Queue &queue) {
    while (queue.pFirst != nullptr && queue.cbTaken == queue.pFirst->cbUsed) {
        Chunk *pDone = queue.pFirst;
        queue.pFirst = pDone->pNext;
        queue.cbTaken = 0;
        if (queue.pFirst == nullptr) queue.pLast = nullptr;
        Release(inbox, pDone);
    }
    if (queue.pFirst == nullptr) return nullptr;
    return reinterpret_cast<const Datagram *>(queue.pFirst->rgb + queue.cbTaken);
}

}  // namespace

void FreeInbox(Inbox &inbox) {
    for (Queue &queue : inbox.rgQueue)
        FreeList(queue.pFirst);
    FreeList(inbox.pSpare);
    inbox = {};
}

size_t MemoryOf(const Inbox &inbox) {
    return inbox.nChunks * kChunkSize;
}

bool HasSpace(const Inbox &inbox, size_t nDatagrams) {
    constexpr size_t kPerChunk = sizeof Chunk::rgb / EntrySize(QIVEN_PACKET_MAX);
    const size_t nNeeded = nDatagrams / kPerChunk + 1;
    return inbox.nChunks - inbox.nSpare + nNeeded <= kChunksMax;
}

bool Put(Inbox &inbox, unsigned uQueue, const Datagram &datagram, const unsigned char *pb) {
    Queue &queue = inbox.rgQueue[uQueue];
    const size_t cbEntry = EntrySize(datagram.cb);
    if (queue.pLast == nullptr || sizeof queue.pLast->rgb - queue.pLast->cbUsed < cbEntry) {
        Chunk *pChunk = NewChunk(inbox);
        if (pChunk == nullptr) return false;
        (queue.pLast == nullptr ? queue.pFirst : queue.pLast->pNext) = pChunk;
        queue.pLast = pChunk;
    }
    unsigned char *pbTo = queue.pLast->rgb + queue.pLast->cbUsed;
    memcpy(pbTo, &datagram, sizeof datagram);
    memcpy(pbTo + sizeof datagram, pb, datagram.cb);
    queue.pLast->cbUsed += cbEntry;
    ++inbox.nDatagrams;
    return true;
}

bool TakeFirst(Inbox &inbox, Datagram &datagram, const unsigned char *&pb) {
    Queue *pQueue = nullptr;
    const Datagram *pFirst = nullptr;
    if (inbox.nDatagrams == 0) return false;
    for (Queue &queue : inbox.rgQueue) {
        const Datagram *pHead = Head(inbox, queue);
        if (pHead == nullptr || (pFirst != nullptr && pFirst->ullArrivedUs <= pHead->ullArrivedUs)) continue;
        pFirst = pHead;
        pQueue = &queue;
    }
    if (pFirst == nullptr) return false;
    datagram = *pFirst;
    pb = pQueue->pFirst->rgb + pQueue->cbTaken + sizeof datagram;
    pQueue->cbTaken += EntrySize(datagram.cb);
    --inbox.nDatagrams;
    return true;
}

}  // namespace qiven::watch
