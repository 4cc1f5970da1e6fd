// Invalid arguments. One row per call shows that a bad argument is refused, reported with the
// text of its condition, and changes nothing; further rows are for conditions that are more than a null
// pointer.
#include <qiven/qiven.h>
#include <gtest/gtest.h>

#include <functional>

#include "iface/dump.h"
#include "iface_lnx/config_file.h"
#include "iface_lnx/sources.h"
#include "support/interpose.h"
#include "support/log_capture.h"
#include "support/sandbox.h"

namespace {

// The report is the failed condition, or a message with its level in front.
struct Row {
    int iResult;
    std::function<int()> call;
    std::string report;
};

LogCapture g_log;
QIVEN_LOG *p = g_log.Record();
const std::string kNull = "((void *)0) != ";

void Check(const char *szModule, const std::vector<Row> &rows) {
    for (const Row &row : rows) {
        EXPECT_EQ(row.iResult, row.call()) << row.report;
        std::string messages;
        for (const auto &lines : {LogCapture::Take(), interpose::TakeSyslog()})
            for (const std::string &line : lines)
                messages += line;
        const bool blMessage = row.report.empty() || row.report.find('|') == 1;
        EXPECT_EQ(blMessage ? row.report : Invalid(szModule, row.report), messages);
    }
}

#define CALL(...) [&] { return QIVEN##__VA_ARGS__; }

TEST(Arguments, OfThePacketModule) {
    unsigned char rgbIn[] = {4, 1, 2, 3, 4}, rgbOut[8] = "......";
    char szSlot[8] = "old";
    uint64_t ull = 7;
    nasinfo record{}, full{};
    memset(full.szLongText, 'x', sizeof full.szLongText);
    unsigned char *pBuffer = rgbOut;
    int cbSpace = 1;
    QIVEN_SEND send{&record, 0, {}}, overfull{&record, QIVEN_SEND_MAX + 1, {}}, broken{&record, -5, {}};
    // The string writer of the table must not leave the slot.
    const auto writeSlot = [&](unsigned char *pOut, unsigned int cbSlot) {
        return grgfieldParsers[FIELD_STRING].pfnWrite(p, pOut, 0, PKT_ID_LONG_TEXT, full.szLongText, cbSlot,
                                                      0, &record);
    };
    const std::vector<Row> rows = {
        {0, CALL(PacketReadString(p, nullptr, 0, nullptr, 8, 9, 0)), "(((void *)0) != szPKTInput)"},
        {0, CALL(PacketReadInteger(p, nullptr, 0, nullptr, 5, 0)), kNull + "szPKTInput"},
        {0, CALL(PacketReadInteger(p, rgbIn, 5, &ull, 5, 0)),
         "(sizeof(u_int32_t) == cbFieldOutput || sizeof(u_int64_t) == cbFieldOutput)"},
        {0, CALL(PacketReadInteger(p, rgbIn, 5, &ull, 4, 0)),
         "(QIVENPKT_HOST_ENDIAN == dstEndian || QIVENPKT_KEEP_ENDIAN == dstEndian)"},
        {0, CALL(PacketWriteString(p, nullptr, -1, 0, nullptr)), kNull + "szFieldInput"},
        {0, CALL(PacketWriteString(p, rgbOut, -1, 256, full.szLongText)), "PKT_ID_MAX > PktId"},
        {0, CALL(PacketWriteString(p, rgbOut, 0, 255, full.szLongText)), "255 >= cbFieldInput"},
        {0, [&] { return writeSlot(rgbOut, 256); }, "255 >= cbFieldInput"},
        {-1, [&] { return writeSlot(rgbOut, 255); }, ""},
        {0, CALL(PacketWriteInteger(p, nullptr, 0, 0, nullptr, 5, 1)), kNull + "szPKTOutput"},
        {0, CALL(PacketWriteInteger(p, rgbOut, 1, 1, &ull, 4, 1)),
         "(QIVENPKT_LITTLE_ENDIAN == dstEndian || QIVENPKT_KEEP_ENDIAN == dstEndian)"},
        {0, CALL(PacketWriteArray(p, nullptr, -1, 0, nullptr, 255, 1, nullptr)), kNull + "szFieldInput"},
        {0, CALL(PacketWriteArray(p, rgbOut, 8, 1, szSlot, 255, 1, nullptr)),
         "(QIVENPKT_LITTLE_ENDIAN == dstEndian ||QIVENPKT_KEEP_ENDIAN == dstEndian)"},
        {0, CALL(PacketRead(p, nullptr, -1, nullptr)), kNull + "szPKTInput"},
        {0, CALL(PacketWrite(p, nullptr, nullptr, nullptr)), kNull + "pszPKTOutput"},
        {0, CALL(PacketWrite(p, &pBuffer, &cbSpace, &overfull)), "QIVEN_SEND_MAX >= nPktId"},
        {0, CALL(PacketWriteEncrypted(p, nullptr, nullptr, nullptr, nullptr)), kNull + "pszPKTOutput"},
        {-1, CALL(SendPktIDSet(p, nullptr, 0, nullptr, 5)), kNull + "pqivenSend"},
        {-1, CALL(SendPktIDSet(p, &send, 0x5C, "12345", 5)), "cbSlot >= cbValue"},
        {-1, CALL(SendPktIDSet(p, &send, 0xBC, "", 64 * 32 + 1)), "cbSlot >= cbValue"},
        {-1, CALL(SendPktIDAdd(p, &send, 256, 0)), "PKT_ID_MAX > pktID1"},
        {-1, CALL(SendPktIDAddServ(p, &send, 2, -1)), "(0 == blServSupp || 1 == blServSupp)"},
        {0, CALL(SendPktIDAddServ(p, &broken, 0, 0)), ""},
        {-1, CALL(SendPktIDAddServ(p, &broken, 1, 0)), "QIVEN_SEND_MAX >= nPktID + nAdded"},
        {0, CALL(PacketRead(nullptr, nullptr, -1, nullptr)), ""},  // no log record, no message
    };
    Check("packet", rows);
    EXPECT_STREQ("old", szSlot);
    EXPECT_STREQ("......", reinterpret_cast<char *>(rgbOut));
    EXPECT_EQ(7U, ull);
    EXPECT_EQ(0, send.nPktID);
}

TEST(Arguments, OfTheInterfaceModules) {
    using namespace qiven::iface_lnx;
    QIVEN_NETIF rgNetIf[1]{};
    Check("iface", {
                       {-1, CALL(IfaceGetActive(p, nullptr)), "(((void *)0) != szIf)"},
                       {-1, CALL(IfaceGetNetSetting(p, nullptr)), kNull + "pNetIf"},
                       {0, [] { return qiven::iface::DumpNetIf(p, nullptr), 0; }, kNull + "pNetIf"},
                   });
    const std::string noFile = "1|iface_lnx:# failed to open file / error:(21)";
    const std::vector<Row> rows = {
        {-1, CALL(GetIfListLnx(p, rgNetIf, 65)), "QIVEN_IFACE_MAX >= numNetIf"},
        {-1, CALL(IfaceInit(p, nullptr, 1)), kNull + "rgNetIf"},
        {-1, [] { return GetKeyValue(p, nullptr, nullptr, nullptr, 0); }, kNull + "pfSrc"},
        {-1, [] { return GetKeyValueFromFile(p, nullptr, nullptr, nullptr, 0); }, kNull + "szFile"},
        {-1, [] { return ParseIfCfg(p, "/", nullptr); }, "NULL != pNetIf"},
        {-1, [&] { return ParseIfCfg(p, "/", rgNetIf); }, noFile},
    };
    Check("iface_lnx", rows);
}

TEST(Arguments, OfTheServiceFlags) {
    nasinfo record{};
    const std::vector<Row> rows = {
        {-1, CALL(NasinfoServSuppClear(p, nullptr)), kNull + "pnasInfo"},
        {-1, CALL(NasinfoServRunGet(p, nullptr, 128)), kNull + "pnasInfo"},
        {-1, CALL(NasinfoServSuppSet(p, &record, 128)), "QIVEN_SERVICE_MAX > id"},
        {-1, CALL(NasinfoServRunSet(p, &record, 0xFFFFFFFF)), "QIVEN_SERVICE_MAX > id"},
    };
    Check("nasinfo", rows);
}

TEST(Arguments, OfTheNetworkModules) {
    sandbox::Enter();
    const unsigned char rgb[] = "bytes";
    nasinfo record{};
    QIVEN_SEND empty{&record, 0, {}};
    const QIVEN_CONN conn{"127.0.0.1", QIVEN_PORT, 0, nullptr, p},
        wrong{"256.0.0.1", QIVEN_PORT, 0, nullptr, p};
    QIVEN_CONN endless = conn;
    memset(endless.szAddr, '1', sizeof endless.szAddr);
    const QIVEN_RECV recv{};
    const QIVEN_NETIF netIf{"e", {}, 0, 0, 0, 0, 0, 0, 0}, loopback{"e", {}, 1, 0, 0, 0, 0, 0, 0};
    const std::string broadcast = "3|socket/socket_qiven_send_broadcast_udp:# Invaild Argument (";
    const std::string untranslated = "1|udp:# fail to translate IP addr\n";
    const std::vector<Row> rows = {
        {0, CALL(UDPSend(p, nullptr, 0, nullptr, nullptr, 1)), kNull + "szPKTOutput"},
        {-1, CALL(UDPSend(p, rgb, 5, &conn, &netIf, 1)), "1|udp:# fail to init Iface [e] src addr [0]\n"},
        {-1, CALL(UDPSend(p, rgb, 5, &endless, &loopback, 1)), untranslated},
        {-1, CALL(UDPClient(nullptr, nullptr)), ""},
        {-1, CALL(UDPClient(&conn, &empty)), "0 < pqivenSend->nPktID"},
        {-1, CALL(UDPServer(nullptr, nullptr, nullptr, nullptr)), ""},
        {-1, CALL(UDPServer(&wrong, &recv, nullptr, nullptr)), untranslated},
        {-1, [] { return BroadcastUdpByInterface(nullptr, -1, nullptr); }, broadcast + kNull + "pPkt)=[0]\n"},
        {-1, CALL(LogDefSyslogErr(nullptr)), ""},
        {-1, CALL(LogDefSyslogDebug(nullptr)), ""},
        {-1, CALL(LogDefConsole(nullptr)), ""},
        {0, CALL(LogDefSyslogErr("%s")), "3|%s"},
        {0, CALL(LogDefSyslogDebug("%s")), "7|%s"},
    };
    Check("udp", rows);
}

}  // namespace
