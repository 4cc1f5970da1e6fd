// The plain and the sealed writer, the request list, and the sealed reader.
#include <qiven/keys.h>
#include <qiven/packet.h>
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sodium.h>

#include <memory>

#include "support/failing_calls.h"
#include "support/log_capture.h"
#include "support/wire.h"

namespace {

using Lines = std::vector<std::string>;
using namespace std::string_literals;

struct PacketWriter : testing::Test {
    LogCapture m_log;
    const QIVEN_LOG *m_pLog = m_log.Record();
    nasinfo m_record{};
    QIVEN_SEND m_send{&m_record, 0, {}};
    std::unique_ptr<char, decltype(&free)> m_buffer{nullptr, free};
    int m_cbBuffer = 0;

    void List(const std::vector<unsigned int> &ids) {
        m_send.nPktID = static_cast<int>(ids.size());
        std::copy(ids.begin(), ids.end(), m_send.rgPktID);
    }
    // The packet, or "" after a failure, which must leave the buffer as it was (holding the byte '.').
    std::string Write(int cbBuffer = QIVEN_PACKET_MAX, const char *szKey = nullptr) {
        const std::string before(static_cast<size_t>(cbBuffer), '.');
        char *pBuffer = strdup(before.c_str());
        auto *pPlain = reinterpret_cast<unsigned char *>(pBuffer);
        m_cbBuffer = cbBuffer;
        const int cb = szKey == nullptr
                           ? QIVENPacketWrite(m_pLog, &pPlain, &m_cbBuffer, &m_send)
                           : QIVENPacketWriteEncrypted(m_pLog, &pBuffer, &m_cbBuffer, &m_send, szKey);
        m_buffer.reset(szKey == nullptr ? reinterpret_cast<char *>(pPlain) : pBuffer);
        const std::string all(m_buffer.get(), static_cast<size_t>(m_cbBuffer));
        if (cb <= 0 && szKey == nullptr) {
            EXPECT_EQ(before, all);
        }
        return all.substr(0, static_cast<size_t>(cb));
    }
    // Lists fields for a plain packet of an exact length: full fields, and two that share the rest.
    void ListExactly(size_t cbPacket) {
        std::vector<unsigned int> ids((cbPacket - 8) / 257 - 1, 0x52);
        const size_t cbLeft = cbPacket - 8 - 257 * ids.size();
        m_record = {};
        memset(m_record.szField52, 'x', 255);
        memset(m_record.szField4A, 'y', cbLeft / 2 - 2);
        memset(m_record.szField53, 'z', cbLeft - cbLeft / 2 - 2);
        ids.insert(ids.end(), {0x4A, 0x53});
        List(ids);
    }
};

constexpr auto Open = QIVENPacketReadEncrypted;

std::string Fail(const char *szId) {
    return std::string("1|packet:# fail to write [0x") + szId + "]!\n";
}

TEST_F(PacketWriter, WhatCannotBeListedOrWritten) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(-1, QIVENSendPktIDSet(m_pLog, &m_send, 0x03, "....", 4));
    EXPECT_EQ("unknown PKT-ID: [0x3]\n", testing::internal::GetCapturedStdout());
    EXPECT_EQ(Lines{}, LogCapture::Take());
    for (const auto &[uId, messages] :
         {std::pair{0x1FFU, Lines{"1|packet:# unknown PKT-ID: [0x1FF]\n", Fail("1FF")}},
          {0x5DU, {Fail("5D")}}}) {  // a text without its NUL
        memset(m_record.szField5D, 'x', sizeof m_record.szField5D);
        List({uId});
        EXPECT_EQ("", Write());
        EXPECT_EQ(messages, LogCapture::Take());
    }
}

// One record and its bytes, whatever the byte order and the word size of the machine.
TEST_F(PacketWriter, TheSameBytesOnEveryMachine) {
    m_record.ulPktType = QIVEN_PKT_ANSWER;
    m_record.ulFieldA4 = 0x01020304;
    m_record.ulModel = 0xA1B2C3D4;
    m_record.ullServSupp0 = 0x1122334455667788;
    m_record.ulIP = inet_addr("192.168.1.2");
    m_record.ulArrayCount = 3;
    strcpy(m_record.szHostName, "nas");
    strcpy(m_record.rgszFieldBC[0], "one");
    strcpy(m_record.rgszFieldBC[2], "three");
    const std::string packet = kPlainHeader +
                               "\1\4\2\0\0\0\xA4\4\4\3\2\1\x48\4\xD4\xC3\xB2\xA1"
                               "\xB0\x8\x88\x77\x66\x55\x44\x33\x22\x11\x12\4\xC0\xA8\1\2"
                               "\xBB\4\3\0\0\0\x11\3nas\xBC\3one\xBC\5three"s;
    List({0x01, 0xA4, 0x48, 0xB0, 0x12, 0xBB, 0x11, 0xBC});
    EXPECT_EQ(packet, Write());
}

