// A packet taken apart for people: every field with its place, and why a reader would refuse the whole.
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
    const QIVEN_FIELD_ATTRIB *pAttrib;        // null when the table does not have the identifier
    int iLength;                              // as its length byte says; -1 when the packet ends before it
    std::span<const unsigned char> rgbValue;  // what is there of it: fewer bytes when it runs past the end
    int iElement;                             // of an array; -1 for everything else
    std::string problem;                      // empty, or what is wrong with this field
};

enum class Verdict { kAccepted, kRefused, kSealed };

struct PacketWalk {
    Verdict verdict = Verdict::kRefused;
    std::string reason;  // of a refusal, a sentence without its full stop
    std::vector<PacketField> fields;
};

// Walks the fields beyond a refusal too, as far as their limits are known. The verdict is the library
// reader's.
PacketWalk Walk(std::span<const unsigned char> rgbPacket);

// The table entry of an identifier, or null.
const QIVEN_FIELD_ATTRIB *FindField(uint32_t ulPktId);

}  // namespace qiven::packet_walk
