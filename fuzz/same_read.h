// Compares the library's packet reader with a second one, written from the wire format.
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

// The content of a record before it is read into, to detect a reader that does not clear it.
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
