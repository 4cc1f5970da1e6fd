// All packets of some kinds: the library's reader and the slow reader agree on each.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/same_read.h"

namespace {

TEST(PacketTable, IsTheOneOfTheWireFormat) {
    size_t n = 0;
    for (const QIVEN_FIELD_ATTRIB &attrib : grgfieldAttribs) {
        const auto id = attrib.ulPktId;
        if (attrib.ulType == FIELD_NONE) {
            EXPECT_TRUE(id == 0x4B || id == 0x4C || id == 0x72) << id;
            continue;
        }
        ASSERT_LT(n, std::size(kSlowFields));
        const SlowField &field = kSlowFields[n++];
        const bool blKeep = (id >= 0x12 && id <= 0x15) || (id >= 0x22 && id <= 0x25) || id == 0x1E;
        EXPECT_EQ(field.id, static_cast<int>(id));
        EXPECT_EQ("sia"[attrib.ulType], field.cKind) << std::hex << id;
        EXPECT_EQ(field.cbOffset, attrib.ulOffset) << std::hex << id;
        EXPECT_EQ(field.cbWidth, attrib.cbField) << std::hex << id;
        EXPECT_EQ(blKeep ? QIVENPKT_KEEP_ENDIAN : 0, static_cast<int>(attrib.ulEndian)) << std::hex << id;
        EXPECT_EQ(SlowBasicMask(field.id), attrib.ulBasicMask) << std::hex << id;
    }
    EXPECT_EQ(std::size(kSlowFields), n);
}

struct EveryPacket : testing::Test {
    // One buffer for all packets, directly before an inaccessible page.
    static constexpr size_t kRoom = 512;
    const AtPageEnd m_page{std::string(kRoom, '\0')};
    size_t m_nAccepted = 0;

    void Compare(const std::string &packet) {
        unsigned char *pPacket = m_page.Get() + kRoom - packet.size();
        memcpy(pPacket, packet.data(), packet.size());
        std::string difference;
        const SlowReader slow = ReadBoth({reinterpret_cast<char *>(pPacket), packet.size()}, difference);
        if (!difference.empty()) FAIL() << testing::PrintToString(packet) << difference;
        if (slow.iResult > 0) ++m_nAccepted;
    }
};

TEST_F(EveryPacket, OfOneFieldCutAnywhere) {
    const std::string basic = Basic(), value(255, '\xA5');
    for (int i = 0; i < 0x10000 && !HasFailure(); ++i) {
        const std::string field = Field(i >> 8, value.substr(0, static_cast<size_t>(i & 0xFF)));
        Compare(basic + field);
        // Whatever is missing of a value, readers look at its length only.
        for (const size_t cb : {size_t{0}, size_t{1}, field.size() - 1, field.size()})
            Compare(kPlainHeader + field.substr(0, cb));
    }
    EXPECT_GT(m_nAccepted, 178U * 256);  // unknown fields may have any length
}

// In every order and number: complete, repeated, empty, for packets that need them and those that do not.
TEST_F(EveryPacket, OfUpToFiveBasicFields) {
    const std::string fields[] = {Number(0x01, 2), Number(0x01, 3), Field(0x01, ""), Number(0xA4, 1),
                                  Field(0xA4, ""), Number(0x20, 7), Field(0x20, ""), Field(0x21, "name"),
                                  Field(0x21, ""), Field(0x29, "i")};
    for (int nPackets = 10; nPackets <= 100000; nPackets *= 10) {
        for (int i = 0; i < nPackets && !HasFailure(); ++i) {
            std::string packet = kPlainHeader;
            for (const char c : std::to_string(nPackets + i).substr(1))
                packet += fields[c - '0'];
            Compare(packet);
        }
    }
    EXPECT_GT(m_nAccepted, 10000U);
}

TEST_F(EveryPacket, OneByteAwayFromARichOne) {
    const std::string rich = Basic(3) + Field(0x20, "") + Field(0x21, "name") + Field(0x29, "id") +
                             Field(0x12, "\xC0\xA8\1\2") + Field(0xB0, "12345678") + Field(0x5C, "abc") +
                             Field(0xBC, "one") + Field(0x03, "??") + Field(0xBC, "two") + Field(0xBD, "x") +
                             Field(0x2A, "long") + Field(0x72, "er") + Field(0x4B, "") + Field(0x73, "c0") +
                             Number(0xC6, 0x01020304);
    for (size_t i = 0; i < rich.size() && !HasFailure(); ++i) {
        Compare(rich.substr(0, i));
        for (int iValue = 0; iValue < 256; ++iValue) {
            std::string packet = rich;
            packet[i] = static_cast<char>(iValue);
            Compare(packet);
        }
    }
    EXPECT_GT(m_nAccepted, 10000U);
}

}  // namespace
