#include <qiven/packet.h>
#include <gtest/gtest.h>

#include "support/log_capture.h"
#include "support/wire.h"

namespace {

using Lines = std::vector<std::string>;
using namespace std::string_literals;

// Other tests check the remaining behaviour of the readers with whole packets.
TEST(FieldCodecs, ReadersTakeOneField) {
    const unsigned char rgb[] = {4, 'n', 'a', 's', '1'};
    const struct {
        int iType, cbInput;
        unsigned int cbSlot, nIndex;
        int iResult;
        const char *szSlots;
    } cases[] = {
        {FIELD_STRING, 5, 8, 0, 5, "nas1"},    {FIELD_ARRAY, 5, 8, 1, 5, "........nas1"},
        {FIELD_STRING, 4, 8, 0, 0, "......"},  // cut
        {FIELD_STRING, 5, 4, 0, 0, "......"},  // no space for the NUL
        {FIELD_INTEGER, 5, 4, 0, 5, "nas1.."}, {FIELD_INTEGER, 4, 4, 0, 0, "......"},
    };
    for (const auto &c : cases) {
        std::string slots = "..................";
        EXPECT_EQ(c.iResult, grgfieldParsers[c.iType].pfnRead(nullptr, rgb, c.cbInput, slots.data(), c.cbSlot,
                                                              QIVENPKT_KEEP_ENDIAN, c.nIndex));
        EXPECT_TRUE(slots.starts_with(c.szSlots)) << slots;
    }
}

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
