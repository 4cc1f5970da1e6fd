#include <qiven/packet.h>
#include <gtest/gtest.h>

#include <functional>

#include "support/log_capture.h"
#include "support/wire.h"

namespace {

using Lines = std::vector<std::string>;
using namespace std::string_literals;

#define CALL(...) [&] { return __VA_ARGS__; }
constexpr auto ReadText = QIVENPacketReadString;
constexpr auto ReadArray = QIVENPacketReadArray;
constexpr auto ReadInteger = QIVENPacketReadInteger;
constexpr auto WriteText = QIVENPacketWriteString;
constexpr auto WriteInteger = QIVENPacketWriteInteger;
constexpr auto WriteArray = QIVENPacketWriteArray;

const char kWidthIn[] = "(sizeof(u_int32_t) == cbFieldInput || sizeof(u_int64_t) == cbFieldInput)";
const char kWidthOut[] = "(sizeof(u_int32_t) == cbFieldOutput || sizeof(u_int64_t) == cbFieldOutput)";
const char kReadMode[] = "(QIVENPKT_HOST_ENDIAN == dstEndian || QIVENPKT_KEEP_ENDIAN == dstEndian)";
const char kWriteMode[] = "(QIVENPKT_LITTLE_ENDIAN == dstEndian || QIVENPKT_KEEP_ENDIAN == dstEndian)";
const char kArrayMode[] = "(QIVENPKT_LITTLE_ENDIAN == dstEndian ||QIVENPKT_KEEP_ENDIAN == dstEndian)";

// Rows repair one argument after the other, so each also shows that its check comes before the later ones.
TEST(FieldCodecs, ArgumentChecksInOrder) {
    LogCapture log;
    const QIVEN_LOG *p = log.Record();
    const unsigned char rgbIn[] = {4, 1, 2, 3, 4};
    unsigned char rgbOut[8] = "......";
    char szSlot[8] = "old";
    uint64_t ull = 7;
    nasinfo record{};
    const std::string tooLong(256, 'x');
    const char *szLong = tooLong.c_str();
    const struct {
        std::function<int()> pfnCall;
        std::string condition;
    } cases[] = {
        {CALL(ReadText(p, nullptr, 0, nullptr, 8, 9, 0)), "(((void *)0) != szPKTInput)"},
        {CALL(ReadText(p, rgbIn, 0, nullptr, 8, 9, 0)), "((void *)0) != szFieldOutput"},
        {CALL(ReadText(p, rgbIn, 0, szSlot, 8, 9, 0)), "0 < cbPKTInput"},
        {CALL(ReadArray(p, rgbIn, -1, szSlot, 8, 9, 0)), "0 < cbPKTInput"},
        {CALL(ReadInteger(p, nullptr, 0, nullptr, 5, 0)), "((void *)0) != szPKTInput"},
        {CALL(ReadInteger(p, rgbIn, 0, nullptr, 5, 0)), "0 < cbPKTInput"},
        {CALL(ReadInteger(p, rgbIn, 5, nullptr, 5, 0)), "((void *)0) != puFieldOutput"},
        {CALL(ReadInteger(p, rgbIn, 5, &ull, 5, 0)), kWidthOut},
        {CALL(ReadInteger(p, rgbIn, 5, &ull, 4, 0)), kReadMode},
        {CALL(ReadInteger(p, rgbIn, 5, &ull, 8, 3)), kReadMode},
        {CALL(WriteText(p, nullptr, -1, 0, nullptr)), "((void *)0) != szFieldInput"},
        {CALL(WriteText(p, nullptr, -1, 0, szLong)), "((void *)0) != szPKTOutput"},
        {CALL(WriteText(p, rgbOut, -1, 0, szLong)), "PKT_ID_MIN < PktId"},
        {CALL(WriteText(p, rgbOut, -1, 256, szLong)), "PKT_ID_MAX > PktId"},
        {CALL(WriteText(p, rgbOut, -1, 255, szLong)), "0 <= cbPKTOutput"},
        {CALL(WriteText(p, rgbOut, 0, 255, szLong)), "255 >= cbFieldInput"},
        {CALL(WriteInteger(p, nullptr, 0, 0, nullptr, 5, 1)), "((void *)0) != szPKTOutput"},
        {CALL(WriteInteger(p, rgbOut, 0, 0, nullptr, 5, 1)), "0 < cbPKTOutput"},
        {CALL(WriteInteger(p, rgbOut, 1, 0, nullptr, 5, 1)), "PKT_ID_MIN < PktId"},
        {CALL(WriteInteger(p, rgbOut, 1, 256, nullptr, 5, 1)), "PKT_ID_MAX > PktId"},
        {CALL(WriteInteger(p, rgbOut, 1, 1, nullptr, 5, 1)), "((void *)0) != pulFieldInput"},
        {CALL(WriteInteger(p, rgbOut, 1, 1, &ull, 5, 1)), kWidthIn},
        {CALL(WriteInteger(p, rgbOut, 1, 1, &ull, 4, 1)), kWriteMode},
        {CALL(WriteArray(p, nullptr, -1, 0, nullptr, 255, 1, nullptr)), "((void *)0) != szFieldInput"},
        {CALL(WriteArray(p, nullptr, -1, 0, szSlot, 255, 1, nullptr)), "((void *)0) != szPKTOutput"},
        {CALL(WriteArray(p, rgbOut, -1, 0, szSlot, 255, 1, nullptr)), "PKT_ID_MIN < PktId"},
        {CALL(WriteArray(p, rgbOut, -1, 256, szSlot, 255, 1, nullptr)), "PKT_ID_MAX > PktId"},
        {CALL(WriteArray(p, rgbOut, -1, 1, szSlot, 255, 1, nullptr)), "0 <= cbPKTOutput"},
        {CALL(WriteArray(p, rgbOut, 8, 1, szSlot, 255, 1, nullptr)), kArrayMode},
        {CALL(WriteArray(p, rgbOut, 8, 1, szSlot, 255, 2, nullptr)), "((void *)0) != pNASInfo"},
        {CALL(WriteArray(p, rgbOut, 8, 1, szSlot, 255, 0, &record)), "PKT_MAX_STRING_LEN > cbFieldInput"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(0, c.pfnCall()) << c.condition;
        EXPECT_EQ(Lines{Invalid("packet", c.condition)}, LogCapture::Take());
    }
    EXPECT_STREQ("old", szSlot);
    EXPECT_STREQ("......", reinterpret_cast<char *>(rgbOut));
    EXPECT_EQ(7U, ull);
    p = nullptr;  // silence is no crash
    EXPECT_EQ(0, cases[0].pfnCall());
}

TEST(FieldCodecs, ReadText) {
    const struct {
        std::string bytes;
        unsigned int cbSlot;
        int iResult;
        std::string slot;
    } cases[] = {
        {"\5ab\0cd"s, 36, 6, "ab"}, {"\3abc"s, 4, 4, "abc"},         {"\4abcd"s, 4, 0, "old"},
        {"\0"s, 4, 1, "old"},       {"\12abcdefghi"s, 36, 0, "old"}, {"\12abcdefghij"s, 36, 11, "abcdefghij"},
        {"\1"s, 4, 0, "old"},       {"\3ab"s, 36, 0, "old"},
    };
    LogCapture log;
    for (const auto &c : cases) {
        char szSlot[40] = "old";
        const AtPageEnd page(c.bytes);
        EXPECT_EQ(c.iResult, QIVENPacketReadString(log.Record(), page.Get(), static_cast<int>(c.bytes.size()),
                                                   szSlot, c.cbSlot, 0, 0));
        EXPECT_EQ(c.slot, szSlot);
    }
    char rgszSlot[3][4] = {"a", "b", "c"};
    EXPECT_EQ(4, QIVENPacketReadArray(log.Record(), reinterpret_cast<const unsigned char *>("\3xyz"), 4,
                                      rgszSlot, 4, 0, 1));
    EXPECT_EQ("a\0\0\0xyz\0c\0\0\0"s, std::string(rgszSlot[0], sizeof rgszSlot));
    EXPECT_EQ(Lines{}, LogCapture::Take());
}

TEST(FieldCodecs, ReadInteger) {
    const struct {
        std::string bytes;
        unsigned int cbSlot;
        int iResult;
        uint64_t ullSlot;
    } cases[] = {
        {"\4\1\2\3\4", 4, 5, 0x0909090904030201},
        {"\x8\1\2\3\4\5\6\7\10", 8, 9, 0x0807060504030201},
        {"\4\1\2\3\4", 8, 0, 0x0909090909090909},
        {"\x8\1\2\3\4\5\6\7\10", 4, 0, 0x0909090909090909},
        {"\0"s, 4, 1, 0x0909090909090909},
        {"\4\1\2\3", 4, 0, 0x0909090909090909},
        {"\x8\1\2\3\4\5\6\7", 8, 0, 0x0909090909090909},
    };
    LogCapture log;
    for (const int iMode : {QIVENPKT_HOST_ENDIAN, QIVENPKT_KEEP_ENDIAN}) {
        for (const auto &c : cases) {
            uint64_t ullSlot = 0x0909090909090909;
            const AtPageEnd page(c.bytes);
            EXPECT_EQ(c.iResult,
                      QIVENPacketReadInteger(log.Record(), page.Get(), static_cast<int>(c.bytes.size()),
                                             &ullSlot, c.cbSlot, iMode));
            EXPECT_EQ(c.ullSlot, ullSlot);
        }
    }
    EXPECT_EQ(Lines{}, LogCapture::Take());
}

TEST(FieldCodecs, WritersNeedRoomForTheWholeField) {
    LogCapture log;
    const std::string text255(255, 't');
    const uint64_t ull = 0x0807060504030201;
    nasinfo record{};
    record.ulArrayCount = 3;
    strcpy(record.rgszFieldBC[0], "a");
    strcpy(record.rgszFieldBC[2], "b");
    using Write = std::function<int(unsigned char *, int)>;
    const auto Text = [&](const char *sz) -> Write {
        return [=, &log](auto *p, int cb) { return QIVENPacketWriteString(log.Record(), p, cb, 0x11, sz); };
    };
    const auto Integer = [&](unsigned int cbWidth) -> Write {
        return [=, &log](auto *p, int cb) {
            return QIVENPacketWriteInteger(log.Record(), p, cb, 0x48, &ull, cbWidth, 0);
        };
    };
    const auto Array = [&](uint32_t nCount) -> Write {
        return [=, &log, &record](auto *p, int cb) {
            record.ulArrayCount = nCount;
            return QIVENPacketWriteArray(log.Record(), p, cb, 0xBC, record.rgszFieldBC, 64, 0, &record);
        };
    };
    const struct {
        Write pfnWrite;
        int cbRoom, iResult;
        std::string written;
    } cases[] = {
        {Text("nas"), 5, 5, "\x11\3nas"},
        {Text("nas"), 4, -1, ""},
        {Text(""), 2, 2, "\x11\0"s},
        {Text(""), 0, -2, ""},
        {Text(text255.c_str()), 257, 257, "\x11\xFF" + text255},
        {Text(text255.c_str()), 0, -257, ""},
        {Integer(4), 6, 6, "H\4\1\2\3\4"},
        {Integer(4), 5, -1, ""},
        {Integer(8), 10, 10, "H\x8\1\2\3\4\5\6\7\x8"},
        {Integer(8), 1, -9, ""},
        {Array(3), 6, 6, "\xBC\1a\xBC\1b"},
        {Array(3), 5, -1, "\xBC\1a"},
        {Array(3), 0, -3, ""},
        {Array(2), 6, 3, "\xBC\1a"},
        {Array(0), 6, 0, ""},
        {Array(0xFFFFFFFF), 300, 6, "\xBC\1a\xBC\1b"},  // what follows the 32 elements is not looked at
    };
    strcpy(record.rgszFieldBD[0], "beyond");
    for (const auto &c : cases) {
        std::string buffer(300, '.');
        EXPECT_EQ(c.iResult, c.pfnWrite(reinterpret_cast<unsigned char *>(buffer.data()), c.cbRoom));
        EXPECT_EQ(c.written + std::string(300 - c.written.size(), '.'), buffer);
    }
    EXPECT_EQ(Lines{}, LogCapture::Take());
}

TEST(FieldCodecs, ArraysThatNoReaderWouldTake) {
    LogCapture log;
    nasinfo record{};
    unsigned char rgbOut[100];
    record.ulArrayCount = 1;
    EXPECT_EQ(0, QIVENPacketWriteArray(log.Record(), rgbOut, 100, 0xBF, record.rgszFieldBF, 64, 0, &record));
    memset(record.rgszFieldBF[0], 'x', 64);
    EXPECT_EQ(-1, QIVENPacketWriteArray(log.Record(), rgbOut, 100, 0xBF, record.rgszFieldBF, 64, 0, &record));
    EXPECT_EQ(Lines{}, LogCapture::Take());
    EXPECT_EQ(-1, QIVENPacketWriteArray(log.Record(), rgbOut, 100, 0xBB, record.rgszFieldBF, 64, 0, &record));
    EXPECT_EQ((Lines{"1|packet:# unknown FIELD_ARRAY PKT-ID in grgFieldArrayCountMap: [0xBB]\n",
                     "1|packet:# Failed to get Array Count Offset.\n"}),
              LogCapture::Take());
}

}  // namespace
