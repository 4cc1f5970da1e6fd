// A buffer for the packet writers of the library, which may enlarge it.
#pragma once

#include <qiven/packet.h>

#include <cstdlib>

namespace qiven {

struct PacketBuffer {
    unsigned char *pb = static_cast<unsigned char *>(malloc(QIVEN_PACKET_MAX));  // null without memory
    int cbCapacity = QIVEN_PACKET_MAX;

    PacketBuffer() = default;
    ~PacketBuffer() { free(pb); }
    PacketBuffer(const PacketBuffer &) = delete;
    PacketBuffer &operator=(const PacketBuffer &) = delete;
};

}  // namespace qiven