TEST_F(PacketWriter, GrowsTheBufferToThePacketAndNotOver8192Bytes) {
    List({0x11});
    EXPECT_EQ(kPlainHeader + "\x11\0"s, Write(0));
    EXPECT_EQ(10, m_cbBuffer);
    ListExactly(8192);
    EXPECT_EQ(8192U, Write().size());
    ListExactly(8193);
    EXPECT_EQ("", Write());
    EXPECT_EQ(Lines{Fail("53")}, LogCapture::Take());
    ListExactly(8190);
    memset(m_record.szLongText, 'x', 1);
    m_send.rgPktID[m_send.nPktID++] = 0x2A;
    EXPECT_EQ("", Write());
    EXPECT_EQ(Lines{"1|packet:# fail to write!\n"}, LogCapture::Take());
}

struct SealedPacket : PacketWriter {
    SealedPacket() { MakeKeys(); }
    ~SealedPacket() override { QIVENProcessKeyCleanup(); }
    void MakeKeys() {
        QIVENProcessKeyCleanup();
        ASSERT_EQ(0, QIVENProcessKeyInit());
        sodium_bin2hex(m_szKey, sizeof m_szKey, QIVENProcessPublicKeyGet(), QIVEN_KEY_SIZE);
    }
    int Read(const std::string &packet) {
        const AtPageEnd page(packet);
        return Open(m_pLog, page.Get(), static_cast<int>(packet.size()), &m_back);
    }
    nasinfo m_back{};
    char m_szKey[QIVEN_KEY_HEX_SIZE];
};

TEST_F(SealedPacket, SizesAndGrowth) {
    for (const auto &[nPlain, cbBuffer] : {std::pair{600, 10}, {600, 700}, {8136, 100}, {8137, 8192}}) {
        ListExactly(static_cast<size_t>(nPlain));
        const int cbSealed = nPlain + 8 + QIVEN_SEAL_OVERHEAD;
        EXPECT_EQ(cbSealed > 8192 ? 0 : cbSealed, static_cast<int>(Write(cbBuffer, m_szKey).size()));
        EXPECT_EQ(std::min(8192, std::max(cbBuffer, cbSealed)), m_cbBuffer);
        const std::string needed = std::to_string(cbSealed);
        Lines expected = {"2|packet:# pcbPKTOutput " + std::to_string(std::max(cbBuffer, nPlain)) +
                          " cbWrittenPlain " + std::to_string(nPlain) + " needed " + needed + "\n"};
        if (cbSealed > 8192) expected.push_back("2|packet:# Required size " + needed + " too big\n");
        EXPECT_EQ(expected, LogCapture::Take());
    }
}

TEST_F(SealedPacket, WhatCannotBeSealed) {
    List({0x4B});
    EXPECT_EQ("", Write(100, m_szKey));
    EXPECT_EQ((Lines{Fail("4B"), "1|packet:# FAILED to write plain packet\n"}), LogCapture::Take());
    List({0x11});
    const std::string key = m_szKey;
    for (const std::string &bad :
         {key.substr(0, 62), key + "00", "g" + key.substr(1), std::string(64, '0')}) {
        EXPECT_EQ("", Write(100, bad.c_str())) << bad;
        EXPECT_EQ(kPlainHeader + "\x11\0"s, std::string(m_buffer.get(), m_buffer.get() + 10));
        EXPECT_EQ("1|packet:# FAILED to encrypt\n", LogCapture::Take().back());
    }
}

TEST_F(SealedPacket, OpensForItsAskerAlone) {
    m_record.ulPktType = 2;
    strcpy(m_record.szHostName, "sealed");
    List({0x01, 0xA4, 0x11});
    const std::string packet = Write(QIVEN_PACKET_MAX, m_szKey);
    EXPECT_EQ(kSealedHeader, packet.substr(0, 8));
    EXPECT_EQ(20, Read(packet));
    EXPECT_STREQ("sealed", m_back.szHostName);
    LogCapture::Take();
    MakeKeys();
    EXPECT_EQ(0, Read(packet));
    EXPECT_EQ(Lines{"2|packet:# Failed to decrypt packet\n"}, LogCapture::Take());
    QIVENProcessKeyCleanup();
    EXPECT_EQ(0, Read(packet));
    EXPECT_EQ(Lines{"2|packet:# No key to decrypt"}, LogCapture::Take());
    EXPECT_EQ(20, Read(Basic() + "\x11\6abcdef"));  // plain packets need no key
}

TEST_F(SealedPacket, ReadingAllocatesNothing) {
    m_record.ulPktType = 2;
    List({0x01, 0xA4, 0x11});
    for (const char *szKey : {static_cast<const char *>(nullptr), static_cast<const char *>(m_szKey)}) {
        for (const char *szMore : {"", "\x01"}) {
            const std::string packet = Write(QIVEN_PACKET_MAX, szKey) + szMore;
            FailingCallsArm("memory", 1, ENOMEM);
            const int iResult = Open(nullptr, reinterpret_cast<const unsigned char *>(packet.data()),
                                     static_cast<int>(packet.size()), &m_back);
            EXPECT_FALSE(FailingCallsDisarm());
            EXPECT_EQ(*szMore == '\0', iResult > 0);
        }
    }
}

}  // namespace
