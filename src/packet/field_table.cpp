// The field table, and what is derived from it at compile time.
#include "packet/field_table.h"

#include <qiven/packet.h>

#include <cstddef>

// Offset and width of a slot are taken from the record, so that they always agree with it.
#define NUMBER(field) offsetof(nasinfo, field), sizeof(nasinfo::field)
#define TEXT(field) offsetof(nasinfo, field), sizeof(nasinfo::field)
#define TEXTS(field) offsetof(nasinfo, field), sizeof(nasinfo::field[0])

constexpr QIVEN_FIELD_ATTRIB grgfieldAttribs[QIVEN_FIELD_COUNT] = {
    {PKT_ID_PKT_TYPE, FIELD_INTEGER, NUMBER(ulPktType), QIVENPKT_LITTLE_ENDIAN, 0x01},
    {0x10, FIELD_INTEGER, NUMBER(ulField10), QIVENPKT_LITTLE_ENDIAN, 0},
    {PKT_ID_HOST_NAME, FIELD_STRING, TEXT(szHostName), 0, 0},
    {PKT_ID_IP, FIELD_INTEGER, NUMBER(ulIP), QIVENPKT_KEEP_ENDIAN, 0},
    {PKT_ID_ADDR_13, FIELD_INTEGER, NUMBER(ulAddr13), QIVENPKT_KEEP_ENDIAN, 0},
    {0x14, FIELD_INTEGER, NUMBER(ulAddr14), QIVENPKT_KEEP_ENDIAN, 0},
    {0x15, FIELD_INTEGER, NUMBER(ulAddr15), QIVENPKT_KEEP_ENDIAN, 0},
    {0x18, FIELD_INTEGER, NUMBER(ulField18), QIVENPKT_LITTLE_ENDIAN, 0},
    {PKT_ID_HOST_IDENT, FIELD_STRING, TEXT(szHostIdent), 0, 0},
    {0x1A, FIELD_STRING, TEXT(szLongText), 0, 0},
    {0x1E, FIELD_INTEGER, NUMBER(ulAddr1E), QIVENPKT_KEEP_ENDIAN, 0},
    {0x1F, FIELD_INTEGER, NUMBER(ulField1F), QIVENPKT_LITTLE_ENDIAN, 0},
    {0x20, FIELD_INTEGER, NUMBER(ulField10), QIVENPKT_LITTLE_ENDIAN, 0x04},
    {0x21, FIELD_STRING, TEXT(szHostName), 0, 0x08},
    {0x22, FIELD_INTEGER, NUMBER(ulIP), QIVENPKT_KEEP_ENDIAN, 0},
    {0x23, FIELD_INTEGER, NUMBER(ulAddr13), QIVENPKT_KEEP_ENDIAN, 0},
    {0x24, FIELD_INTEGER, NUMBER(ulAddr14), QIVENPKT_KEEP_ENDIAN, 0},
    {0x25, FIELD_INTEGER, NUMBER(ulAddr15), QIVENPKT_KEEP_ENDIAN, 0},
    {0x29, FIELD_STRING, TEXT(szHostIdent), 0, 0x10},
    {PKT_ID_LONG_TEXT, FIELD_STRING, TEXT(szLongText), 0, 0},
    {PKT_ID_MODEL, FIELD_INTEGER, NUMBER(ulModel), QIVENPKT_LITTLE_ENDIAN, 0},
    {PKT_ID_FIELD_49, FIELD_INTEGER, NUMBER(ulField49), QIVENPKT_LITTLE_ENDIAN, 0},
    {0x4A, FIELD_STRING, TEXT(szField4A), 0, 0},
    {0x4B, FIELD_NONE, 0, 0, 0, 0},
    {0x4C, FIELD_NONE, 0, 0, 0, 0},
    {0x4D, FIELD_INTEGER, NUMBER(ulField4D), QIVENPKT_LITTLE_ENDIAN, 0},
    {0x50, FIELD_STRING, TEXT(szField50), 0, 0},
    {0x51, FIELD_STRING, TEXT(szField51), 0, 0},
    {0x52, FIELD_STRING, TEXT(szField52), 0, 0},
    {0x53, FIELD_STRING, TEXT(szField53), 0, 0},
    {0x54, FIELD_INTEGER, NUMBER(ulField54), QIVENPKT_LITTLE_ENDIAN, 0},
    {0x55, FIELD_INTEGER, NUMBER(ulField55), QIVENPKT_LITTLE_ENDIAN, 0},
    {0x56, FIELD_STRING, TEXT(szField56), 0, 0},
    {0x57, FIELD_STRING, TEXT(szField57), 0, 0},
    {0x58, FIELD_STRING, TEXT(szField58), 0, 0},
    {0x59, FIELD_STRING, TEXT(szField59), 0, 0},
    {0x5A, FIELD_STRING, TEXT(szField5A), 0, 0},
    {0x5B, FIELD_STRING, TEXT(szField5B), 0, 0},
    {0x5C, FIELD_STRING, TEXT(szField5C), 0, 0},
    {0x5D, FIELD_STRING, TEXT(szField5D), 0, 0},
    {0x60, FIELD_INTEGER, NUMBER(ulField60), QIVENPKT_LITTLE_ENDIAN, 0},
    {0x70, FIELD_STRING, TEXT(szField70), 0, 0},
    {0x71, FIELD_INTEGER, NUMBER(ulField71), QIVENPKT_LITTLE_ENDIAN, 0},
    {PKT_ID_CONTINUATION, FIELD_NONE, 0, 0, 0, 0},
    {0x73, FIELD_STRING, TEXT(szField73), 0, 0},
    {0x75, FIELD_INTEGER, NUMBER(ulField75), QIVENPKT_LITTLE_ENDIAN, 0},
    {0x76, FIELD_INTEGER, NUMBER(ulField76), QIVENPKT_LITTLE_ENDIAN, 0},
    {0x77, FIELD_STRING, TEXT(szField77), 0, 0},
    {0x78, FIELD_STRING, TEXT(szField78), 0, 0},
    {0x79, FIELD_INTEGER, NUMBER(ulField79), QIVENPKT_LITTLE_ENDIAN, 0},
    {0x7B, FIELD_INTEGER, NUMBER(ulField7B), QIVENPKT_LITTLE_ENDIAN, 0},
    {PKT_ID_MAC_ADDR, FIELD_STRING, TEXT(szMacAddr), 0, 0},
    {0x7D, FIELD_INTEGER, NUMBER(ulField7D), QIVENPKT_LITTLE_ENDIAN, 0},
    {0x7E, FIELD_STRING, TEXT(szField7E), 0, 0},
    {0x7F, FIELD_STRING, TEXT(szField7F), 0, 0},
    {0x80, FIELD_INTEGER, NUMBER(ulField80), QIVENPKT_LITTLE_ENDIAN, 0},
    {0x90, FIELD_INTEGER, NUMBER(ulField90), QIVENPKT_LITTLE_ENDIAN, 0},
    {0xA0, FIELD_INTEGER, NUMBER(ulFieldA0), QIVENPKT_LITTLE_ENDIAN, 0},
    {0xA2, FIELD_STRING, TEXT(szFieldA2), 0, 0},
    {0xA3, FIELD_INTEGER, NUMBER(ulFieldA3), QIVENPKT_LITTLE_ENDIAN, 0},
    {PKT_ID_FIELD_A4, FIELD_INTEGER, NUMBER(ulFieldA4), QIVENPKT_LITTLE_ENDIAN, 0x02},
    {0xA6, FIELD_INTEGER, NUMBER(ulFieldA6), QIVENPKT_LITTLE_ENDIAN, 0},
    {0xA7, FIELD_INTEGER, NUMBER(ulFieldA7), QIVENPKT_LITTLE_ENDIAN, 0},
    {PKT_ID_SERV_SUPP0, FIELD_INTEGER, NUMBER(ullServSupp0), QIVENPKT_LITTLE_ENDIAN, 0},
    {PKT_ID_SERV_SUPP1, FIELD_INTEGER, NUMBER(ullServSupp1), QIVENPKT_LITTLE_ENDIAN, 0},
    {PKT_ID_SERV_RUN0, FIELD_INTEGER, NUMBER(ullServRun0), QIVENPKT_LITTLE_ENDIAN, 0},
    {PKT_ID_SERV_RUN1, FIELD_INTEGER, NUMBER(ullServRun1), QIVENPKT_LITTLE_ENDIAN, 0},
    {0xBA, FIELD_INTEGER, NUMBER(ulFieldBA), QIVENPKT_LITTLE_ENDIAN, 0},
    {PKT_ID_ARRAY_COUNT, FIELD_INTEGER, NUMBER(ulArrayCount), QIVENPKT_LITTLE_ENDIAN, 0},
    {0xBC, FIELD_ARRAY, TEXTS(rgszFieldBC), 0, 0},
    {0xBD, FIELD_ARRAY, TEXTS(rgszFieldBD), 0, 0},
    {0xBE, FIELD_ARRAY, TEXTS(rgszFieldBE), 0, 0},
    {0xBF, FIELD_ARRAY, TEXTS(rgszFieldBF), 0, 0},
    {0xC0, FIELD_STRING, TEXT(szFieldC0), 0, 0},
    {0xC1, FIELD_STRING, TEXT(szFieldC1), 0, 0},
    {0xC2, FIELD_INTEGER, NUMBER(ulFieldC2), QIVENPKT_LITTLE_ENDIAN, 0},
    {0xC3, FIELD_INTEGER, NUMBER(ulFieldC3), QIVENPKT_LITTLE_ENDIAN, 0},
    {PKT_ID_PUB_KEY_HEX, FIELD_STRING, TEXT(szPubKeyHex), 0, 0},
    {PKT_ID_PROCESS_ID, FIELD_INTEGER, NUMBER(ulProcessID), QIVENPKT_LITTLE_ENDIAN, 0},
    {PKT_ID_PEER_PROCESS_ID, FIELD_INTEGER, NUMBER(ulPeerProcessID), QIVENPKT_LITTLE_ENDIAN, 0},
};

