// Look-up of packet fields by identifier.
#pragma once

#include <qiven/packet.h>

#include <array>
#include <cstdint>

namespace qiven::packet {

// Room name in messages.
inline constexpr char kRoom[] = "packet";

inline constexpr uint8_t kNoField = 0xFF;

// What a reader notes about the fields of a packet: the bits of ulBasicMask, and one for the field that
// another one's default comes from.
inline constexpr uint8_t kBasicMarks = 0x1F;
inline constexpr uint8_t kMarkLongText = 0x40;
inline constexpr uint8_t kMarkField73 = 0x80;

// What the inner loops of reader and writer need to know of a field, in one load.
struct FieldEntry {
    uint16_t cbOffset;
    uint16_t cbField;
    uint8_t bType;    // FIELD_NONE also for an identifier that the table does not have
    uint8_t bEndian;  // QIVENPKT_HOST_ENDIAN or QIVENPKT_KEEP_ENDIAN
    uint8_t bMarks;
    uint8_t bIndex;  // in grgfieldAttribs, or kNoField
};

// Every identifier's entry. Derived from grgfieldAttribs when the library is built; it answers what a search
// of the sorted table would, in one step.
extern const std::array<FieldEntry, PKT_ID_MAX> rgFieldEntries;

// The table entry of an identifier, or null when the table has none.
inline const QIVEN_FIELD_ATTRIB *FindField(uint32_t ulPktId) {
    if (ulPktId >= PKT_ID_MAX || rgFieldEntries[ulPktId].bIndex == kNoField) return nullptr;
    return &grgfieldAttribs[rgFieldEntries[ulPktId].bIndex];
}

// Number of bytes that a field's slot has in the record.
inline constexpr uint32_t SlotSize(const QIVEN_FIELD_ATTRIB &attrib) {
    return attrib.ulType == FIELD_ARRAY ? attrib.cbField * QIVEN_ARRAY_MAX : attrib.cbField;
}

// A field's slot in a record.
inline unsigned char *Slot(nasinfo &record, uint32_t ulOffset) {
    return reinterpret_cast<unsigned char *>(&record) + ulOffset;
}
inline const unsigned char *Slot(const nasinfo &record, uint32_t ulOffset) {
    return reinterpret_cast<const unsigned char *>(&record) + ulOffset;
}

}  // namespace qiven::packet
