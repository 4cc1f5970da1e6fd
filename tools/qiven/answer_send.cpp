#include "answer_send.h"

#include <qiven/keys.h>
#include <qiven/udp.h>

#include <fmt/format.h>

#include <cstdlib>
#include <cstring>

#include "text.h"

namespace qiven::answer {

namespace {

constexpr limits::Milliseconds kCardsAge = 1000;

// The library's last word, for the one line that reports a failure.
std::string lastMessage;

int KeepMessage(const char *szMessage) {
    lastMessage = szMessage;
    while (!lastMessage.empty() && lastMessage.back() == '\n')
        lastMessage.pop_back();
    return 0;
}

const QIVEN_LOG kKeepMessage = {nullptr, {nullptr, KeepMessage, nullptr}};

bool ReadCards(Cards &cards, limits::Milliseconds now, std::string &trouble) {
    if (cards.blFresh && now - cards.read < kCardsAge) return true;
    cards.table = {};
    cards.nCards = QIVENIfaceInit(&kKeepMessage, cards.table.data(), QIVEN_IFACE_MAX);
    cards.read = now;
    cards.blFresh = cards.nCards >= 0;
    if (!cards.blFresh) trouble = "cannot list the interfaces: " + text::Escape(lastMessage);
    return cards.blFresh;
}

struct Packet {
    int cbCapacity = QIVEN_PACKET_MAX;
    unsigned char *pb = static_cast<unsigned char *>(malloc(QIVEN_PACKET_MAX));

    Packet() = default;
    ~Packet() { free(pb); }
    Packet(const Packet &) = delete;
    Packet &operator=(const Packet &) = delete;
};

// A stranger's key is in the store for one answer only: a flood of keys can neither fill the store nor push
// out one that is in use.
struct StoredKey {
    const char *szIdent;
    uint32_t ulProcessID;
    bool blStored;

    StoredKey(const char *szHostIdent, const Recipient *pRecipient)
        : szIdent(szHostIdent),
          ulProcessID(pRecipient != nullptr ? pRecipient->ulProcessID : 0),
          blStored(pRecipient != nullptr &&
                   QIVENAddKey(szIdent, ulProcessID, pRecipient->keyHex.c_str()) == 0) {}
    ~StoredKey() {
        if (blStored) QIVENRemoveKey(szIdent, ulProcessID);
    }
    StoredKey(const StoredKey &) = delete;
    StoredKey &operator=(const StoredKey &) = delete;
};

void SetMac(QIVEN_SEND &send, const unsigned char (&rgMac)[6]) {
    std::array<char, sizeof nasinfo::szMacAddr> szMac{};
    const auto end = fmt::format_to_n(szMac.data(), szMac.size() - 1, "{:02x}", fmt::join(rgMac, ":"));
    QIVENSendPktIDSet(nullptr, &send, kIdMac, szMac.data(), static_cast<int>(end.size));
}

// Builds the packet in the form that the recipient calls for; 0 when there is none.
int Build(Packet &packet, QIVEN_SEND &send, const Recipient *pRecipient) {
    if (pRecipient == nullptr) return QIVENPacketWrite(&kKeepMessage, &packet.pb, &packet.cbCapacity, &send);
    const uint32_t ulOwnID = QIVENProcessGetID();
    QIVENSendPktIDSet(nullptr, &send, kIdProcess, &ulOwnID, sizeof ulOwnID);
    QIVENSendPktIDSet(nullptr, &send, kIdPeerProcess, &pRecipient->ulProcessID, sizeof(uint32_t));
    char szKeyHex[QIVEN_KEY_HEX_SIZE];
    if (QIVENGetKey(send.pnasInfo->szHostIdent, pRecipient->ulProcessID, szKeyHex) != 0) {
        lastMessage = "the key could not be stored";
        return 0;
    }
    char *szPacket = reinterpret_cast<char *>(packet.pb);
    const int cbPacket =
        QIVENPacketWriteEncrypted(&kKeepMessage, &szPacket, &packet.cbCapacity, &send, szKeyHex);
    packet.pb = reinterpret_cast<unsigned char *>(szPacket);
    return cbPacket;
}

bool SendBy(const QIVEN_NETIF &card, const Announcement &announcement, const Recipient *pRecipient) {
    nasinfo record = announcement.record;
    QIVEN_SEND send{};
    send.pnasInfo = &record;
    for (const uint32_t ulPktId : announcement.ids)
        QIVENSendPktIDAdd(nullptr, &send, ulPktId, 0U);
    QIVENSendPktIDSet(nullptr, &send, kIdAddress, &card.ulIP, sizeof card.ulIP);
    QIVENSendPktIDSet(nullptr, &send, kIdMask, &card.ulMask, sizeof card.ulMask);
    SetMac(send, card.rgMac);

    Packet packet;
    if (packet.pb == nullptr) return false;
    const int cbPacket = Build(packet, send, pRecipient);
    const QIVEN_CONN everybody{"255.255.255.255", QIVEN_PORT, 0, nullptr, nullptr};
    return cbPacket > 0 && QIVENUDPSend(&kKeepMessage, packet.pb, cbPacket, &everybody, &card, 1) == cbPacket;
}

}  // namespace

int Send(Cards &cards, const Announcement &announcement, const Recipient *pRecipient,
         limits::Milliseconds now, std::string &trouble) {
    if (!ReadCards(cards, now, trouble)) return 0;
    const StoredKey stored(announcement.record.szHostIdent, pRecipient);
    int nActive = 0;
    int nSent = 0;
    for (int i = 0; i < cards.nCards; ++i) {
        const QIVEN_NETIF &card = cards.table[static_cast<size_t>(i)];
        if (card.blActive == 0) continue;
        ++nActive;
        if (SendBy(card, announcement, pRecipient)) {
            ++nSent;
            continue;
        }
        trouble = fmt::format("no answer by {}: {}", text::Escape(card.szIfName), text::Escape(lastMessage));
        cards.blFresh = false;  // perhaps it is gone, or has another address
    }
    if (nActive == 0) {
        trouble = "no interface has an address: nobody was answered";
        cards.blFresh = false;
    }
    return nSent;
}

}  // namespace qiven::answer
