#include <qiven/packet.h>
#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "support/slow_reader.h"

namespace {

using Lines = std::vector<std::string>;

std::string Repeat(int n, const std::string &text) {
    return n == 0 ? "" : text + Repeat(n - 1, text);
}
std::string UnknownId(const char *szId, size_t at) {
    return std::string("2|packet:# unknown id: [0x") + szId + "] at offset (" + std::to_string(at) + ")\n";
}
const std::string kVirus = "2|packet:# Maybe some virus try to hack me\n";
const std::string kNoBasic = "2|packet:# Basic is not satifsfied\n";

// Reads a packet that lies before an inaccessible page, and compares everything with the slow reader, whose
// findings it returns.
SlowReader ExpectSame(const std::string &packet) {
    LogCapture log;
    const AtPageEnd page(packet);
    nasinfo record;
    memset(static_cast<void *>(&record), 0x5A, sizeof record);
    const SlowReader slow(packet);
    EXPECT_EQ(slow.iResult,
              QIVENPacketRead(log.Record(), page.Get(), static_cast<int>(packet.size()), &record));
    EXPECT_EQ(slow.messages, LogCapture::Take());
    // Every byte, padding too: both cleared the record. NOLINTNEXTLINE
    EXPECT_EQ(0, memcmp(&slow.record, &record, sizeof record)) << testing::PrintToString(packet);
    return slow;
}

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
    EXPECT_EQ(77U, n);
}

using Text = std::function<std::string(const nasinfo &)>;
const Text HostName = [](const auto &r) { return std::string(r.szHostName); };
const Text LongText = [](const auto &r) { return std::string(r.szLongText); };
const Text FieldC0 = [](const auto &r) { return std::string(r.szField73) + "," + r.szFieldC0; };
const Text TypeAndA4 = [](const auto &r) {
    return std::to_string(r.ulPktType) + "," + std::to_string(r.ulFieldA4);
};
const Text FieldBC = [](const auto &r) {
    return std::string(r.rgszFieldBC[0]) + "," + r.rgszFieldBC[1] + "," + r.rgszFieldBC[31];
};

TEST(PacketReader, WorkedExamples) {
    const auto Fixed = [](const unsigned char *p, size_t cb) { return std::string(p, p + cb); };
    const std::string net = Basic(3) + Number(0x20, 1) + Field(0x21, "n");
    const std::string full = Basic() + Repeat(62, Field(0x11, "x"));
    const std::string chunk = Field(0x72, std::string(255, 'c'));
    const std::string longText = Basic() + Field(0x2A, std::string(255, 'c')) + Repeat(5, chunk);
    const std::string elements = Basic() + Repeat(31, Field(0xBC, "e"));
    const std::string last = Field(0xBC, "z");
    const struct {
        const char *szName;
        std::string packet;
        bool blAccepted;
        Lines messages{};
        Text pfnText{};
        std::string text{};
    } cases[] = {
        // clang-format off
        {"VQX20", Fixed(stQIVENBroadCastVQX20, QIVENBroadCastSizeVQX20), true, {}, TypeAndA4, "1,16908288"},
        {"ten bytes", Fixed(stQIVENBroadCast, QIVENBroadCastSize), false, {UnknownId("00", 0), kNoBasic}},
        {"empty", "", false},
        {"other header", "\x12\x34\x55\x66TAVO" + Basic().substr(8), false},
        {"no 0xA4", kPlainHeader + Number(0x01, 1), false, {kNoBasic}},
        {"net setting", net, false, {"1|packet:# not enough fields for netsetting 0xF\n"}, HostName, "n"},
        {"net complete", net + Field(0x29, "i"), true, {}, HostName, "n"},
        {"net, empty 0x21", Basic(3) + Field(0x11, "abc") + Field(0x20, "") + Field(0x21, "") + Field(0x29, ""), true, {}, HostName, "abc"},
        {"65 known", full + Field(0x11, "y"), false, {kVirus}},
        {"65 continuations", full + Field(0x72, "y"), false, {kVirus}},
        {"32 elements", elements + last, true, {}, FieldBC, "e,e,z"},
        {"33 elements", elements + last + last, false},
        {"run kept", Basic() + Field(0xBC, "1") + Field(0xA1, "") + last, true, {}, FieldBC, "1,z,"},
        {"1535", longText + Field(0x72, "12345"), true, {}, LongText, std::string(1530, 'c') + "12345"},
        {"1536", longText + Field(0x72, "123456"), false},
        {"chunk alone", Basic() + Field(0x72, "tail"), true, {}, LongText, "tail"},
        {"too long unknown", Basic() + "\x03\x09" + Field(0x11, "in"), true, {UnknownId("03", 12)}, HostName, "in"},
        {"cut unknown", Basic() + "\x03", false, {UnknownId("03", 12)}},
        {"cut A1", Basic() + "\xA1", false},
        {"cut known", Basic() + "\x11", false, {Invalid("packet", "0 < cbPKTInput")}},
        {"no room for NUL", Basic() + Field(0x5C, "1234"), false},
        {"short integer", Basic() + Field(0x48, "123"), false},
        {"C0 from 73", Basic() + Field(0x73, "longer") + Field(0x73, "x1"), true, {}, FieldC0, "x1,x1"},
        {"own C0", Basic() + Field(0xC0, "c") + Field(0x73, "x1"), true, {}, FieldC0, "x1,c"},
        // clang-format on
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.szName);
        const SlowReader read = ExpectSame(c.packet);
        EXPECT_EQ(c.blAccepted ? static_cast<int>(c.packet.size()) - 8 : 0, read.iResult);
        EXPECT_EQ(c.messages, read.messages);
        EXPECT_EQ(c.text, c.pfnText ? c.pfnText(read.record) : "");
    }
}

