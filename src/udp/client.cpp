// The client: sends a request out of every active interface.
#include <qiven/keys.h>
#include <qiven/udp.h>

#include <sodium.h>

#include <cstdio>
#include <cstdlib>

#include "base/message.h"
#include "udp/address.h"

using qiven::base::Check;
using qiven::base::Error;
using namespace qiven::udp;

namespace {

// The output buffer of a call, for all interfaces. The packet writers may replace it with a larger one.
struct OutputPacket {
    int cbCapacity = QIVEN_PACKET_MAX;
    unsigned char *szBuffer = static_cast<unsigned char *>(calloc(1, QIVEN_PACKET_MAX));
    int cbLength = 0;

    OutputPacket() = default;
    ~OutputPacket() { free(szBuffer); }
    OutputPacket(const OutputPacket &) = delete;
    OutputPacket &operator=(const OutputPacket &) = delete;

    void WritePlain(const QIVEN_LOG *pLog, const QIVEN_SEND &send) {
        cbLength = QIVENPacketWrite(pLog, &szBuffer, &cbCapacity, &send);
    }
    void WriteSealed(const QIVEN_LOG *pLog, const QIVEN_SEND &send, const char *szKeyHex) {
        char *szText = reinterpret_cast<char *>(szBuffer);
        cbLength = QIVENPacketWriteEncrypted(pLog, &szText, &cbCapacity, &send, szKeyHex);
        szBuffer = reinterpret_cast<unsigned char *>(szText);
    }
};

void SetMacAddr(const QIVEN_LOG *pLog, QIVEN_SEND &send, const unsigned char (&rgMac)[6]) {
    char szMac[sizeof nasinfo::szMacAddr] = {};
    const int cbMac = snprintf(szMac, sizeof szMac, "%02x:%02x:%02x:%02x:%02x:%02x", rgMac[0], rgMac[1],
                               rgMac[2], rgMac[3], rgMac[4], rgMac[5]);
    QIVENSendPktIDSet(pLog, &send, PKT_ID_MAC_ADDR, szMac, cbMac);
}

void SetProcessID(const QIVEN_LOG *pLog, QIVEN_SEND &send) {
    const uint32_t ulProcessID = QIVENProcessGetID();
    QIVENSendPktIDSet(pLog, &send, PKT_ID_PROCESS_ID, &ulProcessID, sizeof ulProcessID);
}

bool AddOwnKey(const QIVEN_LOG *pLog, QIVEN_SEND &send) {
    const unsigned char *pPublicKey = QIVENProcessPublicKeyGet();
    if (pPublicKey == nullptr) {
        Error(pLog, kModule, "failed to add enc elements.\n");
        return false;
    }
    char szKeyHex[QIVEN_KEY_HEX_SIZE];
    sodium_bin2hex(szKeyHex, sizeof szKeyHex, pPublicKey, QIVEN_KEY_SIZE);
    QIVENSendPktIDSet(pLog, &send, PKT_ID_PUB_KEY_HEX, szKeyHex, QIVEN_KEY_HEX_SIZE - 1);
    SetProcessID(pLog, send);
    return true;
}

bool BuildSealed(const QIVEN_LOG *pLog, QIVEN_SEND &send, OutputPacket &packet) {
    const nasinfo &record = *send.pnasInfo;
    char szKeyHex[QIVEN_KEY_HEX_SIZE];
    if (QIVENGetKey(record.szHostIdent, record.ulPeerProcessID, szKeyHex) != 0) {
        Error(pLog, kModule, "fail to find key for %s+%08x.\n", record.szHostIdent, record.ulPeerProcessID);
        return false;
    }
    SetProcessID(pLog, send);
    packet.WriteSealed(pLog, send, szKeyHex);
    return true;
}

// Builds the packet: plain, plain with the key of this process, or sealed, depending on the record. False if
// it cannot be built.
bool Build(const QIVEN_LOG *pLog, QIVEN_SEND &send, OutputPacket &packet) {
    const bool blKeys = QIVENProcessKeyInited() != 0;
    const bool blQuery = send.pnasInfo->ulPktType == QIVEN_PKT_QUERY;
    if (blKeys && !blQuery && send.pnasInfo->ulPeerProcessID != 0) {
        if (!BuildSealed(pLog, send, packet)) return false;
    } else {
        if (blKeys && blQuery && !AddOwnKey(pLog, send)) return false;
        packet.WritePlain(pLog, send);
    }
    if (packet.cbLength == 0) Error(pLog, kModule, "fail to create output-packet content.\n");
    return packet.cbLength != 0;
}

// False if the packet cannot be built. A failed send is only reported.
bool SendByInterface(const QIVEN_CONN &conn, QIVEN_SEND &send, const QIVEN_NETIF &netIf,
                     OutputPacket &packet) {
    SetMacAddr(conn.pLog, send, netIf.rgMac);
    if (!Build(conn.pLog, send, packet)) return false;
    if (QIVENUDPSend(conn.pLog, packet.szBuffer, packet.cbLength, &conn, &netIf, 1) != packet.cbLength) {
        Error(conn.pLog, kModule, "UDPSend error. interface: %s\n", netIf.szIfName);
    }
    return true;
}

}  // namespace

int QIVENUDPClient(const QIVEN_CONN *pqivenConn, QIVEN_SEND *pqivenSend) {
    if (pqivenConn == nullptr) return -1;
    const QIVEN_LOG *pLog = pqivenConn->pLog;
    if (!Check(pLog, kModule, nullptr != pqivenSend, "NULL != pqivenSend")) return -1;
    if (!Check(pLog, kModule, nullptr != pqivenSend->pnasInfo, "((void *)0) != pqivenSend->pnasInfo"))
        return -1;
    if (!Check(pLog, kModule, 0 < pqivenSend->nPktID, "0 < pqivenSend->nPktID")) return -1;

    OutputPacket packet;
    if (packet.szBuffer == nullptr) return -1;
    QIVEN_NETIF rgNetIf[QIVEN_IFACE_MAX] = {};
    const int nNetIf = QIVENIfaceInit(pLog, rgNetIf, QIVEN_IFACE_MAX);
    if (nNetIf < 1) {
        Error(pLog, kModule, "get physical interface error or no interface\n");
        return -1;
    }
    Error(pLog, kModule, "QIVENIfaceInit number of interafce: %d\n", nNetIf);

    for (int i = 0; i < nNetIf; ++i) {
        if (pqivenConn->pfnCancel != nullptr && pqivenConn->pfnCancel() == 1) return -1;
        if (rgNetIf[i].blActive == 0) continue;
        if (!SendByInterface(*pqivenConn, *pqivenSend, rgNetIf[i], packet)) return -1;
    }
    // An unbound send does not read the interface record.
    QIVENUDPSend(pLog, packet.szBuffer, packet.cbLength, pqivenConn, &rgNetIf[0], 0);
    return 0;
}
