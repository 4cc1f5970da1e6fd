// Compares the library's packet reader with the one that is written from the wire format.
#pragma once

#include <qiven/packet.h>

#include "fuzz.h"
#include "support/slow_reader.h"

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

inline SlowReader RequireSameRead(std::string_view packet, decltype(QIVENPacketRead) *pfnRead,
                                  const Lines &before = {}) {
    const SlowReader slow{std::string(packet)};
    nasinfo record = Dirty();
    LogCapture log;
    const int iResult = pfnRead(log.Record(), AsBytes(packet), static_cast<int>(packet.size()), &record);
    Lines expected = before;
    expected.insert(expected.end(), slow.messages.begin(), slow.messages.end());
    Require(iResult == slow.iResult, "both readers give the same result");
    Require(SameBytes(record, slow.record), "both readers fill the record alike");
    Require(LogCapture::Take() == expected, "both readers report the same");
    return slow;
}

}  // namespace fuzz
