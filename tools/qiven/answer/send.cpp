#include "answer/send.h"

#include <qiven/udp.h>

#include <new>

#include "fields.h"
#include "format.h"
#include "interface_list.h"
#include "messages.h"
#include "packet_buffer.h"

namespace qiven::answer {

namespace {

constexpr Milliseconds kFreshFor = 1000;

// Renews the list of interfaces if it is too old. The result says why that failed, or is empty.
std::string Refresh(Sender &sender, Milliseconds now) {
    if (sender.blFresh && now - sender.read < kFreshFor) return {};
    sender.table = {};
    messages::TakeLast();
    sender.nListed = QIVENIfaceInit(sender.pLog, sender.table.data(), QIVEN_IFACE_MAX);
    sender.read = now;
    sender.failure = messages::TakeLast();
    if (!interface_list::IsFailure(sender.failure)) sender.failure.clear();
    sender.blFresh = sender.nListed >= 0 && sender.failure.empty();
    if (sender.nListed >= 0) return {};
    return "cannot list the interfaces: " +
           (sender.failure.empty() ? "/proc/net/dev cannot be read" : sender.failure);
}

void SetMac(QIVEN_SEND &send, const unsigned char (&rgMac)[6]) {
    std::array<char, sizeof nasinfo::szMacAddr> szMac{};
    const size_t cbMac = fields::MacText(rgMac).copy(szMac.data(), szMac.size() - 1);
    QIVENSendPktIDSet(nullptr, &send, PKT_ID_MAC_ADDR, szMac.data(), static_cast<int>(cbMac));
}

// Builds the packet, sealed if there is a searcher; 0 if that fails. The key of the searcher is not added to
// the library's key store, which a flood of keys would fill.
int Build(PacketBuffer &packet, QIVEN_SEND &send, const Sender &sender, const Searcher *pSearcher) {
    if (pSearcher == nullptr) return QIVENPacketWrite(sender.pLog, &packet.pb, &packet.cbCapacity, &send);
    QIVENSendPktIDSet(nullptr, &send, PKT_ID_PROCESS_ID, &sender.ulProcessID, sizeof sender.ulProcessID);
    QIVENSendPktIDSet(nullptr, &send, PKT_ID_PEER_PROCESS_ID, &pSearcher->ulProcessID, sizeof(uint32_t));
    char *szPacket = reinterpret_cast<char *>(packet.pb);
    const int cbPacket = QIVENPacketWriteEncrypted(sender.pLog, &szPacket, &packet.cbCapacity, &send,
                                                   pSearcher->szKeyHex.data());
    packet.pb = reinterpret_cast<unsigned char *>(szPacket);
    return cbPacket;
}

bool SendOn(const QIVEN_NETIF &netIf, const Sender &sender, const Announcement &announcement,
            const Searcher *pSearcher) {
    nasinfo record = announcement.record;
    QIVEN_SEND send{};
    send.pnasInfo = &record;
    for (const uint32_t ulPktId : announcement.ids)
        QIVENSendPktIDAdd(nullptr, &send, ulPktId, 0U);
    QIVENSendPktIDSet(nullptr, &send, PKT_ID_IP, &netIf.ulIP, sizeof netIf.ulIP);
    QIVENSendPktIDSet(nullptr, &send, PKT_ID_ADDR_13, &netIf.ulMask, sizeof netIf.ulMask);
    SetMac(send, netIf.rgMac);

    PacketBuffer packet;
    if (packet.pb == nullptr) throw std::bad_alloc();
    messages::TakeLast();
    const int cbPacket = Build(packet, send, sender, pSearcher);
    const QIVEN_CONN broadcast{"255.255.255.255", QIVEN_PORT, 0, nullptr, nullptr};
    return cbPacket > 0 && QIVENUDPSend(sender.pLog, packet.pb, cbPacket, &broadcast, &netIf, 1) == cbPacket;
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
        if (SendOn(netIf, sender, announcement, pSearcher)) continue;
        const std::string reason = messages::TakeLast();
        trouble = fmt::format("cannot answer on {}: {}", netIf.szIfName,
                              reason.empty() ? "the packet cannot be built" : reason);
        sender.blFresh = false;  // it may be gone, or have another address
    }
    if (nActive == 0) {
        trouble = "cannot answer: no interface has an address";
        if (!sender.failure.empty()) trouble += "; the last failure: " + sender.failure;
        sender.blFresh = false;
    }
    return trouble;
}

}  // namespace qiven::answer
