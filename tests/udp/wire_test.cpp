// The packets that the client and the query broadcast send.
#include <qiven/keys.h>
#include <qiven/search.h>
#include <qiven/udp.h>
#include <gtest/gtest.h>
#include <sodium.h>

#include "support/capture.h"
#include "support/interpose.h"
#include "support/log_capture.h"
#include "support/sandbox.h"

namespace {

using Lines = std::vector<std::string>;

constexpr char kEverybody[] = "255.255.255.255:9999";

struct Request {
    nasinfo record{};
    QIVEN_SEND send{&record, 2, {0x01, 0xA4}};
    QIVEN_CONN conn{"255.255.255.255", QIVEN_PORT, 0, nullptr, nullptr};
    int Send(uint32_t ulPktType) {
        record.ulPktType = ulPktType;
        return QIVENUDPClient(&conn, &send);
    }
};

nasinfo Open(const std::string &payload) {
    nasinfo record{};
    const auto *pPacket = reinterpret_cast<const unsigned char *>(payload.data());
    const int cb = QIVENPacketReadEncrypted(nullptr, pPacket, static_cast<int>(payload.size()), &record);
    return cb > 0 ? record : nasinfo{};
}

std::string OwnKey() {
    char szKey[QIVEN_KEY_HEX_SIZE];
    return sodium_bin2hex(szKey, sizeof szKey, QIVENProcessPublicKeyGet(), QIVEN_KEY_SIZE);
}

void AddTwoCards() {
    sandbox::Enter();
    sandbox::PrivateDir("/etc");
    sandbox::AddEthernet("eth0", "02:00:00:00:00:01", "10.0.0.1/24 brd +");
    sandbox::AddEthernet("eth1", "02:00:00:00:00:0b", "10.0.1.1/24 brd +");
}

TEST(Wire, AQueryLeavesByEachActiveInterfaceAndOnceUnbound) {
    AddTwoCards();
    sandbox::AddEthernet("eth2", "02:00:00:00:00:03");
    sandbox::Run("ip route add default via 10.0.0.254");
    ASSERT_EQ(0, QIVENProcessKeyInit());
    const Capture capture;
    Request request;
    request.record.ulPeerProcessID = 7;  // only answers are sealed
    EXPECT_EQ(0, request.Send(QIVEN_PKT_QUERY));
    EXPECT_EQ(0, request.Send(QIVEN_PKT_QUERY));
    const QIVEN_SEND &send = request.send;
    EXPECT_EQ((std::vector<uint32_t>{0x01, 0xA4, 0x7C, 0xC4, 0xC5}),
              std::vector<uint32_t>(send.rgPktID, send.rgPktID + send.nPktID));
    const std::vector<Datagram> seen = capture.Take();
    ASSERT_EQ(6U, seen.size());
    for (size_t i = 0; i < seen.size(); ++i) {
        const bool blUnbound = i % 3 == 2;
        const nasinfo record = Open(seen[i].payload);
        EXPECT_EQ(i % 3 == 1 ? "10.0.1.1" : "10.0.0.1", seen[i].address);
        EXPECT_EQ(blUnbound, seen[i].iPort != QIVEN_SOURCE_PORT);
        EXPECT_EQ(kEverybody, seen[i].to);
        EXPECT_STREQ(i % 3 == 0 ? "02:00:00:00:00:01" : "02:00:00:00:00:0b", record.szMacAddr);
        EXPECT_EQ(OwnKey(), record.szPubKeyHex);
        EXPECT_EQ(QIVENProcessGetID(), record.ulProcessID);
        EXPECT_TRUE(!blUnbound || seen[i].payload == seen[i - 1].payload);
    }
    QIVENProcessKeyCleanup();
}

TEST(Wire, ASealedAnswerOpensForItsAskerOnly) {
    AddTwoCards();
    LogCapture log;
    const Capture capture;
    static int nAsked;
    Request answer;
    answer.conn.pfnCancel = [] { return nAsked++; };
    EXPECT_EQ(-1, answer.Send(QIVEN_PKT_ANSWER));  // cancelled before the second interface
    EXPECT_EQ(1U, capture.Take().size());
    answer.conn.pfnCancel = nullptr;
    answer.conn.pLog = log.Record();
    snprintf(answer.record.szHostIdent, sizeof answer.record.szHostIdent, "asker");
    answer.record.ulPeerProcessID = 0xBEEF;
    EXPECT_EQ(0, answer.Send(QIVEN_PKT_ANSWER));  // without process keys all packets are plain
    for (const Datagram &datagram : capture.Take())
        EXPECT_EQ(0U, Open(datagram.payload).ulProcessID);

    ASSERT_EQ(0, QIVENProcessKeyInit());
    log.Take();
    EXPECT_EQ(-1, answer.Send(QIVEN_PKT_ANSWER));
    EXPECT_EQ("1|udp:# fail to find key for asker+0000beef.\n", log.Take().back());
    EXPECT_EQ(0U, capture.Take().size());

    ASSERT_EQ(0, QIVENAddKey("asker", 0xBEEF, OwnKey().c_str()));
    EXPECT_EQ(0, answer.Send(QIVEN_PKT_ANSWER));
    const std::vector<Datagram> seen = capture.Take();
    ASSERT_EQ(2U, seen.size());
    EXPECT_EQ(0, memcmp(seen[0].payload.data(), stQIVENHeaderEncrypted, QIVENHeaderSizeEncrypted));
    EXPECT_EQ(uint32_t{QIVEN_PKT_ANSWER}, Open(seen[1].payload).ulPktType);
    EXPECT_STREQ("02:00:00:00:00:0b", Open(seen[1].payload).szMacAddr);
    EXPECT_EQ(QIVENProcessGetID(), Open(seen[1].payload).ulProcessID);
    QIVENProcessKeyCleanup();
    ASSERT_EQ(0, QIVENProcessKeyInit());  // a different process
    EXPECT_EQ(0U, Open(seen[1].payload).ulPktType);
}

TEST(Wire, TheSearchBroadcastsItsQueryTwiceByEachCard) {
    AddTwoCards();
    sandbox::AddEthernet("eth2", "02:00:00:00:00:03");
    const std::string query(reinterpret_cast<const char *>(stQIVENBroadCastVQX20), 20);
    const Capture capture;
    const struct {
        int32_t iCard;
        uint32_t ulFailed;
        Lines senders;
    } cases[] = {{-1, 4, {"10.0.0.1", "10.0.1.1", "10.0.0.1", "10.0.1.1"}},
                 {1, 0, {"10.0.1.1", "10.0.1.1"}},
                 {2, 4, {}}};
    for (const auto &c : cases) {
        iIFNum = c.iCard;
        EXPECT_EQ(c.ulFailed, ErrQIVENSendQueryPkt());
        Lines senders;
        for (const Datagram &datagram : capture.Take()) {
            senders.push_back(datagram.address);
            EXPECT_EQ(kEverybody, datagram.to);
            EXPECT_EQ(query, datagram.payload);
        }
        EXPECT_EQ(c.senders, senders) << c.iCard;
        const std::string warning =
            "4|socket/socket_qiven_send_broadcast_udp:# Interface specified: eth" + std::to_string(c.iCard);
        EXPECT_EQ(c.iCard == -1 ? Lines{} : (Lines{warning, warning}), interpose::TakeSyslog());
    }
    iIFNum = -1;
}

}  // namespace
