#include "find/host_table.h"

#include <sys/random.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "fields.h"

namespace qiven::find {

namespace {

// Bounds the addresses that forged answers can add to one host.
constexpr size_t kInterfacesMax = 64;

// A stretch of the record that is not zero; its bytes follow. A record of 12 KB mostly packs into 200 bytes.
struct Stretch {
    uint16_t usOffset, cbLength;
};

std::string Pack(const nasinfo &record) {
    std::string packed;
    const auto *pRecord = reinterpret_cast<const char *>(&record);
    const char *pEnd = pRecord + sizeof record;
    const auto isSet = [](char c) { return c != 0; };
    for (const char *pFrom = std::find_if(pRecord, pEnd, isSet); pFrom != pEnd;) {
        const char *pTo = std::find(pFrom, pEnd, '\0');
        const Stretch stretch{static_cast<uint16_t>(pFrom - pRecord), static_cast<uint16_t>(pTo - pFrom)};
        packed.append(reinterpret_cast<const char *>(&stretch), sizeof stretch);
        packed.append(pFrom, pTo);
        pFrom = std::find_if(pTo, pEnd, isSet);
    }
    packed.shrink_to_fit();
    return packed;
}

std::string KeyOf(const nasinfo &record) {
    const std::string ident = fields::Text(record, *fields::ByName("ident"));
    if (!ident.empty()) return "i" + ident;
    const std::string mac = fields::Text(record, *fields::ByName("mac"));
    if (!mac.empty()) return "m" + mac;
    return "n" + fields::Text(record, *fields::ByName("name")) + "\n" + fields::Dotted(record.ulIP);
}

// The record without the fields that differ between interfaces and queries although the host has not changed.
nasinfo Description(nasinfo record) {
    for (const fields::Field &field : fields::All()) {
        if (field.kind == fields::Kind::kAddress) fields::SetNumber(record, field, 0);
    }
    memset(record.szMacAddr, 0, sizeof record.szMacAddr);
    memset(record.szPubKeyHex, 0, sizeof record.szPubKeyHex);
    record.ulProcessID = 0;
    record.ulPeerProcessID = 0;
    return record;
}

// Overhead of the allocator for each block.
constexpr size_t kBlock = 16;

size_t SizeOf(const std::string &text) {
    const bool blOwnBlock = text.capacity() > std::string().capacity();
    return blOwnBlock ? text.capacity() + 1 + kBlock : 0;
}

template <typename T>
size_t SizeOf(const std::vector<T> &list) {
    return list.capacity() == 0 ? 0 : list.capacity() * sizeof(T) + kBlock;
}

size_t SizeOf(const std::string &key, const Host &host) {
    constexpr size_t kNode = sizeof(Table::value_type) + 4 * sizeof(void *) + kBlock;
    constexpr size_t kPlace = 2 * sizeof(Table::iterator);
    size_t cb =
        kNode + kPlace + SizeOf(key) + SizeOf(host.packed) + SizeOf(host.addresses) + SizeOf(host.macs);
    for (const std::string &mac : host.macs)
        cb += SizeOf(mac);
    return cb;
}

void Count(Hosts &hosts, Table::iterator at) {
    Host &host = at->second;
    const size_t cb = SizeOf(at->first, host);
    hosts.cbCounted = hosts.cbCounted - host.cbCounted + cb;
    host.cbCounted = cb;
}

// A simple generator is enough: the senders cannot see its numbers, which only have to differ between runs.
size_t Draw(Hosts &hosts) {
    constexpr uint32_t kFactor = 1664525;
    constexpr uint32_t kStep = 1013904223;
    uint32_t ulSeed = 0;
    if (hosts.ulRandom == 0 && getrandom(&ulSeed, sizeof ulSeed, GRND_NONBLOCK) > 0) hosts.ulRandom = ulSeed;
    hosts.ulRandom = hosts.ulRandom * kFactor + kStep;
    return (uint64_t{hosts.ulRandom} * hosts.places.size()) >> 32;
}

bool IsFull(const Hosts &hosts, size_t nMore) {
    return hosts.byKey.size() + nMore > kHostsMax || hosts.cbCounted >= kBytesMax;
}

// Whether there is space for nMore new hosts, or for more data of the given host.
bool MakeSpace(Hosts &hosts, size_t nMore, const Host *pHost) {
    constexpr unsigned int kDraws = 16;
    unsigned int nDrawn = 0;
    while (IsFull(hosts, nMore)) {
        hosts.blWasFull = true;
        if (hosts.places.empty() || nDrawn++ == kDraws) return false;
        const Host &host = hosts.places[Draw(hosts)]->second;
        if (host.blConfirmed || host.blHeld || &host == pHost) continue;
        Remove(hosts, host);
        nDrawn = 0;
    }
    return true;
}

// Adds the interface from which the host answered; true if its address is new.
bool AddInterface(Hosts &hosts, Host &host, const nasinfo &record) {
    std::string mac = fields::Text(record, *fields::ByName("mac"));
    const bool blKnownMac = std::find(host.macs.begin(), host.macs.end(), mac) != host.macs.end();
    if (!mac.empty() && !blKnownMac && host.macs.size() < kInterfacesMax && MakeSpace(hosts, 0, &host))
        host.macs.push_back(std::move(mac));
    if (record.ulIP == 0) return false;
    const auto at =
        std::lower_bound(host.addresses.begin(), host.addresses.end(), record.ulIP,
                         [](const HeardAddress &address, uint32_t ulIP) { return address.ulIP < ulIP; });
    if (at != host.addresses.end() && at->ulIP == record.ulIP) {
        at->heard = host.heard;
        return false;
    }
    if (host.addresses.size() >= kInterfacesMax || !MakeSpace(hosts, 0, &host)) return false;
    host.addresses.insert(at, {record.ulIP, host.heard});
    return true;
}

void NoteAnswer(Host &host, const nasinfo &record, const Context &context) {
    ++host.ullAnswers;
    host.blSealed =
        host.blSealed || (context.ulOwnProcessID != 0 && record.ulPeerProcessID == context.ulOwnProcessID);
    host.blConfirmed = host.blConfirmed || host.uRound != context.uRound;
    host.heard = Clock::now();
    host.lastSeen = WallClock::now();
}

// Leaves the table unchanged if an allocation fails.
Table::iterator Insert(Hosts &hosts, std::string key, Host host) {
    constexpr size_t kFirst = 64;
    if (hosts.places.size() == hosts.places.capacity())
        hosts.places.reserve(std::max(kFirst, 2 * hosts.places.size()));
    const Table::iterator at = hosts.byKey.emplace(std::move(key), std::move(host)).first;
    at->second.ullNumber = hosts.ullNext++;
    at->second.uPlace = hosts.places.size();
    hosts.places.push_back(at);
    return at;
}

Heard AddNew(Hosts &hosts, std::string key, const nasinfo &record, const Context &context, Host **ppHost) {
    const bool blFull = IsFull(hosts, 1);
    if (!MakeSpace(hosts, 1, nullptr)) return Heard::kLeftOut;
    Host host;
    host.uRound = context.uRound;
    NoteAnswer(host, record, context);
    host.firstSeen = host.lastSeen;
    host.packed = Pack(record);
    host.blDoubtful = blFull;
    const Table::iterator at = Insert(hosts, std::move(key), std::move(host));
    *ppHost = &at->second;
    AddInterface(hosts, at->second, record);
    Count(hosts, at);
    return blFull ? Heard::kDoubtful : Heard::kNew;
}

Heard AddKnown(Hosts &hosts, Table::iterator at, const nasinfo &record, const Context &context) {
    Host &host = at->second;
    NoteAnswer(host, record, context);
    const bool blNewAddress = AddInterface(hosts, host, record);
    const bool blSame = Pack(Description(Unpack(host))) == Pack(Description(record));
    if (!blSame && MakeSpace(hosts, 0, &host)) host.packed = Pack(record);
    Count(hosts, at);
    if (host.blDoubtful) {
        host.blDoubtful = !host.blConfirmed;
        return host.blDoubtful ? Heard::kDoubtful : Heard::kNew;
    }
    return blSame && !blNewAddress ? Heard::kAgain : Heard::kChanged;
}

}  // namespace

nasinfo Unpack(const Host &host) {
    nasinfo record{};
    const char *pFrom = host.packed.data();
    const char *pEnd = pFrom + host.packed.size();
    while (pFrom != pEnd) {
        Stretch stretch;
        memcpy(&stretch, pFrom, sizeof stretch);
        memcpy(reinterpret_cast<char *>(&record) + stretch.usOffset, pFrom + sizeof stretch,
               stretch.cbLength);
        pFrom += sizeof stretch + stretch.cbLength;
    }
    return record;
}

Heard Add(Hosts &hosts, const nasinfo &record, const Context &context, Host **ppHost) {
    std::string key = KeyOf(record);
    const Table::iterator at = hosts.byKey.find(key);
    if (at == hosts.byKey.end()) return AddNew(hosts, std::move(key), record, context, ppHost);
    *ppHost = &at->second;
    return AddKnown(hosts, at, record, context);
}

void Remove(Hosts &hosts, const Host &host) {
    const size_t uPlace = host.uPlace;
    hosts.cbCounted -= host.cbCounted;
    hosts.byKey.erase(hosts.places[uPlace]);
    hosts.places[uPlace] = hosts.places.back();
    hosts.places.pop_back();
    if (uPlace < hosts.places.size()) hosts.places[uPlace]->second.uPlace = uPlace;
}

void ForgetAddresses(Hosts &hosts, Host &host, Clock::time_point since) {
    if (std::erase_if(host.addresses,
                      [since](const HeardAddress &address) { return address.heard < since; }) == 0)
        return;
    host.addresses.shrink_to_fit();
    Count(hosts, hosts.places[host.uPlace]);
}

std::vector<const Host *> InOrder(const Hosts &hosts) {
    std::vector<const Host *> order;
    for (const auto &entry : hosts.byKey)
        order.push_back(&entry.second);
    std::sort(order.begin(), order.end(),
              [](const Host *pA, const Host *pB) { return pA->ullNumber < pB->ullNumber; });
    return order;
}

}  // namespace qiven::find
