// Which answers are one host, and which are two machines under one identifier. Nothing in an answer proves
// who sends it: a host with two interfaces and two machines with one identifier look alike but for what they
// say. Who says the same is one host; who contradicts each other at the same time are two.
#include <algorithm>
#include <array>
#include <cstring>

#include "clock.h"
#include "hosts.h"

namespace qiven::watch {

namespace {

// Answers no further apart belong to the same query.
constexpr uint64_t kTogether = kSecond;
// An answer may have been on its way when another interface of its host already said something new.
constexpr uint64_t kLate = kSecond / 4;
constexpr unsigned kSameKeyMax = 8;

struct Rows {
    std::array<Host *, kSameKeyMax> rg{};
    unsigned n = 0;
};

size_t Append(char *pTo, char chKind, const char *sz, size_t cbSlot) {
    const size_t cb = strnlen(sz, cbSlot);
    *pTo = chKind;
    memcpy(pTo + 1, sz, cb);
    return 1 + cb;
}

bool IsSameSpeaker(const QIVEN_WATCH_ADDRESS &address, const QIVEN_RECEIVED &received) {
    return address.ulSource == received.ulSource &&
           strcmp(address.szMacAddr, received.pnasInfo->szMacAddr) == 0;
}

bool IsSameAddress(const QIVEN_WATCH_ADDRESS &address, const QIVEN_RECEIVED &received) {
    return address.ulIP == received.pnasInfo->ulIP && address.ulIfIndex == received.ulIfIndex &&
           IsSameSpeaker(address, received);
}

// The index of the first address that the test holds for; the number of addresses if there is none.
template <class Test>
uint32_t FindAddress(const Host &host, Test test) {
    uint32_t u = 0;
    while (u < host.shown.nAddresses && !test(host.rgAddress[u], host.rgSaying[u]))
        ++u;
    return u;
}

template <class Test>
bool HasAddress(const Host &host, Test test) {
    return FindAddress(host, test) < host.shown.nAddresses;
}

bool SaysSame(const Table &table, const Host &host) {
    const Packed &packed = table.packed;
    return host.cbDescription == packed.cbDescription &&
           memcmp(host.pbRecord, packed.rgb.data(), packed.cbDescription) == 0;
}

// Different processes at the same time are different machines, whatever they say.
bool IsOtherProcess(const Host &host, const QIVEN_RECEIVED &received) {
    const uint32_t ulProcessID = received.pnasInfo->ulProcessID;
    return FindAddress(host, [&](const auto &address, const Saying &saying) {
               return ulProcessID != 0 && saying.ulProcessID != 0 && saying.ulProcessID != ulProcessID &&
                      address.ullLastUs + kTogether >= received.ullMonotonicUs;
           }) < host.shown.nAddresses;
}

// Files the answer under an address of the host; true if that is new.
bool NoteAddress(Table &table, Host &host, const QIVEN_RECEIVED &received, uint64_t ullSays) {
    const uint32_t u = FindAddress(
        host, [&](const auto &address, const Saying &) { return IsSameAddress(address, received); });
    if (u < host.shown.nAddresses) {
        RefreshAddress(table, host, u, received, ullSays);
        return false;
    }
    if (AddAddress(table, host, received, ullSays)) return true;
    ++table.ullNoMemory;
    return false;
}

void Conflict(Table &table, Host &host, Host &other, uint64_t ullNowUs) {
    if (host.shown.ulConflict != 0 && other.shown.ulConflict != 0) return;
    if (host.shown.ulConflict == 0) host.shown.ulConflict = other.shown.ulHost;
    if (other.shown.ulConflict == 0) other.shown.ulConflict = host.shown.ulHost;
    Tell(table, host, kToldConflict, ullNowUs);
}

// Both were heard while the other was there already.
void FindConflicts(Table &table, const Rows &rows, Host &host, uint64_t ullNowUs) {
    for (unsigned i = 0; i < rows.n; ++i) {
        Host &other = *rows.rg[i];
        if (&other == &host || other.ullSays == host.ullSays) continue;
        const QIVEN_WATCH_HOST &a = host.shown;
        const QIVEN_WATCH_HOST &b = other.shown;
        if (a.ullLastUs > b.ullFirstUs && b.ullLastUs > a.ullFirstUs) Conflict(table, host, other, ullNowUs);
    }
}

Heard Change(Table &table, Host &host, const QIVEN_RECEIVED &received, uint32_t ulChanged) {
    host.ulChanged |= ulChanged;
    Tell(table, host, kToldChanged, received.ullMonotonicUs);
    return Heard::kChanged;
}

// The answer agrees with what the host says.
Heard Agree(Table &table, Host &host, const QIVEN_RECEIVED &received) {
    const bool blNew = NoteAddress(table, host, received, host.ullSays);
    NoteHeard(table, host, received.ullMonotonicUs, received.llUnixUs);
    return blNew ? Change(table, host, received, QIVEN_CHANGED_ADDRESS) : Heard::kAgain;
}

// The host says something new.
Heard Renew(Table &table, Host &host, const QIVEN_RECEIVED &received, uint64_t ullSays) {
    const bool blNew = NoteAddress(table, host, received, ullSays);
    NoteHeard(table, host, received.ullMonotonicUs, received.llUnixUs);
    if (!SetRecord(table, host, received)) {
        ++table.ullNoMemory;
        return Heard::kAgain;
    }
    return Change(table, host, received, QIVEN_CHANGED_RECORD | (blNew ? QIVEN_CHANGED_ADDRESS : 0));
}

void RemoveSpeaker(Host &host, const QIVEN_RECEIVED &received) {
    for (uint32_t i = host.shown.nAddresses; i-- > 0;) {
        if (IsSameSpeaker(host.rgAddress[i], received)) RemoveAddress(host, i);
    }
}

// A host of its own beside those with the same key.
Heard AddBeside(Table &table, const Key &key, Rows &rows, const QIVEN_RECEIVED &received) {
    if (rows.n == kSameKeyMax) {
        const auto isQuieter = [](const Host *pA, const Host *pB) {
            return pA->shown.ullLastUs < pB->shown.ullLastUs;
        };
        Host **ppOldest = std::min_element(rows.rg.begin(), rows.rg.end(), isQuieter);
        if (!HasMissed(table, **ppOldest)) {
            ++table.ullLeftOut;
            return Heard::kLeftOut;
        }
        Vanish(table, **ppOldest, received.ullMonotonicUs);
        *ppOldest = rows.rg[--rows.n];
    }
    // Making space may take one of them away.
    const uint32_t nHosts = table.nHosts;
    Host *pNew = AddHost(table, key, received);
    if (pNew == nullptr || pNew->blDoubtful) return Heard::kLeftOut;
    if (table.nHosts != nHosts + 1) return Heard::kNew;
    for (unsigned i = 0; i < rows.n; ++i) {
        if (rows.rg[i]->shown.ullLastUs + kTogether >= received.ullMonotonicUs)
            Conflict(table, *pNew, *rows.rg[i], received.ullMonotonicUs);
    }
    return Heard::kNew;
}

Host *FindAgreeing(const Table &table, const Rows &rows, const QIVEN_RECEIVED &received) {
    for (unsigned i = 0; i < rows.n; ++i) {
        Host *pHost = rows.rg[i];
        if (SaysSame(table, *pHost) && !IsOtherProcess(*pHost, received)) return pHost;
    }
    return nullptr;
}

template <class Test>
Host *FindRow(const Rows &rows, Test test) {
    for (unsigned i = 0; i < rows.n; ++i) {
        Host *pHost = rows.rg[i];
        if (HasAddress(*pHost, test)) return pHost;
    }
    return nullptr;
}

// From a sender that spoke for this host before, and now says something else.
Heard Contradict(Table &table, const Key &key, Rows &rows, Host &host, const QIVEN_RECEIVED &received) {
    const uint64_t ullSays = SipHash(table.key, table.packed.rgb.data(), table.packed.cbDescription);
    Host *pAgreeing = FindAgreeing(table, rows, received);
    if (pAgreeing != nullptr && (host.shown.ulConflict == 0 || pAgreeing->shown.ulConflict == 0)) {
        RemoveSpeaker(host, received);
        if (host.shown.nAddresses == 0) Vanish(table, host, received.ullMonotonicUs);
        return Agree(table, *pAgreeing, received);
    }
    // Whoever keeps to its word while another one has changed the host's is a machine of its own.
    const bool blKeepsWord = HasAddress(host, [&](const auto &address, const Saying &saying) {
        return IsSameSpeaker(address, received) && saying.ullSays == ullSays;
    });
    const bool blOtherChanged = HasAddress(host, [&](const auto &address, const Saying &saying) {
        return !IsSameSpeaker(address, received) && saying.ullSays == host.ullSays;
    });
    if (!blKeepsWord || !blOtherChanged) return Renew(table, host, received, ullSays);
    if (host.ullChangedUs + kLate > received.ullMonotonicUs) {
        NoteHeard(table, host, received.ullMonotonicUs, received.llUnixUs);
        return Heard::kAgain;
    }
    RemoveSpeaker(host, received);
    return AddBeside(table, key, rows, received);
}

Heard FromStranger(Table &table, const Key &key, Rows &rows, const QIVEN_RECEIVED &received) {
    if (Host *pHost = FindAgreeing(table, rows, received); pHost != nullptr)
        return Agree(table, *pHost, received);
    // The one interface of a host that has got another address, and changed meanwhile.
    const char *szMac = received.pnasInfo->szMacAddr;
    Host *pHost = *szMac == '\0' ? nullptr : FindRow(rows, [szMac](const auto &address, const Saying &) {
        return strcmp(address.szMacAddr, szMac) == 0;
    });
    if (pHost != nullptr && pHost->shown.ullLastUs + kTogether < received.ullMonotonicUs) {
        const Packed &packed = table.packed;
        return Renew(table, *pHost, received, SipHash(table.key, packed.rgb.data(), packed.cbDescription));
    }
    return AddBeside(table, key, rows, received);
}

Rows RowsOf(const Table &table, uint64_t ullHash, const char *pchKey, uint8_t cbKey) {
    Rows rows;
    Host *pHost = table.rgBucket[ullHash & (table.nBuckets - 1)].pFirst;
    for (; pHost != nullptr && rows.n < kSameKeyMax; pHost = pHost->pNextInBucket) {
        if (pHost->ullHash == ullHash && pHost->cbKey == cbKey && memcmp(pHost->rgchKey, pchKey, cbKey) == 0)
            rows.rg[rows.n++] = pHost;
    }
    return rows;
}

}  // namespace

Key KeyOf(const Table &table, const nasinfo &record) {
    Key key;
    size_t cb = 0;
    if (record.szHostIdent[0] != '\0') {
        cb = Append(key.rgch, 'i', record.szHostIdent, sizeof record.szHostIdent);
    } else if (record.szMacAddr[0] != '\0') {
        cb = Append(key.rgch, 'm', record.szMacAddr, sizeof record.szMacAddr);
    } else {
        cb = Append(key.rgch, 'n', record.szHostName, sizeof record.szHostName - 1);
        memcpy(key.rgch + cb, &record.ulIP, sizeof record.ulIP);
        cb += sizeof record.ulIP;
    }
    key.cb = static_cast<uint8_t>(cb);
    key.ullHash = SipHash(table.key, key.rgch, cb);
    return key;
}

bool HearAgain(Table &table, const Datagram &datagram, uint64_t ullDatagram) {
    Host *pHost = FindHost(table, HostOf(table.known, ullDatagram));
    if (pHost == nullptr) return false;
    const uint32_t u = FindAddress(*pHost, [&](const auto &address, const Saying &saying) {
        return saying.ullDatagram == ullDatagram && saying.ullSays == pHost->ullSays &&
               address.ulSource == datagram.ulSource && address.ulIfIndex == datagram.ulIfIndex;
    });
    if (u == pHost->shown.nAddresses) return false;
    pHost->rgAddress[u].ullLastUs = datagram.ullArrivedUs;
    NoteHeard(table, *pHost, datagram.ullArrivedUs, datagram.llArrivedUnixUs);
    const Rows rows = RowsOf(table, pHost->ullHash, pHost->rgchKey, pHost->cbKey);
    if (rows.n > 1) FindConflicts(table, rows, *pHost, datagram.ullArrivedUs);
    return true;
}

Heard AddAnswer(Table &table, const QIVEN_RECEIVED &received, uint64_t ullDatagram) {
    const nasinfo &record = *received.pnasInfo;
    const Key key = KeyOf(table, record);
    const bool blSealed = (received.ulFlags & QIVEN_RECEIVED_SEALED) != 0;
    table.ullDatagram = blSealed ? 0 : ullDatagram;
    Pack(table.layout, record, blSealed ? nullptr : received.pbDatagram, received.cbDatagram, table.packed);
    Rows rows = RowsOf(table, key.ullHash, key.rgch, key.cb);
    if (rows.n == 0) {
        const Host *pNew = AddHost(table, key, received);
        return pNew != nullptr && !pNew->blDoubtful ? Heard::kNew : Heard::kLeftOut;
    }
    Host *pHost = FindRow(
        rows, [&received](const auto &address, const Saying &) { return IsSameSpeaker(address, received); });
    if (pHost == nullptr) return FromStranger(table, key, rows, received);
    if (!SaysSame(table, *pHost)) return Contradict(table, key, rows, *pHost, received);
    const Heard heard = Agree(table, *pHost, received);
    if (rows.n > 1) FindConflicts(table, rows, *pHost, received.ullMonotonicUs);
    return heard;
}

}  // namespace qiven::watch
