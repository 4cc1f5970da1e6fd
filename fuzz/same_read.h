// Compares the library's packet reader with the one that is written from the wire format.
#pragma once

#include <qiven/packet.h>

#include "fuzz.h"
#include "support/same_read.h"

namespace fuzz {

using Lines = std::vector<std::string>;

inline bool SameBytes(const nasinfo &one, const nasinfo &other) {
    // Padding too: readers clear the whole record. NOLINTNEXTLINE
    return memcmp(&one, &other, sizeof one) == 0;
}

// What a record holds before it is read into, so that a reader which does not clear it shows.
inline nasinfo Dirty() {
    nasinfo record;
    memset(static_cast<void *>(&record), 0x5A, sizeof record);
    return record;
}

inline SlowReader RequireSameRead(std::string_view packet, decltype(QIVENPacketRead) *pfnRead) {
    std::string difference;
    const SlowReader slow = ReadBoth(packet, difference, pfnRead);
    Require(difference.empty(), ("both readers do the same" + difference).c_str());
    return slow;
}

}  // namespace fuzz
