// The table of hosts. hosts.cpp and addresses.cpp keep it, merge.cpp decides which answers are one host.
#pragma once

#include <qiven/watch.h>

#include "known.h"
#include "memory.h"
#include "net/inbox.h"
#include "packed.h"
#include "queue.h"
#include "siphash.h"

namespace qiven::watch {

// What one sender says of a host; beside each address of it.
struct Saying {
    uint64_t ullSays;      // hash of the description
    uint64_t ullDatagram;  // hash of the datagram that said it; 0: not known
    uint32_t ulProcessID;
};

// Why a host waits to be told.
enum : uint8_t { kToldAppeared = 1, kToldChanged = 2, kToldConflict = 4, kToldVanished = 8 };

constexpr size_t kAddressSize = sizeof(QIVEN_WATCH_ADDRESS) + sizeof(Saying);

constexpr size_t kKeyMax = 1 + sizeof(nasinfo::szHostName) + sizeof(uint32_t);

struct Host {
    Node node{Of::kHost};
    Host *pNextInBucket = nullptr;
    Host *pQuieter = nullptr, *pLouder = nullptr;  // those last heard just before and just after
    uint64_t ullHash = 0;
    QIVEN_WATCH_HOST shown{};  // but for record and addresses, which are put in when it is shown
    QIVEN_WATCH_ADDRESS *rgAddress = nullptr;
    Saying *rgSaying = nullptr;  // behind the addresses, in the same block
    uint32_t nCapacity = 0;
    uint32_t cbDescription = 0, cbRecord = 0, cbWas = 0;
    unsigned char *pbRecord = nullptr;
    unsigned char *pbWas = nullptr;  // as it was when the caller was last told; null: as it is
    uint64_t ullSays = 0;            // hash of the description
    uint64_t ullChangedUs = 0;       // when it became so
    uint64_t ullToldUs = 0;
    uint32_t ulFirstRound = 0, ulHeardRound = 0;
    bool blConfirmed = false;  // heard in another round than its first
    bool blDoubtful = false;   // it came to a full table, and is not confirmed
    uint32_t ulChanged = 0;    // QIVEN_CHANGED_..., not told yet
    uint8_t uTell = 0;
    uint8_t cbKey = 0;
    char rgchKey[kKeyMax];
};

struct Bucket {
    Host *pFirst = nullptr;
};

struct Place {
    uint32_t ulHost;
    Host *pHost;  // null: it is gone
};

struct Table {
    Budget budget{};
    Layout layout{};
    HashKey key{};
    uint64_t ullVanishUs = 0, ullChangeUs = 0;
    uint32_t nHostsMax = 0;
    bool blFull = false;
    bool blAsks = false;  // again and again, so that silence means something

    Bucket *rgBucket = nullptr;
    size_t nBuckets = 0;
    KnownDatagrams known;
    Place *rgPlace = nullptr;  // by rising number
    size_t nPlaces = 0, nPlacesMax = 0;
    Host *pQuietest = nullptr, *pLoudest = nullptr;
    uint32_t nHosts = 0, ulLast = 0;
    uint32_t ulRound = 0;

    // The caller is told of ready first: hosts that are confirmed, conflicts, interfaces and counts. Then of
    // news: what happens to them later. Then of fresh: hosts that are not confirmed, and the end of a round.
    // held: changed again soon after the caller was told.
    NodeQueue ready, news, fresh, held;
    uint64_t ullDraws = 0;
    uint64_t ullLeftOut = 0, ullNoMemory = 0;
    Packed packed;             // the answer at hand
    uint64_t ullDatagram = 0;  // its hash; 0: it is not to be recognised
};

// Did not answer so many queries.
constexpr uint32_t kMissedRounds = 2;
inline bool HasMissed(const Table &table, const Host &host) {
    return host.ulHeardRound + kMissedRounds <= table.ulRound;
}

int InitTable(Table &table);
void FreeTable(Table &table);

// Which host an answer is of.
struct Key {
    uint64_t ullHash;
    uint8_t cb;
    char rgch[kKeyMax];
};
Key KeyOf(const Table &table, const nasinfo &record);

enum class Heard { kAgain, kNew, kChanged, kLeftOut };
// The hash of its datagram, if it may be recognised by that.
Heard AddAnswer(Table &table, const QIVEN_RECEIVED &received, uint64_t ullDatagram = 0);
// Whether an address of a host answered with these bytes last, and it all still holds. Then that is noted,
// and it need not be decoded.
bool HearAgain(Table &table, const Datagram &datagram, uint64_t ullDatagram);

// For merge.cpp. Null if there is no space or no memory; both are counted.
Host *AddHost(Table &table, const Key &key, const QIVEN_RECEIVED &received);
bool SetRecord(Table &table, Host &host, const QIVEN_RECEIVED &received);
bool AddAddress(Table &table, Host &host, const QIVEN_RECEIVED &received, uint64_t ullSays);
void RefreshAddress(Table &table, Host &host, uint32_t uAddress, const QIVEN_RECEIVED &received,
                    uint64_t ullSays);
void RemoveAddress(Host &host, uint32_t uAddress);
void NoteHeard(Table &table, Host &host, uint64_t ullMonotonicUs, int64_t llUnixUs);
void Tell(Table &table, Host &host, uint8_t uTell, uint64_t ullNowUs);
// Takes a host out of the table; it is freed when the caller has been told, at once if it knows nothing of
// it.
void Vanish(Table &table, Host &host, uint64_t ullNowUs);
void FreeHost(Table &table, Host *pHost);

// Those that were silent for too long, so many at most.
void VanishSilent(Table &table, uint64_t ullNowUs, unsigned nMost);
// Moves changes that were held back for long enough.
void ReleaseHeld(Table &table, uint64_t ullNowUs);
// When the next of both is due; kNever: not at all.
uint64_t DueOf(const Table &table);

// What the caller is told next; null: nothing.
inline Node *NextNode(const Table &table) {
    if (table.ready.pFirst != nullptr) return table.ready.pFirst;
    return table.news.pFirst != nullptr ? table.news.pFirst : table.fresh.pFirst;
}

Host *FindHost(const Table &table, uint32_t ulHost);
Host *HostAfter(const Table &table, uint32_t ulHost);
// Puts addresses and record into what is shown.
const QIVEN_WATCH_HOST *Show(const Table &table, Host &host, nasinfo &record);
uint64_t MemoryOf(const Table &table);

}  // namespace qiven::watch
