#include <qiven/packet.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ostream>

#include "support/bytes_of.h"
#include "support/log_capture.h"

namespace {

struct BitmapCalls {
    const char *szName;
    int (*pfnClear)(const QIVEN_LOG *, nasinfo *);
    int (*pfnSet)(const QIVEN_LOG *, nasinfo *, unsigned int);
    int (*pfnGet)(const QIVEN_LOG *, const nasinfo *, unsigned int);
    uint64_t nasinfo::*low;
    uint64_t nasinfo::*high;
};
void PrintTo(const BitmapCalls &map, std::ostream *pOut) {
    *pOut << map.szName;  // instead of bytes that differ in every run
}

class ServiceFlags : public testing::TestWithParam<BitmapCalls> {};

INSTANTIATE_TEST_SUITE_P(
    Both, ServiceFlags,
    testing::Values(BitmapCalls{"Supp", QIVENNasinfoServSuppClear, QIVENNasinfoServSuppSet,
                                QIVENNasinfoServSuppGet, &nasinfo::ullServSupp0, &nasinfo::ullServSupp1},
                    BitmapCalls{"Run", QIVENNasinfoServRunClear, QIVENNasinfoServRunSet,
                                QIVENNasinfoServRunGet, &nasinfo::ullServRun0, &nasinfo::ullServRun1}),
    [](const auto &param) { return param.param.szName; });

TEST_P(ServiceFlags, EachNumberIsOneBitOfItsOwn) {
    const BitmapCalls &map = GetParam();
    for (unsigned int id = 0; id < QIVEN_SERVICE_MAX; ++id) {
        nasinfo info{};
        nasinfo expected{};
        expected.*(id < 64 ? map.low : map.high) = uint64_t{1} << (id % 64);
        for (int iTime = 0; iTime < 2; ++iTime)
            EXPECT_EQ(0, map.pfnSet(nullptr, &info, id)) << id;
        EXPECT_TRUE(BytesOf(expected) == BytesOf(info)) << id;
        for (unsigned int other = 0; other < QIVEN_SERVICE_MAX; ++other)
            EXPECT_EQ(other == id, map.pfnGet(nullptr, &info, other)) << id << ' ' << other;
    }
}

TEST_P(ServiceFlags, SettingAddsAndClearingEmptiesThisBitmapOnly) {
    const BitmapCalls &map = GetParam();
    nasinfo info;
    memset(&info, 0xFF, sizeof info);
    nasinfo expected = info;
    expected.*map.low = 0;
    expected.*map.high = 0;
    EXPECT_EQ(0, map.pfnClear(nullptr, &info));
    EXPECT_TRUE(BytesOf(expected) == BytesOf(info));

    for (const unsigned int id : {5U, 31U, 63U})
        EXPECT_EQ(0, map.pfnSet(nullptr, &info, id));
    EXPECT_EQ(0x8000000080000020U, info.*map.low);
}

}  // namespace