// As much as one packet can show: integers, texts, two array runs, continuations, unknown fields.
std::string RichPacket() {
    std::string packet = Basic(3);
    for (const SlowField &field : kSlowFields) {
        if (field.id == 0x01 || field.id == 0xA4 || (field.id > 0x54 && field.id < 0x5C)) continue;
        if (field.id < 0x20 && field.id != 0x12) continue;
        std::string value = "v\x01\x02-\xFEw7\x80";
        value.resize(field.cKind == 'i' ? field.cbWidth : std::min<size_t>(field.cbWidth - 1, 6));
        packet += Field(field.id, value);
        if (field.id == 0x2A) packet += Field(0x72, "more") + Field(0x03, "??");
        if (field.id == 0xBC) packet += Field(0xBC, "second");
    }
    return packet;
}

TEST(PacketReader, EveryTruncationAndEveryByteOfARichPacketChanged) {
    const std::string rich = RichPacket();
    EXPECT_EQ(static_cast<int>(rich.size()) - 8, ExpectSame(rich).iResult);
    for (size_t i = 0; i < rich.size() && !HasFailure(); ++i) {
        ExpectSame(rich.substr(0, i));
        for (const int iChange : {0x01, 0x02, 0x10, 0x80, 0xFF}) {
            std::string packet = rich;
            packet[i] = static_cast<char>(packet[i] ^ iChange);
            ExpectSame(packet);
        }
    }
}

TEST(PacketReader, RandomPackets) {
    std::mt19937 random(20240229);  // the same packets every time. NOLINT(cert-msc32-c,cert-msc51-cpp)
    const auto Draw = [&random](size_t n) { return random() % n; };
    int nAccepted = 0;
    for (int i = 0; i < 4000 && !HasFailure(); ++i) {
        std::string packet = Basic(static_cast<uint32_t>(Draw(4)));
        for (size_t n = Draw(1 + Draw(75)); n > 0; --n) {
            const SlowField &field = kSlowFields[Draw(8) == 0 ? 66 : Draw(std::size(kSlowFields))];
            const size_t cbFitting =
                field.cKind == 'i' ? field.cbWidth : Draw(std::min<size_t>(field.cbWidth, 256));
            std::string value(Draw(150) == 0 ? Draw(256) : Draw(9) == 0 ? 0 : cbFitting, 'a');
            for (char &c : value)
                c = static_cast<char>(Draw(40) == 0 ? 0 : Draw(256));
            packet += Field(Draw(12) == 0   ? 0x72
                            : Draw(12) == 0 ? static_cast<int>(Draw(256))
                                            : field.id,
                            value);
        }
        if (Draw(4) == 0) packet.resize(packet.size() - Draw(9));
        nAccepted += ExpectSame(packet).iResult > 0 ? 1 : 0;
    }
    EXPECT_GT(nAccepted, 1000);  // so that the comparison is not one of refusals
}

}  // namespace
