// Compares the library's packet reader with the slow one.
#pragma once

#include <qiven/packet.h>

#include "support/slow_reader.h"

// Reads with both; returns the result of the slow reader, and the differences of the library, if any.
inline SlowReader ReadBoth(std::string_view packet, std::string &difference,
                           decltype(QIVENPacketRead) *pfnRead = QIVENPacketRead) {
    LogCapture log;
    nasinfo record;
    memset(static_cast<void *>(&record), 0x5A, sizeof record);  // a reader clears it
    const int iResult = pfnRead(log.Record(), reinterpret_cast<const unsigned char *>(packet.data()),
                                static_cast<int>(packet.size()), &record);
    SlowReader slow{std::string(packet)};
    if (iResult != slow.iResult) difference = "another result: " + std::to_string(iResult);
    if (LogCapture::Take() != slow.messages) difference += ", other messages";
    // Every byte, padding too: both cleared the record. NOLINTNEXTLINE
    if (memcmp(&slow.record, &record, sizeof record) != 0) difference += ", another record";
    return slow;
}
