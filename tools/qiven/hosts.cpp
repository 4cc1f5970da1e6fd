#include "hosts.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "fields.h"

namespace qiven::find {

namespace {

// What a forged answer may add to one host.
constexpr size_t kCardsMax = 64;

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
    return packed;
}

std::string KeyOf(const nasinfo &record) {
    const std::string ident = fields::Text(record, *fields::ByName("ident"));
    if (!ident.empty()) return "i" + ident;
    const std::string mac = fields::Text(record, *fields::ByName("mac"));
    if (!mac.empty()) return "m" + mac;
    return "n" + fields::Text(record, *fields::ByName("name")) + "\n" + fields::Dotted(record.ulIP);
}

// The record without what differs from card to card and from query to query of one unchanged host.
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

// Notes the card that an answer came from; true when it is a new address of the host.
bool AddCard(Host &host, const nasinfo &record, Clock::time_point now) {
    const std::string mac = fields::Text(record, *fields::ByName("mac"));
    const bool blKnownMac = std::find(host.macs.begin(), host.macs.end(), mac) != host.macs.end();
    if (!mac.empty() && !blKnownMac && host.macs.size() < kCardsMax) host.macs.push_back(mac);
    if (record.ulIP == 0) return false;
    if (host.addresses.size() >= kCardsMax && host.addresses.count(record.ulIP) == 0) return false;
    return host.addresses.insert_or_assign(record.ulIP, now).second;
}

void Store(Hosts &hosts, Host &host, const nasinfo &record) {
    hosts.cbPacked -= host.packed.size();
    host.packed = Pack(record);
    hosts.cbPacked += host.packed.size();
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

Heard Add(Hosts &hosts, const nasinfo &record, uint32_t ulOwnProcessID, const Host **ppHost) {
    const Clock::time_point now = Clock::now();
    const std::string key = KeyOf(record);
    const bool blKnown = hosts.byKey.count(key) != 0;
    if (!blKnown && (hosts.byKey.size() >= kHostsMax || hosts.cbPacked >= kBytesMax)) {
        hosts.blFull = true;
        return Heard::kLeftOut;
    }
    Host &host = hosts.byKey[key];
    *ppHost = &host;
    const bool blNewAddress = AddCard(host, record, now);
    ++host.ullAnswers;
    host.blSealed = host.blSealed || (ulOwnProcessID != 0 && record.ulPeerProcessID == ulOwnProcessID);
    host.heard = now;
    host.lastSeen = WallClock::now();
    if (!blKnown) {
        host.ullNumber = hosts.ullNext++;
        host.firstSeen = host.lastSeen;
        Store(hosts, host, record);
        return Heard::kNew;
    }
    const bool blSame = Pack(Description(Unpack(host))) == Pack(Description(record));
    if (!blSame && hosts.cbPacked < kBytesMax) Store(hosts, host, record);
    return blSame && !blNewAddress ? Heard::kAgain : Heard::kChanged;
}

std::vector<Host> TakeSilent(Hosts &hosts, Clock::time_point since) {
    std::vector<Host> silent;
    for (auto it = hosts.byKey.begin(); it != hosts.byKey.end();) {
        Host &host = it->second;
        if (host.heard < since) {
            hosts.cbPacked -= host.packed.size();
            silent.push_back(std::move(host));
            it = hosts.byKey.erase(it);
            continue;
        }
        std::erase_if(host.addresses, [since](const auto &entry) { return entry.second < since; });
        ++it;
    }
    std::sort(silent.begin(), silent.end(),
              [](const Host &a, const Host &b) { return a.ullNumber < b.ullNumber; });
    return silent;
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
