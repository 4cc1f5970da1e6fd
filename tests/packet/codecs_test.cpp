#include <qiven/packet.h>
#include <gtest/gtest.h>

#include <functional>

#include "support/log_capture.h"
#include "support/wire.h"

namespace {

using Lines = std::vector<std::string>;
using namespace std::string_literals;

#define CALL(...) [&] { return QIVEN##__VA_ARGS__; }

const char kWidthIn[] = "(sizeof(u_int32_t) == cbFieldInput || sizeof(u_int64_t) == cbFieldInput)";
const char kWidthOut[] = "(sizeof(u_int32_t) == cbFieldOutput || sizeof(u_int64_t) == cbFieldOutput)";
const char kReadMode[] = "(QIVENPKT_HOST_ENDIAN == dstEndian || QIVENPKT_KEEP_ENDIAN == dstEndian)";
const char kWriteMode[] = "(QIVENPKT_LITTLE_ENDIAN == dstEndian || QIVENPKT_KEEP_ENDIAN == dstEndian)";
const char kArrayMode[] = "(QIVENPKT_LITTLE_ENDIAN == dstEndian ||QIVENPKT_KEEP_ENDIAN == dstEndian)";

// Rows repair one argument after the other, so each also shows that its check comes before the later ones.
TEST(Packet, ArgumentChecksInOrder) {
    LogCapture log;
    const QIVEN_LOG *p = log.Record();
    const unsigned char rgbIn[] = {4, 1, 2, 3, 4};
    unsigned char rgbOut[8] = "......";
    char szSlot[8] = "old";
    uint64_t ull = 7;
    nasinfo record{};
    const std::string long256(256, 'x');
    const char *szLong = long256.c_str();
    unsigned char *pNone = nullptr, *pBuffer = rgbOut;
    auto *pSealed = reinterpret_cast<char *>(rgbOut);
    int cb = -1, cbRoom = 1;
    QIVEN_SEND none{}, send{&record, 0, {}}, empty = send, full{&record, QIVEN_SEND_MAX + 1, {}};
    const struct {
        int iResult;
        std::function<int()> pfnCall;
        std::string condition;
    } cases[] = {
        {0, CALL(PacketReadString(p, nullptr, 0, nullptr, 8, 9, 0)), "(((void *)0) != szPKTInput)"},
        {0, CALL(PacketReadString(p, rgbIn, 0, szSlot, 8, 9, 0)), "0 < cbPKTInput"},
        {0, CALL(PacketReadInteger(p, rgbIn, 5, nullptr, 5, 0)), "((void *)0) != puFieldOutput"},
        {0, CALL(PacketReadInteger(p, rgbIn, 5, &ull, 5, 0)), kWidthOut},
        {0, CALL(PacketReadInteger(p, rgbIn, 5, &ull, 4, 0)), kReadMode},
        {0, CALL(PacketWriteString(p, nullptr, -1, 0, nullptr)), "((void *)0) != szFieldInput"},
        {0, CALL(PacketWriteString(p, rgbOut, -1, 0, szLong)), "PKT_ID_MIN < PktId"},
        {0, CALL(PacketWriteString(p, rgbOut, -1, 256, szLong)), "PKT_ID_MAX > PktId"},
        {0, CALL(PacketWriteString(p, rgbOut, -1, 255, szLong)), "0 <= cbPKTOutput"},
        {0, CALL(PacketWriteString(p, rgbOut, 0, 255, szLong)), "255 >= cbFieldInput"},
        {0, CALL(PacketWriteInteger(p, rgbOut, 0, 0, nullptr, 5, 1)), "0 < cbPKTOutput"},
        {0, CALL(PacketWriteInteger(p, rgbOut, 1, 1, &ull, 5, 1)), kWidthIn},
        {0, CALL(PacketWriteInteger(p, rgbOut, 1, 1, &ull, 4, 1)), kWriteMode},
        {0, CALL(PacketWriteArray(p, rgbOut, -1, 1, szSlot, 255, 1, nullptr)), "0 <= cbPKTOutput"},
        {0, CALL(PacketWriteArray(p, rgbOut, 8, 1, szSlot, 255, 1, nullptr)), kArrayMode},
        {0, CALL(PacketWriteArray(p, rgbOut, 8, 1, szSlot, 255, 2, nullptr)), "((void *)0) != pNASInfo"},
        {0, CALL(PacketWriteArray(p, rgbOut, 8, 1, szSlot, 255, 0, &record)),
         "PKT_MAX_STRING_LEN > cbFieldInput"},
        {0, CALL(PacketRead(p, nullptr, -1, nullptr)), "((void *)0) != szPKTInput"},
        {0, CALL(PacketRead(p, rgbIn, -1, &record)), "0 <= cbPKTInput"},
        {0, CALL(PacketWrite(p, &pNone, nullptr, nullptr)), "((void *)0) != (*pszPKTOutput)"},
        {0, CALL(PacketWrite(p, &pBuffer, &cb, nullptr)), "0 <= (*pcbPKTOutput)"},
        {0, CALL(PacketWrite(p, &pBuffer, &cbRoom, nullptr)), "NULL != pqivenSend"},
        {0, CALL(PacketWrite(p, &pBuffer, &cbRoom, &none)), "((void *)0) != pnasinfoInput"},
        {0, CALL(PacketWrite(p, &pBuffer, &cbRoom, &empty)), "0 < nPktId"},
        {0, CALL(PacketWrite(p, &pBuffer, &cbRoom, &full)), "QIVEN_SEND_MAX >= nPktId"},
        {0, CALL(PacketWriteEncrypted(p, &pSealed, &cbRoom, nullptr, nullptr)), "((void *)0) != pqivenSend"},
        {0, CALL(PacketWriteEncrypted(p, &pSealed, &cbRoom, &none, nullptr)), "NULL != szPublicKeyHex"},
        {0, CALL(PacketReadEncrypted(p, rgbIn, 0, nullptr)), "0 < cbPKTInput"},
        {0, CALL(PacketReadEncrypted(p, rgbIn, 1, nullptr)), "NULL != pnasinfoOutput"},
        {-1, CALL(SendPktIDSet(p, &send, 0x4B, "", 0)), "FIELD_NONE != ulType"},
        {-1, CALL(SendPktIDSet(p, &send, 0x5C, "12345", 5)), "cbSlot >= cbValue"},
        {-1, CALL(SendPktIDSet(p, &send, 0xBC, "", 64 * 32 + 1)), "cbSlot >= cbValue"},
        {-1, CALL(SendPktIDAdd(p, &send, 0, 0)), "PKT_ID_MIN < pktID1"},
        {-1, CALL(SendPktIDAddServ(p, &send, 2, -1)), "(0 == blServSupp || 1 == blServSupp)"},
        {-1, CALL(SendPktIDAddServ(p, &send, 1, -1)), "(0 == blServRun || 1 == blServRun)"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(c.iResult, c.pfnCall()) << c.condition;
        EXPECT_EQ(Lines{Invalid("packet", c.condition)}, LogCapture::Take());
    }
    EXPECT_STREQ("old", szSlot);
    EXPECT_STREQ("......", reinterpret_cast<char *>(rgbOut));
    EXPECT_EQ(7U, ull);
    EXPECT_EQ(0, send.nPktID);
    p = nullptr;  // silence is no crash
    EXPECT_EQ(0, cases[0].pfnCall());
}

// What the readers do is shown with whole packets.
TEST(FieldCodecs, WritersNeedRoomForTheWholeField) {
    LogCapture log;
    const std::string text255(255, 't');
    const uint64_t ull = 0x0807060504030201;
    nasinfo record{};
    strcpy(record.rgszFieldBC[0], "a");
    strcpy(record.rgszFieldBC[2], "b");
    strcpy(record.rgszFieldBD[0], "beyond");
    memset(record.rgszFieldBF[0], 'x', sizeof record.rgszFieldBF[0]);
    const auto &array = record.rgszFieldBC;
    const struct {
        int iType;
        unsigned int id, cbSlot;
        const void *pSlot;
        uint32_t nCount;
        int cbRoom, iResult;
        std::string written;
    } cases[] = {
        {FIELD_STRING, 0x11, 300, text255.c_str(), 0, 257, 257, "\x11\xFF" + text255},
        {FIELD_STRING, 0x11, 300, text255.c_str(), 0, 0, -257, ""},
        {FIELD_INTEGER, 0x48, 8, &ull, 0, 10, 10, "H\x8\1\2\3\4\5\6\7\x8"},
        {FIELD_INTEGER, 0x48, 8, &ull, 0, 1, -9, ""},
        {FIELD_ARRAY, 0xBC, 64, array, 3, 6, 6, "\xBC\1a\xBC\1b"},
        {FIELD_ARRAY, 0xBC, 64, array, 3, 5, -1, "\xBC\1a"},
        {FIELD_ARRAY, 0xBC, 64, array, 0xFFFFFFFF, 300, 6, "\xBC\1a\xBC\1b"},  // 32 elements, no more
        {FIELD_ARRAY, 0xBF, 64, record.rgszFieldBF, 1, 100, -1, ""},           // no NUL
    };
    for (const auto &c : cases) {
        std::string buffer(300, '.');
        record.ulArrayCount = c.nCount;
        EXPECT_EQ(c.iResult, grgfieldParsers[c.iType].pfnWrite(
                                 log.Record(), reinterpret_cast<unsigned char *>(buffer.data()), c.cbRoom,
                                 c.id, c.pSlot, c.cbSlot, 0, &record));
        EXPECT_EQ(c.written + std::string(300 - c.written.size(), '.'), buffer);
    }
    EXPECT_EQ(Lines{}, LogCapture::Take());
    unsigned char rgbOut[100];
    EXPECT_EQ(-1, QIVENPacketWriteArray(log.Record(), rgbOut, 100, 0xBB, array, 64, 0, &record));
    EXPECT_EQ((Lines{"1|packet:# unknown FIELD_ARRAY PKT-ID in grgFieldArrayCountMap: [0xBB]\n",
                     "1|packet:# Failed to get Array Count Offset.\n"}),
              LogCapture::Take());
}

}  // namespace
