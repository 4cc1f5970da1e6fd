// The broadcast with failing interfaces: a replacement of the platform's network
// library is loaded with this program.
#include <qiven/search.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "support/capture.h"
#include "support/interpose.h"
#include "support/sandbox.h"

namespace {

TEST(Cards, FailuresMakeTheMaskAndDoNotStopTheOthers) {
    sandbox::Enter();
    sandbox::PrivateDir("/tmp");
    sandbox::Run("ip route add 255.255.255.255 dev lo");
    const Capture capture("lo");
    struct Case {
        int32_t iCard;
        uint32_t ulFailed;
        size_t nSent;
    };
    const Case cases[] = {{-1, 0x6, 2}, {0, 0, 1}, {1, 0x2, 0},         {2, 0x4, 0},
                          {3, 0, 1},    {4, 0, 0}, {40, 0x80000000, 0}, {INT32_MAX, 0, 0}};
    for (const Case &c : cases) {
        iIFNum = c.iCard;
        EXPECT_EQ(c.ulFailed, ErrQIVENSendBroadcastUdp("abc", 3)) << c.iCard;
        // Packets sent on the loopback interface are received again.
        EXPECT_EQ(2 * c.nSent, capture.Take().size()) << c.iCard;
    }
    iIFNum = -1;
    interpose::TakeSyslog();
    interpose::clock = {true, 0, 0, 0, 0, nullptr};
    EXPECT_EQ(-1, TAVOQIVENDumpHost());
    EXPECT_EQ(0, interpose::clock.nWaits);
    EXPECT_EQ(8U, capture.Take().size());
    EXPECT_EQ(std::vector<std::string>{"3|socket/socket_qiven_dump_host(#): ErrQIVENSendQueryPkt() failed!"},
              interpose::TakeSyslog());
    EXPECT_TRUE(std::filesystem::exists("/tmp/tavoqx.list"));
}

}  // namespace
