// Arguments that no call accepts: the result and the condition that is reported, of one row each.
#include <qiven/qiven.h>
#include <gtest/gtest.h>

#include <functional>

#include "support/interpose.h"
#include "support/log_capture.h"
#include "support/sandbox.h"

namespace {

unsigned char g_rgb[64] = {4, 'n', 'a', 's', '1'};
nasinfo g_record;
uint32_t g_ulValue = 0;

int Send(uint32_t ulIP, const char *szTo, QIVEN_LOG *pLog) {
    QIVEN_CONN conn{{}, QIVEN_PORT, 0, nullptr, nullptr};
    memcpy(conn.szAddr, szTo, strnlen(szTo, sizeof conn.szAddr));
    QIVEN_NETIF netIf{};
    netIf.szIfName[0] = 'e';
    netIf.ulIP = ulIP;
    return QIVENUDPSend(pLog, g_rgb, 5, &conn, &netIf, 1);
}

TEST(Arguments, AreCheckedOneByOne) {
    sandbox::Enter();
    LogCapture capture;
    QIVEN_LOG *const pLog = capture.Record();
    QIVEN_SEND none{nullptr, 2, {0x01, 0xA4}}, empty{&g_record, 0, {}}, bad{&g_record, 1, {0x01}};
    const QIVEN_CONN conn{"127.0.0.1", QIVEN_PORT, 0, nullptr, pLog},
        wrong{"256.0.0.1", QIVEN_PORT, 0, nullptr, pLog};
    const QIVEN_RECV recv{};
    const QIVEN_NETIF netIf{};
    unsigned char *pNone = nullptr, *pBuffer = g_rgb;
    int cb = sizeof g_rgb, cbBelow = -1;
    const auto packet = [](const char *sz) { return Invalid("packet", sz); };
    const auto udp = [](const char *sz) { return Invalid("udp", sz); };
    const struct {
        std::function<int()> call;
        int iResult;
        std::string message;
    } rows[] = {
        {[&] { return QIVENPacketReadString(pLog, g_rgb, 5, g_rgb + 16, 8, 0, 0); }, 5, ""},
        {[&] { return QIVENPacketReadArray(pLog, g_rgb, 5, g_rgb + 16, 8, 0, 1); }, 5, ""},
        {[&] { return QIVENPacketReadString(pLog, g_rgb, 4, g_rgb + 16, 8, 0, 0); }, 0, ""},
        {[&] { return QIVENPacketReadString(pLog, g_rgb, 5, g_rgb + 16, 4, 0, 0); }, 0, ""},
        {[&] { return grgfieldParsers[1].pfnRead(pLog, g_rgb, 5, &g_ulValue, 4, QIVENPKT_HOST_ENDIAN, 0); },
         5, ""},
        {[&] { return QIVENPacketReadInteger(pLog, g_rgb, 4, &g_ulValue, 4, QIVENPKT_HOST_ENDIAN); }, 0, ""},
        {[&] { return QIVENPacketReadString(pLog, nullptr, 5, g_rgb, 8, 0, 0); }, 0,
         packet("(((void *)0) != szPKTInput)")},
        {[&] { return QIVENPacketReadString(pLog, g_rgb, 5, nullptr, 8, 0, 0); }, 0,
         packet("((void *)0) != szFieldOutput")},
        {[&] { return QIVENPacketReadString(pLog, g_rgb, 0, g_rgb, 8, 0, 0); }, 0, packet("0 < cbPKTInput")},
        {[&] { return QIVENPacketReadInteger(pLog, nullptr, 5, &g_ulValue, 4, 0); }, 0,
         packet("((void *)0) != szPKTInput")},
        {[&] { return QIVENPacketReadInteger(pLog, g_rgb, 0, &g_ulValue, 4, 0); }, 0,
         packet("0 < cbPKTInput")},
        {[&] { return QIVENPacketReadInteger(pLog, g_rgb, 5, nullptr, 4, 0); }, 0,
         packet("((void *)0) != puFieldOutput")},
        {[&] { return QIVENPacketWriteString(pLog, g_rgb, 9, 0x11, nullptr); }, 0,
         packet("((void *)0) != szFieldInput")},
        {[&] { return QIVENPacketWriteString(pLog, nullptr, 9, 0x11, "x"); }, 0,
         packet("((void *)0) != szPKTOutput")},
        {[&] { return QIVENPacketWriteString(pLog, g_rgb, 9, 0, "x"); }, 0, packet("PKT_ID_MIN < PktId")},
        {[&] { return QIVENPacketWriteString(pLog, g_rgb, -1, 0x11, "x"); }, 0, packet("0 <= cbPKTOutput")},
        {[&] { return QIVENPacketWriteInteger(pLog, nullptr, 9, 1, &g_ulValue, 4, 0); }, 0,
         packet("((void *)0) != szPKTOutput")},
        {[&] { return QIVENPacketWriteInteger(pLog, g_rgb, 0, 1, &g_ulValue, 4, 0); }, 0,
         packet("0 < cbPKTOutput")},
        {[&] { return QIVENPacketWriteInteger(pLog, g_rgb, 9, 1, nullptr, 4, 0); }, 0,
         packet("((void *)0) != pulFieldInput")},
        {[&] {
             return QIVENPacketWriteArray(pLog, g_rgb, 9, 0xBC, nullptr, 64, QIVENPKT_LITTLE_ENDIAN,
                                          &g_record);
         },
         0, packet("((void *)0) != szFieldInput")},
        {[&] {
             return QIVENPacketWriteArray(pLog, nullptr, 9, 0xBC, g_rgb, 64, QIVENPKT_LITTLE_ENDIAN,
                                          &g_record);
         },
         0, packet("((void *)0) != szPKTOutput")},
        {[&] {
             return QIVENPacketWriteArray(pLog, g_rgb, -1, 0xBC, g_rgb, 64, QIVENPKT_LITTLE_ENDIAN,
                                          &g_record);
         },
         0, packet("0 <= cbPKTOutput")},
        {[&] {
             return QIVENPacketWriteArray(pLog, g_rgb, 9, 0xBC, g_rgb, 64, QIVENPKT_LITTLE_ENDIAN, nullptr);
         },
         0, packet("((void *)0) != pNASInfo")},
        {[&] { return QIVENPacketWrite(pLog, nullptr, &cb, &bad); }, 0,
         packet("((void *)0) != pszPKTOutput")},
        {[&] { return QIVENPacketWrite(pLog, &pNone, &cb, &bad); }, 0,
         packet("((void *)0) != (*pszPKTOutput)")},
        {[&] { return QIVENPacketWrite(pLog, &pBuffer, nullptr, &bad); }, 0,
         packet("((void *)0) != pcbPKTOutput")},
        {[&] { return QIVENPacketWrite(pLog, &pBuffer, &cbBelow, &bad); }, 0, packet("0 <= (*pcbPKTOutput)")},
        {[&] { return QIVENPacketWrite(pLog, &pBuffer, &cb, nullptr); }, 0, packet("NULL != pqivenSend")},
        {[&] { return QIVENPacketWrite(pLog, &pBuffer, &cb, &none); }, 0,
         packet("((void *)0) != pnasinfoInput")},
        {[&] { return QIVENPacketWrite(pLog, &pBuffer, &cb, &empty); }, 0, packet("0 < nPktId")},
        {[&] { return QIVENPacketReadEncrypted(pLog, nullptr, 5, &g_record); }, 0,
         packet("((void *)0) != szPKTInput")},
        {[&] { return QIVENPacketReadEncrypted(pLog, g_rgb, 0, &g_record); }, 0, packet("0 < cbPKTInput")},
        {[&] { return QIVENPacketReadEncrypted(pLog, g_rgb, 5, nullptr); }, 0,
         packet("NULL != pnasinfoOutput")},
        {[&] { return QIVENSendPktIDSet(pLog, nullptr, 1, g_rgb, 4); }, -1,
         packet("((void *)0) != pqivenSend")},
        {[&] { return QIVENSendPktIDSet(pLog, &bad, 0, g_rgb, 4); }, -1, packet("PKT_ID_MIN < pktID")},
        {[&] { return QIVENSendPktIDSet(pLog, &bad, 256, g_rgb, 4); }, -1, packet("PKT_ID_MAX > pktID")},
        {[&] { return QIVENSendPktIDSet(pLog, &none, 1, g_rgb, 4); }, -1,
         packet("((void *)0) != pqivenSend->pnasInfo")},
        {[&] { return QIVENSendPktIDSet(pLog, &bad, 1, nullptr, 4); }, -1, packet("((void *)0) != pValue")},
        {[&] { return QIVENSendPktIDAdd(pLog, nullptr, 1U, 0U); }, -1, packet("((void *)0) != pqivenSend")},
        {[&] { return QIVENSendPktIDAdd(pLog, &bad, 0U, 0U); }, -1, packet("PKT_ID_MIN < pktID1")},
        {[&] { return QIVENSendPktIDAddServ(pLog, nullptr, 1, 1); }, -1, packet("((void *)0) != pqivenSend")},
        {[&] { return QIVENSendPktIDAddServ(pLog, &bad, 2, 1); }, -1,
         packet("(0 == blServSupp || 1 == blServSupp)")},
        {[&] { return QIVENSendPktIDAddServ(pLog, &bad, 1, -1); }, -1,
         packet("(0 == blServRun || 1 == blServRun)")},
        {[&] { return QIVENUDPSend(pLog, nullptr, 5, &conn, &netIf, 0); }, 0,
         udp("((void *)0) != szPKTOutput")},
        {[&] { return QIVENUDPSend(pLog, g_rgb, 0, &conn, &netIf, 0); }, 0, udp("0 < cbPKTOutput")},
        {[&] { return QIVENUDPSend(pLog, g_rgb, 5, nullptr, &netIf, 0); }, 0,
         udp("((void *)0) != pqivenConn")},
        {[&] { return QIVENUDPSend(pLog, g_rgb, 5, &conn, nullptr, 0); }, 0, udp("NULL != pNetIf")},
        {[&] { return Send(0, "127.0.0.1", pLog); }, -1, "1|udp:# fail to init Iface [e] src addr [0]\n"},
        {[&] { return Send(1, "127.0.0.1 and no end", pLog); }, -1, "1|udp:# fail to translate IP addr\n"},
        {[&] { return QIVENUDPClient(nullptr, &bad); }, -1, ""},
        {[&] { return QIVENUDPClient(&conn, nullptr); }, -1, udp("NULL != pqivenSend")},
        {[&] { return QIVENUDPClient(&conn, &none); }, -1, udp("((void *)0) != pqivenSend->pnasInfo")},
        {[&] { return QIVENUDPClient(&conn, &empty); }, -1, udp("0 < pqivenSend->nPktID")},
        {[&] { return QIVENUDPServer(nullptr, &recv, nullptr, nullptr); }, -1, ""},
        {[&] { return QIVENUDPServer(&conn, nullptr, nullptr, nullptr); }, -1, udp("NULL != pqivenRecv")},
        {[&] { return QIVENUDPServer(&wrong, &recv, nullptr, nullptr); }, -1,
         "1|udp:# fail to translate IP addr\n"},
        {[&] { return BroadcastUdpByInterface(nullptr, 5, &g_ulValue); }, -1, ""},
        {[&] { return BroadcastUdpByInterface(g_rgb, -1, &g_ulValue); }, -1, ""},
        {[&] { return BroadcastUdpByInterface(g_rgb, 5, nullptr); }, -1, ""},
        {[&] { return QIVENLogDefSyslogErr("%s"); }, 0, "3|%s"},
        {[&] { return QIVENLogDefSyslogDebug("%s"); }, 0, "7|%s"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(&row - rows);
        EXPECT_EQ(row.iResult, row.call());
        std::string messages;
        for (const auto &lines : {LogCapture::Take(), interpose::TakeSyslog()})
            for (const std::string &line : lines)
                messages += line;
        EXPECT_EQ(row.message, messages);
    }
}

}  // namespace