#undef NUMBER
#undef TEXT
#undef TEXTS

constexpr QIVEN_FIELD_ARRAY_MAP grgFieldArrayCountMap[QIVEN_ARRAY_FIELD_COUNT] = {
    {0xBC, PKT_ID_ARRAY_COUNT},
    {0xBD, PKT_ID_ARRAY_COUNT},
    {0xBE, PKT_ID_ARRAY_COUNT},
    {0xBF, PKT_ID_ARRAY_COUNT},
};

namespace qiven::packet {

namespace {

constexpr bool IsSorted() {
    for (size_t i = 1; i < QIVEN_FIELD_COUNT; ++i) {
        if (grgfieldAttribs[i - 1].ulPktId >= grgfieldAttribs[i].ulPktId) return false;
    }
    return true;
}

constexpr uint8_t MarksOf(const QIVEN_FIELD_ATTRIB &attrib) {
    if (attrib.ulOffset == offsetof(nasinfo, szLongText)) return kMarkLongText;
    if (attrib.ulOffset == offsetof(nasinfo, szField73)) return kMarkField73;
    return static_cast<uint8_t>(attrib.ulBasicMask);
}

constexpr FieldEntry MakeEntry(const QIVEN_FIELD_ATTRIB &attrib, uint8_t bIndex) {
    return {.cbOffset = static_cast<uint16_t>(attrib.ulOffset),
            .cbField = static_cast<uint16_t>(attrib.cbField),
            .bType = static_cast<uint8_t>(attrib.ulType),
            .bEndian = attrib.ulEndian == QIVENPKT_KEEP_ENDIAN ? uint8_t{QIVENPKT_KEEP_ENDIAN}
                                                               : uint8_t{QIVENPKT_HOST_ENDIAN},
            .bMarks = MarksOf(attrib),
            .bIndex = bIndex};
}

constexpr std::array<FieldEntry, PKT_ID_MAX> MakeEntries() {
    std::array<FieldEntry, PKT_ID_MAX> rgEntries{};
    rgEntries.fill(
        {.cbOffset = 0, .cbField = 0, .bType = FIELD_NONE, .bEndian = 0, .bMarks = 0, .bIndex = kNoField});
    for (uint8_t i = 0; i < QIVEN_FIELD_COUNT; ++i)
        rgEntries[grgfieldAttribs[i].ulPktId] = MakeEntry(grgfieldAttribs[i], i);
    return rgEntries;
}

// The array writers take the element count from ulArrayCount without a look-up.
constexpr bool CountsAreArrayCount() {
    constexpr auto rgEntries = MakeEntries();
    for (const auto &map : grgFieldArrayCountMap) {
        const FieldEntry &count = rgEntries[map.ulCountPktId];
        if (count.bIndex == kNoField || count.cbOffset != offsetof(nasinfo, ulArrayCount)) return false;
    }
    return true;
}

constexpr bool MasksAreThoseOfTheTable() {
    uint32_t ulMask = 0;
    for (const auto &attrib : grgfieldAttribs)
        ulMask |= attrib.ulBasicMask;
    return ulMask == (QIVEN_BASIC_MASK | QIVEN_NETSETTING_MASK);
}

static_assert(IsSorted());
static_assert(MasksAreThoseOfTheTable());
static_assert(sizeof(nasinfo) <= UINT16_MAX);
static_assert(CountsAreArrayCount());

}  // namespace

constexpr std::array<FieldEntry, PKT_ID_MAX> kFieldEntries = MakeEntries();

}  // namespace qiven::packet
