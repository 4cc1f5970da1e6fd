// Splits a packet into its fields, with their offsets, and explains why a reader would refuse it.
#pragma once

#include <qiven/packet.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace qiven::packet_walk {

struct PacketField {
    size_t cbOffset;  // of the identifier, from the start of the packet
    unsigned char bPktId;
    const QIVEN_FIELD_ATTRIB *pAttrib;        // null if the identifier is unknown
    int iLength;                              // the length byte; -1 if the packet ends before it
    std::span<const unsigned char> rgbValue;  // shorter than iLength if the packet ends before
    int iElement;                             // index within an array; -1 for other fields
    std::string problem;                      // why a reader refuses this field, or empty
};

enum class Verdict { kAccepted, kRefused, kSealed };

struct PacketWalk {
    Verdict verdict = Verdict::kRefused;
    std::string reason;  // of a refusal, a sentence without its full stop
    std::vector<PacketField> fields;
};

// Continues after a field that is refused. The verdict is that of the library's reader.
PacketWalk Walk(std::span<const unsigned char> rgbPacket);

// The table entry of an identifier, or null.
const QIVEN_FIELD_ATTRIB *FindField(uint32_t ulPktId);

}  // namespace qiven::packet_walk
