// Packet fields by identifier, and their slots in the record.
#pragma once

#include <qiven/packet.h>

#include <array>
#include <cstdint>

namespace qiven::packet {

// The module name in messages.
inline constexpr char kModule[] = "packet";

inline constexpr uint8_t kNoField = 0xFF;

// What a reader records about the fields of a packet: the bits of ulBasicMask, and one bit for each field
// that needs work after it is read.
inline constexpr uint8_t kBasicMarks = QIVEN_BASIC_MASK | QIVEN_NETSETTING_MASK;
inline constexpr uint8_t kMarkLongText = 0x40;
inline constexpr uint8_t kMarkField73 = 0x80;

// What the inner loops of reader and writer need to know about a field, in 8 bytes.
struct FieldEntry {
    uint16_t cbOffset;
    uint16_t cbField;
    uint8_t bType;    // FIELD_NONE also for identifiers that are not in the table
    uint8_t bEndian;  // QIVENPKT_HOST_ENDIAN or QIVENPKT_KEEP_ENDIAN
    uint8_t bMarks;
    uint8_t bIndex;  // in grgfieldAttribs, or kNoField
};

// The entry of every identifier, derived from grgfieldAttribs at compile time. It replaces the binary search
// of the sorted table.
extern const std::array<FieldEntry, PKT_ID_MAX> kFieldEntries;

// The table entry of an identifier; null if it has none.
inline const QIVEN_FIELD_ATTRIB *FindField(uint32_t ulPktId) {
    if (ulPktId >= PKT_ID_MAX || kFieldEntries[ulPktId].bIndex == kNoField) return nullptr;
    return &grgfieldAttribs[kFieldEntries[ulPktId].bIndex];
}

// Number of bytes that a field's slot has in the record.
inline constexpr uint32_t SlotSize(const QIVEN_FIELD_ATTRIB &attrib) {
    return attrib.ulType == FIELD_ARRAY ? attrib.cbField * QIVEN_ARRAY_MAX : attrib.cbField;
}

// The slot at an offset of the record.
inline unsigned char *Slot(nasinfo &record, uint32_t ulOffset) {
    return reinterpret_cast<unsigned char *>(&record) + ulOffset;
}
inline const unsigned char *Slot(const nasinfo &record, uint32_t ulOffset) {
    return reinterpret_cast<const unsigned char *>(&record) + ulOffset;
}

}  // namespace qiven::packet
