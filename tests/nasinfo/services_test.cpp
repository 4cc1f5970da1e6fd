#include <qiven/packet.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <ostream>
#include <string_view>

#include "support/bytes_of.h"
#include "support/log_capture.h"

namespace {

struct Bitmap {
    const char *szName;
    int (*pfnClear)(const QIVEN_LOG *, nasinfo *);
    int (*pfnSet)(const QIVEN_LOG *, nasinfo *, unsigned int);
    int (*pfnGet)(const QIVEN_LOG *, const nasinfo *, unsigned int);
    uint64_t nasinfo::*low;
    uint64_t nasinfo::*high;
};
void PrintTo(const Bitmap &map, std::ostream *pOut) {
    *pOut << map.szName;  // instead of bytes that differ in every run
}

class ServiceFlags : public testing::TestWithParam<Bitmap> {};

INSTANTIATE_TEST_SUITE_P(
    Both, ServiceFlags,
    testing::Values(Bitmap{"Supp", QIVENNasinfoServSuppClear, QIVENNasinfoServSuppSet,
                           QIVENNasinfoServSuppGet, &nasinfo::ullServSupp0, &nasinfo::ullServSupp1},
                    Bitmap{"Run", QIVENNasinfoServRunClear, QIVENNasinfoServRunSet, QIVENNasinfoServRunGet,
                           &nasinfo::ullServRun0, &nasinfo::ullServRun1}),
    [](const auto &param) { return param.param.szName; });

TEST_P(ServiceFlags, EachNumberIsOneBitOfItsOwn) {
    const Bitmap &map = GetParam();
    for (unsigned int id = 0; id < QIVEN_SERVICE_MAX; ++id) {
        nasinfo info{};
        nasinfo expected{};
        expected.*(id < 64 ? map.low : map.high) = uint64_t{1} << (id % 64);
        for (const char *szTime : {"first", "again"}) {
            EXPECT_EQ(0, map.pfnSet(nullptr, &info, id)) << szTime;
            EXPECT_TRUE(BytesOf(expected) == BytesOf(info)) << id << ' ' << szTime;
        }
        for (unsigned int other = 0; other < QIVEN_SERVICE_MAX; ++other)
            EXPECT_EQ(other == id, map.pfnGet(nullptr, &info, other)) << id << ' ' << other;
    }
}

TEST_P(ServiceFlags, SettingAddsAndClearingEmptiesThisBitmapOnly) {
    const Bitmap &map = GetParam();
    nasinfo info;
    memset(&info, 0xFF, sizeof info);
    nasinfo expected = info;
    expected.*map.low = 0;
    expected.*map.high = 0;
    EXPECT_EQ(0, map.pfnClear(nullptr, &info));
    EXPECT_TRUE(BytesOf(expected) == BytesOf(info));

    for (const unsigned int id : {5U, 31U, 32U, 63U, 64U, 127U})
        EXPECT_EQ(0, map.pfnSet(nullptr, &info, id));
    EXPECT_EQ(0x8000000180000020U, info.*map.low);
    EXPECT_EQ(0x8000000000000001U, info.*map.high);
}

TEST_P(ServiceFlags, BadArgumentsAreReportedAndChangeNothing) {
    const Bitmap &map = GetParam();
    LogCapture log;
    nasinfo info{};
    info.*map.low = info.*map.high = ~uint64_t{0};
    const nasinfo before = info;
    for (const unsigned int id : {128U, 129U, 192U, 0x80000000U, 0xFFFFFFFFU}) {
        EXPECT_EQ(-1, map.pfnSet(log.Record(), &info, id));
        EXPECT_EQ(-1, map.pfnGet(log.Record(), &info, id));
        const std::string report = Invalid("nasinfo", "QIVEN_SERVICE_MAX > id");
        EXPECT_EQ((std::vector<std::string>{report, report}), log.Take()) << id;
    }
    EXPECT_TRUE(BytesOf(before) == BytesOf(info));

    EXPECT_EQ(-1, map.pfnClear(log.Record(), nullptr));
    EXPECT_EQ(-1, map.pfnSet(log.Record(), nullptr, 128));  // the record is looked at first
    EXPECT_EQ(-1, map.pfnGet(log.Record(), nullptr, 128));
    EXPECT_EQ(std::vector<std::string>(3, Invalid("nasinfo", "((void *)0) != pnasInfo")), log.Take());
    EXPECT_EQ(-1, map.pfnGet(nullptr, nullptr, 0));
}

TEST(ServiceFlagsInAPacket, ArriveAsTheyWereSet) {
    nasinfo sent{};
    sent.ulPktType = QIVEN_PKT_ANSWER;
    for (const unsigned int id : {9U, 63U, 64U})
        QIVENNasinfoServSuppSet(nullptr, &sent, id);
    for (const unsigned int id : {0U, 127U})
        QIVENNasinfoServRunSet(nullptr, &sent, id);
    QIVEN_SEND request{};
    request.pnasInfo = &sent;
    ASSERT_EQ(2, QIVENSendPktIDAdd(nullptr, &request, 0x01, 0xA4, 0));
    ASSERT_EQ(4, QIVENSendPktIDAddServ(nullptr, &request, 1, 1));
    int cbPacket = 64;  // the packet has 60 bytes: the buffer stays where it is
    const std::unique_ptr<unsigned char, decltype(&free)> buffer(static_cast<unsigned char *>(malloc(64)),
                                                                 free);
    unsigned char *pPacket = buffer.get();
    const int cb = QIVENPacketWrite(nullptr, &pPacket, &cbPacket, &request);
    ASSERT_EQ(60, cb);
    const std::string_view packet(reinterpret_cast<const char *>(pPacket), 60);
    using namespace std::string_view_literals;
    const std::string_view wire =
        "\xB0\x08\x00\x02\x00\x00\x00\x00\x00\x80"
        "\xB1\x08\x01\x00\x00\x00\x00\x00\x00\x00"
        "\xB8\x08\x01\x00\x00\x00\x00\x00\x00\x00"
        "\xB9\x08\x00\x00\x00\x00\x00\x00\x00\x80"sv;
    EXPECT_TRUE(packet.ends_with(wire));

    nasinfo received{};
    EXPECT_LT(0, QIVENPacketRead(nullptr, pPacket, cb, &received));
    for (unsigned int id = 0; id < QIVEN_SERVICE_MAX; ++id) {
        EXPECT_EQ(id == 9 || id == 63 || id == 64, QIVENNasinfoServSuppGet(nullptr, &received, id)) << id;
        EXPECT_EQ(id == 0 || id == 127, QIVENNasinfoServRunGet(nullptr, &received, id)) << id;
    }
}

}  // namespace
