// Look-up of packet fields by identifier.
#pragma once

#include <qiven/packet.h>

#include <array>
#include <cstdint>

namespace qiven::packet {

// Room name in messages.
inline constexpr char kRoom[] = "packet";

inline constexpr uint8_t kNoField = 0xFF;

// Position of every identifier in grgfieldAttribs, or kNoField. Derived from the table when the library is
// built; it answers what a search of the sorted table would, in one step.
extern const std::array<uint8_t, PKT_ID_MAX> rgIndexOfField;

// The table entry of an identifier, or null when the table has none.
inline const QIVEN_FIELD_ATTRIB *FindField(uint32_t ulPktId) {
    if (ulPktId >= PKT_ID_MAX || rgIndexOfField[ulPktId] == kNoField) return nullptr;
    return &grgfieldAttribs[rgIndexOfField[ulPktId]];
}

// Number of bytes that a field's slot has in the record.
inline constexpr uint32_t SlotSize(const QIVEN_FIELD_ATTRIB &attrib) {
    return attrib.ulType == FIELD_ARRAY ? attrib.cbField * QIVEN_ARRAY_MAX : attrib.cbField;
}

// A field's slot in a record.
inline unsigned char *Slot(nasinfo &record, const QIVEN_FIELD_ATTRIB &attrib) {
    return reinterpret_cast<unsigned char *>(&record) + attrib.ulOffset;
}
inline const unsigned char *Slot(const nasinfo &record, const QIVEN_FIELD_ATTRIB &attrib) {
    return reinterpret_cast<const unsigned char *>(&record) + attrib.ulOffset;
}

}  // namespace qiven::packet
