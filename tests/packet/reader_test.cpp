#include <qiven/packet.h>
#include <gtest/gtest.h>

#include <functional>

#include "support/same_read.h"

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

// The slow reader's findings, which must be the library's.
SlowReader ExpectSame(const std::string &packet) {
    const AtPageEnd page(packet);
    std::string difference;
    const SlowReader slow = ReadBoth({reinterpret_cast<char *>(page.Get()), packet.size()}, difference);
    EXPECT_EQ("", difference);
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

}  // namespace
