#include "packets.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>

namespace bench {

namespace {

// A slot and the length of its text, 0 for an integer.
struct Value {
    unsigned int ulPktId;
    size_t cbText;
};

constexpr Value kTypical[] = {{0x01, 0},  {0xA4, 0}, {0x11, 11}, {0x12, 0},  {0x13, 0}, {0x14, 0},  {0x18, 0},
                              {0x19, 12}, {0x48, 0}, {0x49, 0},  {0x50, 11}, {0x51, 9}, {0x70, 24}, {0x75, 0},
                              {0x76, 0},  {0x77, 5}, {0x78, 18}, {0x7C, 17}, {0xB0, 0}, {0xB8, 0}};
constexpr Value kOften[] = {{0x10, 0},  {0x15, 0}, {0x1E, 0}, {0x1F, 0}, {0x54, 0}, {0x55, 0}, {0x7F, 20},
                            {0xA2, 14}, {0xA3, 0}, {0xA7, 0}, {0xC0, 9}, {0x7E, 4}, {0x4D, 0}};
constexpr Value kFields64[] = {{0x01, 0},   {0xA4, 0},    {0xBB, 0},   {0x11, 35},  {0x19, 35},
                               {0x7C, 35},  {0x2A, 1535}, {0x52, 255}, {0x53, 255}, {0x4A, 255},
                               {0x56, 127}, {0x57, 127},  {0x58, 127}, {0x59, 127}, {0x5A, 127},
                               {0x5B, 127}, {0x50, 19},   {0x51, 19},  {0x70, 67},  {0xC4, 64},
                               {0xA2, 35},  {0x78, 47},   {0x7F, 47},  {0xBC, 32},  {0xBD, 3}};

using Random = std::mt19937;

const QIVEN_FIELD_ATTRIB &Attrib(unsigned int ulPktId) {
    for (const QIVEN_FIELD_ATTRIB &attrib : grgfieldAttribs) {
        if (attrib.ulPktId == ulPktId) return attrib;
    }
    Fail("no such field");
}

size_t Below(Random &random, size_t n) {
    return random() % n;
}

void PutText(Random &random, char *szSlot, size_t cb) {
    for (size_t i = 0; i < cb; ++i)
        szSlot[i] = static_cast<char>('a' + Below(random, 26));
}

void Put(Random &random, Packet &packet, const Value &value) {
    const QIVEN_FIELD_ATTRIB &attrib = Attrib(value.ulPktId);
    char *pSlot = reinterpret_cast<char *>(packet.record.get()) + attrib.ulOffset;
    if (attrib.ulType == FIELD_INTEGER) {
        for (size_t i = 0; i < attrib.cbField; ++i)
            pSlot[i] = static_cast<char>(1 + Below(random, 255));
    } else if (attrib.ulType == FIELD_STRING) {
        PutText(random, pSlot, value.cbText);
    } else {
        for (size_t i = 0; i < value.cbText; ++i)
            PutText(random, pSlot + i * attrib.cbField, attrib.cbField - 1);
    }
    packet.send.rgPktID[packet.send.nPktID++] = value.ulPktId;
}

// Maps the bytes of the packet to the record, by walking the packet.
void ListCopies(Packet &packet) {
    size_t cbLong = 0;
    unsigned int ulLast = 0;
    size_t nElement = 0;
    const auto &bytes = packet.bytes;
    for (size_t at = QIVENHeaderSize; at < bytes.size();
         at += 2 + static_cast<unsigned char>(bytes[at + 1])) {
        const unsigned int ulPktId = static_cast<unsigned char>(bytes[at]);
        const size_t cb = static_cast<unsigned char>(bytes[at + 1]);
        const bool blLong = ulPktId == PKT_ID_LONG_TEXT || ulPktId == PKT_ID_CONTINUATION;
        const QIVEN_FIELD_ATTRIB &attrib = Attrib(blLong ? PKT_ID_LONG_TEXT : ulPktId);
        nElement = ulPktId == ulLast ? nElement + 1 : 0;
        ulLast = ulPktId;
        const size_t cbWithin = blLong                         ? cbLong
                                : attrib.ulType == FIELD_ARRAY ? nElement * attrib.cbField
                                                               : 0;
        packet.copies.push_back({attrib.ulOffset + cbWithin, at + 2, cb});
        if (blLong) cbLong += cb;
    }
}

Packet Make(Random &random, std::span<const Value> values) {
    Packet packet;
    packet.send.pnasInfo = packet.record.get();
    for (const Value &value : values)
        Put(random, packet, value);
    packet.record->ulPktType = QIVEN_PKT_ANSWER;
    if (packet.record->ulArrayCount != 0) packet.record->ulArrayCount = QIVEN_ARRAY_MAX;
    // The reader copies 0x73 if 0xC0 is absent.
    if (packet.record->szFieldC0[0] == '\0')
        memcpy(packet.record->szFieldC0, packet.record->szField73, sizeof packet.record->szField73);

    auto *pBuffer = static_cast<unsigned char *>(malloc(QIVEN_PACKET_MAX));
    int cbBuffer = QIVEN_PACKET_MAX;
    const int cb = QIVENPacketWrite(nullptr, &pBuffer, &cbBuffer, &packet.send);
    packet.bytes.assign(reinterpret_cast<char *>(pBuffer), static_cast<size_t>(std::max(cb, 0)));
    free(pBuffer);
    if (cb <= 0) Fail("a packet cannot be written");
    ListCopies(packet);
    return packet;
}

Packets MakeMixed() {
    constexpr size_t nPackets = 128;
    Random random(2);
    Packets packets;
    while (packets.size() < nPackets) {
        std::vector<Value> values(std::begin(kTypical), std::end(kTypical));
        for (const Value &value : kOften) {
            if (Below(random, 3) == 0) values[2 + Below(random, values.size() - 2)] = value;
        }
        for (Value &value : values) {
            if (value.cbText > 2) value.cbText = 1 + Below(random, value.cbText + 2);
            value.cbText = std::min<size_t>(value.cbText, Attrib(value.ulPktId).cbField - 1);
            if (Attrib(value.ulPktId).ulType == FIELD_INTEGER) value.cbText = 0;
        }
        std::shuffle(values.begin(), values.end(), random);
        packets.push_back(Make(random, values));
    }
    return packets;
}

Packets MakeQuery() {
    Random random(1);
    Packet packet = Make(random, std::vector<Value>{{0x01, 0}, {0xA4, 0}});
    packet.bytes.assign(reinterpret_cast<const char *>(stQIVENBroadCastV11), QIVENBroadCastSizeV11);
    QIVENPacketRead(nullptr, stQIVENBroadCastV11, sizeof stQIVENBroadCastV11, packet.record.get());
    return {packet};
}

}  // namespace

const Packets &Query() {
    static const Packets packets = MakeQuery();
    return packets;
}
const Packets &Typical() {
    static Random random(3);
    static const Packets packets{Make(random, kTypical)};
    return packets;
}
const Packets &Mixed() {
    static const Packets packets = MakeMixed();
    return packets;
}
const Packets &Fields64() {
    static Random random(4);
    static const Packets packets{Make(random, kFields64)};
    return packets;
}

Packet Sized(size_t cb) {
    Random random(5);
    std::vector<Value> values{{0x01, 0}, {0xA4, 0}};
    // One text as often as it fits, and another one for the rest.
    constexpr size_t kFieldMax = 257;
    const size_t cbFixed = QIVENHeaderSize + 12;
    for (size_t cbLeft = cb - cbFixed; cbLeft > 0;) {
        const bool blTooSmallRest = cbLeft > kFieldMax && cbLeft < kFieldMax + 3;
        const size_t cbField = blTooSmallRest ? cbLeft / 2 : std::min(cbLeft, kFieldMax);
        if (values.size() > 2 && cbField != values[2].cbText + 2)
            values.push_back({0x53, cbField - 2});
        else
            values.push_back({0x52, cbField - 2});
        cbLeft -= cbField;
    }
    Packet packet = Make(random, values);
    if (packet.bytes.size() != cb) Fail("a packet has another size");
    return packet;
}

void DemandEqual(const nasinfo &left, const nasinfo &right, const char *szWho) {
    if (memcmp(&left, &right, sizeof left) != 0) Fail(std::string(szWho) + " makes another record");
}

void Fail(const std::string &what) {
    fprintf(stderr, "bench: %s\n", what.c_str());
    exit(1);
}

}  // namespace bench
