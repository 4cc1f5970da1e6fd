#include "hosts.h"

#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <type_traits>

#include "clock.h"

namespace qiven::watch {

namespace {

static_assert(std::is_standard_layout_v<Host>);  // a node in a queue is its host

constexpr size_t kFirstBuckets = 64;

void Unlink(Table &table, Host &host) {
    if (table.pQuietest == &host)
        table.pQuietest = host.pLouder;
    else
        host.pQuieter->pLouder = host.pLouder;
    if (table.pLoudest == &host)
        table.pLoudest = host.pQuieter;
    else
        host.pLouder->pQuieter = host.pQuieter;
    host.pQuieter = host.pLouder = nullptr;
}

void LinkLoudest(Table &table, Host &host) {
    host.pQuieter = table.pLoudest;
    host.pLouder = nullptr;
    (table.pLoudest != nullptr ? table.pLoudest->pLouder : table.pQuietest) = &host;
    table.pLoudest = &host;
}

Host **BucketOf(const Table &table, uint64_t ullHash) {
    return &table.rgBucket[ullHash & (table.nBuckets - 1)].pFirst;
}

bool Resize(Table &table, size_t nBuckets) {
    auto *rgBucket = static_cast<Bucket *>(Allocate(table.budget, nBuckets * sizeof(Bucket)));
    if (rgBucket == nullptr) return false;
    memset(static_cast<void *>(rgBucket), 0, nBuckets * sizeof(Bucket));
    std::swap(rgBucket, table.rgBucket);
    std::swap(nBuckets, table.nBuckets);
    for (size_t i = 0; i < nBuckets; ++i) {
        for (Host *pHost = rgBucket[i].pFirst; pHost != nullptr;) {
            Host *pNext = pHost->pNextInBucket;
            Host **ppBucket = BucketOf(table, pHost->ullHash);
            pHost->pNextInBucket = *ppBucket;
            *ppBucket = pHost;
            pHost = pNext;
        }
    }
    Free(table.budget, rgBucket, nBuckets * sizeof(Bucket));
    // Without memory for more, fewer are recognised.
    Resize(table.known, table.budget, table.nBuckets / 2);
    return true;
}

// As many as there can be hosts and a quarter, so that closing the gaps of those that are gone is rare. The
// kernel gives memory to those that are used.
bool MakePlaces(Table &table) {
    const size_t nHosts = std::min<uint64_t>(table.nHostsMax, table.budget.cbMax / sizeof(Host) + 1);
    table.nPlacesMax = nHosts + nHosts / 4 + 1;
    table.rgPlace = static_cast<Place *>(Allocate(table.budget, table.nPlacesMax * sizeof(Place)));
    return table.rgPlace != nullptr;
}

// Numbers rise, so new places are always the last.
bool ReservePlace(Table &table) {
    if (table.nPlaces < table.nPlacesMax) return true;
    const auto isGone = [](const Place &place) { return place.pHost == nullptr; };
    Place *pEnd = std::remove_if(table.rgPlace, table.rgPlace + table.nPlaces, isGone);
    table.nPlaces = static_cast<size_t>(pEnd - table.rgPlace);
    return table.nPlaces < table.nPlacesMax;
}

Place *PlaceFrom(const Table &table, uint32_t ulHost) {
    return std::lower_bound(table.rgPlace, table.rgPlace + table.nPlaces, ulHost,
                            [](const Place &place, uint32_t ul) { return place.ulHost < ul; });
}

bool HasSpace(const Table &table) {
    const size_t cbWanted =
        BlockSize(sizeof(Host)) + BlockSize(table.packed.cb) + BlockSize(kAddressSize) + 3 * kBlockOverhead;
    return table.nHosts < table.nHostsMax && Fits(table.budget, cbWanted);
}

// A table that was full remains so until a quarter is free: making space for one host is not the end of a
// flood.
bool HasAmpleSpace(const Table &table) {
    return table.nHosts < table.nHostsMax - table.nHostsMax / 4 &&
           table.budget.cbUsed < table.budget.cbMax - table.budget.cbMax / 4;
}

// Nobody is told of its end.
bool IsUntold(const Host &host) {
    return host.blDoubtful || (host.uTell & kToldAppeared) != 0;
}

// Space for one more host, at the cost of one that no longer answers, or of one that has answered in one
// round only: whoever forges hosts by the thousand rarely answers for each of them again, and a real host
// does. The memory of a host that the caller knows of comes back when the caller has been told.
bool MakeSpace(Table &table, uint64_t ullNowUs) {
    constexpr unsigned kDraws = 16;
    if (Host *p = table.pQuietest; p != nullptr && HasMissed(table, *p)) Vanish(table, *p, ullNowUs);
    bool blTold = false;
    for (unsigned nDrawn = 0; nDrawn < kDraws && table.nPlaces > 0 && !HasSpace(table); ++nDrawn) {
        const uint64_t ullDraw = SipHash(table.key, &table.ullDraws, sizeof table.ullDraws);
        ++table.ullDraws;
        Host *pHost = table.rgPlace[ullDraw % table.nPlaces].pHost;
        if (pHost == nullptr || pHost->blConfirmed || (blTold && !IsUntold(*pHost))) continue;
        blTold |= !IsUntold(*pHost);
        Vanish(table, *pHost, ullNowUs);
    }
    return HasSpace(table);
}

NodeQueue &QueueOf(Table &table, const Host &host) {
    const auto has = [&host](uint8_t uTell) { return (host.uTell & uTell) != 0; };
    if (!host.blConfirmed && has(kToldAppeared | kToldVanished)) return table.fresh;
    return has(kToldAppeared | kToldConflict) ? table.ready : table.news;
}

// It need not wait behind others any more.
void Confirm(Table &table, Host &host) {
    host.blConfirmed = true;
    if (host.blDoubtful) {
        host.blDoubtful = false;
        Tell(table, host, kToldAppeared, host.shown.ullLastUs);
    } else if (host.node.pIn == &table.fresh) {
        const uint64_t ullSinceUs = host.node.ullSinceUs;
        TakeOut(host.node);
        PutLast(table.ready, host.node, ullSinceUs);
    }
}

// When the quietest host has been silent for too long. Who was not asked is not silent: a program that was
// stopped for a while has asked nobody.
uint64_t SilentDue(const Table &table) {
    if (table.pQuietest == nullptr || table.ullVanishUs == 0) return kNever;
    if (table.blAsks && !HasMissed(table, *table.pQuietest)) return kNever;
    return table.pQuietest->shown.ullLastUs + table.ullVanishUs;
}

// Nobody stands in conflict with a host that is gone.
void EndConflicts(const Table &table, const Host &gone) {
    for (Host *p = *BucketOf(table, gone.ullHash); p != nullptr; p = p->pNextInBucket) {
        if (p->shown.ulConflict == gone.shown.ulHost) p->shown.ulConflict = 0;
    }
}

void PutIn(Table &table, Host &host) {
    Host **ppBucket = BucketOf(table, host.ullHash);
    host.pNextInBucket = *ppBucket;
    *ppBucket = &host;
    LinkLoudest(table, host);
    table.rgPlace[table.nPlaces++] = {host.shown.ulHost, &host};
    ++table.nHosts;
}

}  // namespace

int InitTable(Table &table) {
    table.layout = MakeLayout();
    // Without randomness a stranger could only make it slow.
    (void)!getrandom(&table.key, sizeof table.key, GRND_NONBLOCK);
    return MakePlaces(table) && Resize(table, kFirstBuckets) ? 0 : -ENOMEM;
}

void FreeTable(Table &table) {
    for (size_t i = 0; i < table.nPlaces; ++i)
        FreeHost(table, table.rgPlace[i].pHost);
    // Those that vanished are in the queues only.
    for (const NodeQueue *pQueue : {&table.ready, &table.news, &table.fresh}) {
        for (Node *pNode = pQueue->pFirst; pNode != nullptr;) {
            Node *pNext = pNode->pAfter;
            if (pNode->of == Of::kHost) FreeHost(table, reinterpret_cast<Host *>(pNode));
            pNode = pNext;
        }
    }
    Free(table.budget, table.rgPlace, table.nPlacesMax * sizeof(Place));
    Free(table.budget, table.rgBucket, table.nBuckets * sizeof(Bucket));
    FreeKnown(table.known, table.budget);
}

Host *AddHost(Table &table, const Key &key, const QIVEN_RECEIVED &received) {
    const bool blSpace = HasSpace(table);
    table.blFull = !blSpace || (table.blFull && !HasAmpleSpace(table));
    if (table.blFull) ++table.ullLeftOut;
    if (!blSpace && !MakeSpace(table, received.ullMonotonicUs)) return nullptr;
    void *p = ReservePlace(table) ? Allocate(table.budget, sizeof(Host)) : nullptr;
    if (p == nullptr) {
        ++table.ullNoMemory;
        return nullptr;
    }
    auto *pHost = new (p) Host;
    pHost->ullHash = key.ullHash;
    pHost->cbKey = key.cb;
    memcpy(pHost->rgchKey, key.rgch, key.cb);
    const uint64_t ullSays = SipHash(table.key, table.packed.rgb.data(), table.packed.cbDescription);
    pHost->shown.ulHost = table.ulLast + 1;
    if (!SetRecord(table, *pHost, received) || !AddAddress(table, *pHost, received, ullSays)) {
        FreeHost(table, pHost);
        ++table.ullNoMemory;
        return nullptr;
    }
    pHost->shown.cbSize = sizeof pHost->shown;
    ++table.ulLast;
    pHost->shown.ullFirstUs = received.ullMonotonicUs;
    pHost->shown.llFirstUnixUs = received.llUnixUs;
    pHost->ulFirstRound = table.ulRound;
    pHost->blDoubtful = table.blFull;
    if (table.nHosts >= table.nBuckets) Resize(table, table.nBuckets * 2);
    PutIn(table, *pHost);
    NoteHeard(table, *pHost, received.ullMonotonicUs, received.llUnixUs);
    Tell(table, *pHost, kToldAppeared, received.ullMonotonicUs);
    return pHost;
}

bool SetRecord(Table &table, Host &host, const QIVEN_RECEIVED &received) {
    const Packed &packed = table.packed;
    auto *pb = static_cast<unsigned char *>(Allocate(table.budget, packed.cb));
    if (pb == nullptr) return false;
    memcpy(pb, packed.rgb.data(), packed.cb);
    // What the caller was told last is kept until it is told again.
    const bool blKeep =
        host.pbWas == nullptr && (host.uTell & kToldAppeared) == 0 && host.pbRecord != nullptr;
    if (blKeep) {
        host.pbWas = host.pbRecord;
        host.cbWas = host.cbRecord;
    } else {
        Free(table.budget, host.pbRecord, host.cbRecord);
    }
    host.pbRecord = pb;
    host.cbRecord = static_cast<uint32_t>(packed.cb);
    host.cbDescription = static_cast<uint32_t>(packed.cbDescription);
    host.ullSays = SipHash(table.key, pb, packed.cbDescription);
    host.ullChangedUs = received.ullMonotonicUs;
    return true;
}

void NoteHeard(Table &table, Host &host, uint64_t ullMonotonicUs, int64_t llUnixUs) {
    ++host.shown.ullAnswers;
    host.shown.ullLastUs = std::max(host.shown.ullLastUs, ullMonotonicUs);
    host.shown.llLastUnixUs = llUnixUs;
    host.ulHeardRound = table.ulRound;
    if (!host.blConfirmed && table.ulRound != host.ulFirstRound) Confirm(table, host);
    if (table.pLoudest == &host) return;
    Unlink(table, host);
    LinkLoudest(table, host);
}

void Tell(Table &table, Host &host, uint8_t uTell, uint64_t ullNowUs) {
    if (host.blDoubtful) return;
    host.uTell |= uTell;
    const bool blHold = host.uTell == kToldChanged && ullNowUs < host.ullToldUs + table.ullChangeUs;
    if (host.node.pIn == &table.held && !blHold) TakeOut(host.node);
    PutOnce(blHold ? table.held : QueueOf(table, host), host.node, ullNowUs);
}

void Vanish(Table &table, Host &host, uint64_t ullNowUs) {
    Host **pp = BucketOf(table, host.ullHash);
    while (*pp != &host)
        pp = &(*pp)->pNextInBucket;
    *pp = host.pNextInBucket;
    EndConflicts(table, host);
    Unlink(table, host);
    PlaceFrom(table, host.shown.ulHost)->pHost = nullptr;
    --table.nHosts;
    if (IsUntold(host)) {
        FreeHost(table, &host);
        return;
    }
    host.uTell = 0;
    TakeOut(host.node);
    Tell(table, host, kToldVanished, ullNowUs);
}

void FreeHost(Table &table, Host *pHost) {
    if (pHost == nullptr) return;
    TakeOut(pHost->node);
    Free(table.budget, pHost->pbRecord, pHost->cbRecord);
    Free(table.budget, pHost->pbWas, pHost->cbWas);
    Free(table.budget, pHost->rgAddress, pHost->nCapacity * kAddressSize);
    Free(table.budget, pHost, sizeof *pHost);
}

void VanishSilent(Table &table, uint64_t ullNowUs, unsigned nMost) {
    for (; nMost > 0 && SilentDue(table) <= ullNowUs; --nMost)
        Vanish(table, *table.pQuietest, ullNowUs);
}

void ReleaseHeld(Table &table, uint64_t ullNowUs) {
    while (table.held.pFirst != nullptr && table.held.pFirst->ullSinceUs + table.ullChangeUs <= ullNowUs) {
        Node &node = *table.held.pFirst;
        TakeOut(node);
        PutLast(table.news, node, ullNowUs);
    }
}

uint64_t DueOf(const Table &table) {
    uint64_t ullDueUs = SilentDue(table);
    if (table.held.pFirst != nullptr)
        ullDueUs = std::min(ullDueUs, table.held.pFirst->ullSinceUs + table.ullChangeUs);
    return ullDueUs;
}

Host *HostAfter(const Table &table, uint32_t ulHost) {
    if (ulHost == UINT32_MAX) return nullptr;
    const Place *pEnd = table.rgPlace + table.nPlaces;
    for (const Place *p = PlaceFrom(table, ulHost + 1); p != pEnd; ++p) {
        if (p->pHost != nullptr) return p->pHost;
    }
    return nullptr;
}

Host *FindHost(const Table &table, uint32_t ulHost) {
    const Place *p = PlaceFrom(table, ulHost);
    return p != table.rgPlace + table.nPlaces && p->ulHost == ulHost ? p->pHost : nullptr;
}

const QIVEN_WATCH_HOST *Show(const Table &table, Host &host, nasinfo &record) {
    // Addresses that the host no longer answers from are gone.
    for (uint32_t i = host.shown.nAddresses; table.ullVanishUs > 0 && i-- > 0;) {
        const bool blOld = host.rgAddress[i].ullLastUs + table.ullVanishUs < host.shown.ullLastUs;
        if (blOld) RemoveAddress(host, i);
    }
    Unpack(host.pbRecord, host.cbRecord, record);
    host.shown.rgAddress = host.rgAddress;
    host.shown.pnasInfo = &record;
    return &host.shown;
}

uint64_t MemoryOf(const Table &table) {
    return table.budget.cbUsed;
}

}  // namespace qiven::watch
