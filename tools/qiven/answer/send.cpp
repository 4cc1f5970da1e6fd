#include "answer/send.h"

#include <qiven/udp.h>

#include <cerrno>
#include <cstdlib>
#include <new>

#include "fields.h"
#include "format.h"
#include "messages.h"

namespace qiven::answer {

namespace {

constexpr Milliseconds kFreshFor = 1000;

// Lists the interfaces when it is time to; the result says why that was not possible.
std::string Refresh(Sender &sender, Milliseconds now) {
    if (sender.blFresh && now - sender.read < kFreshFor) return {};
    sender.table = {};
    messages::TakeLast();
    sender.nListed = QIVENIfaceInit(sender.pLog, sender.table.data(), QIVEN_IFACE_MAX);
    sender.read = now;
    sender.failure = messages::TakeLast();
    // A file that is not there, or an interface without an address, is not a failure.
    static_assert(ENOENT == 2 && EADDRNOTAVAIL == 99);
    if (sender.failure.ends_with("error:(2)") || sender.failure.ends_with("error:(99)"))
        sender.failure.clear();
    sender.blFresh = sender.nListed >= 0 && sender.failure.empty();
    if (sender.nListed >= 0) return {};
    return "cannot list the interfaces: " +
           (sender.failure.empty() ? "/proc/net/dev cannot be read" : sender.failure);
}

struct Packet {
    int cbCapacity = QIVEN_PACKET_MAX;
    unsigned char *pb = static_cast<unsigned char *>(malloc(QIVEN_PACKET_MAX));

    Packet() {
        if (pb == nullptr) throw std::bad_alloc();
    }
    ~Packet() { free(pb); }
    Packet(const Packet &) = delete;
    Packet &operator=(const Packet &) = delete;
};

void SetMac(QIVEN_SEND &send, const unsigned char (&rgMac)[6]) {
    std::array<char, sizeof nasinfo::szMacAddr> szMac{};
    const auto end = fmt::format_to_n(szMac.data(), szMac.size() - 1, "{:02x}", fmt::join(rgMac, ":"));
    QIVENSendPktIDSet(nullptr, &send, kIdMac, szMac.data(), static_cast<int>(end.size));
}

// Builds the packet, sealed if there is a searcher; 0 if that fails. The searcher's key does not go into the
// library's store of keys, which a flood of keys would fill.
int Build(Packet &packet, QIVEN_SEND &send, const Sender &sender, const Searcher *pSearcher) {
    if (pSearcher == nullptr) return QIVENPacketWrite(sender.pLog, &packet.pb, &packet.cbCapacity, &send);
    QIVENSendPktIDSet(nullptr, &send, kIdProcess, &sender.ulProcessID, sizeof sender.ulProcessID);
    QIVENSendPktIDSet(nullptr, &send, kIdPeerProcess, &pSearcher->ulProcessID, sizeof(uint32_t));
    char *szPacket = reinterpret_cast<char *>(packet.pb);
    const int cbPacket = QIVENPacketWriteEncrypted(sender.pLog, &szPacket, &packet.cbCapacity, &send,
                                                   pSearcher->szKeyHex.data());
    packet.pb = reinterpret_cast<unsigned char *>(szPacket);
    return cbPacket;
}

bool SendBy(const QIVEN_NETIF &netIf, const Sender &sender, const Announcement &announcement,
            const Searcher *pSearcher) {
    nasinfo record = announcement.record;
    QIVEN_SEND send{};
    send.pnasInfo = &record;
    for (const uint32_t ulPktId : announcement.ids)
        QIVENSendPktIDAdd(nullptr, &send, ulPktId, 0U);
    QIVENSendPktIDSet(nullptr, &send, kIdAddress, &netIf.ulIP, sizeof netIf.ulIP);
    QIVENSendPktIDSet(nullptr, &send, kIdMask, &netIf.ulMask, sizeof netIf.ulMask);
    SetMac(send, netIf.rgMac);

    Packet packet;
    messages::TakeLast();
    const int cbPacket = Build(packet, send, sender, pSearcher);
    const QIVEN_CONN everybody{"255.255.255.255", QIVEN_PORT, 0, nullptr, nullptr};
    return cbPacket > 0 && QIVENUDPSend(sender.pLog, packet.pb, cbPacket, &everybody, &netIf, 1) == cbPacket;
}

}  // namespace

std::string Outlets(Sender &sender, Milliseconds now) {
    const std::string trouble = Refresh(sender, now);
    if (!trouble.empty()) return fmt::format("no interface ({})", trouble);
    std::string outlets;
    for (int i = 0; i < sender.nListed; ++i) {
        const QIVEN_NETIF &netIf = sender.table[static_cast<size_t>(i)];
        if (netIf.blActive == 0) continue;
        outlets +=
            fmt::format("{}{} {}", outlets.empty() ? "" : ", ", netIf.szIfName, fields::Dotted(netIf.ulIP));
    }
    return outlets.empty() ? "no interface (none has an address)" : outlets;
}

std::string Send(Sender &sender, const Announcement &announcement, const Searcher *pSearcher,
                 Milliseconds now) {
    std::string trouble = Refresh(sender, now);
    if (!trouble.empty()) return trouble;
    int nActive = 0;
    for (int i = 0; i < sender.nListed; ++i) {
        const QIVEN_NETIF &netIf = sender.table[static_cast<size_t>(i)];
        if (netIf.blActive == 0) continue;
        ++nActive;
        if (SendBy(netIf, sender, announcement, pSearcher)) continue;
        const std::string reason = messages::TakeLast();
        trouble = fmt::format("no answer by {}: {}", netIf.szIfName,
                              reason.empty() ? "the packet cannot be built" : reason);
        sender.blFresh = false;  // perhaps it is gone, or has another address
    }
    if (nActive == 0) {
        trouble = "no interface has an address: nobody was answered";
        if (!sender.failure.empty()) trouble += "; the last failure: " + sender.failure;
        sender.blFresh = false;
    }
    return trouble;
}

}  // namespace qiven::answer
