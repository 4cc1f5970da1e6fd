// Reading of one value into its slot, once the value's bytes are known to lie inside the packet.
#pragma once

#include <qiven/packet.h>

#include <endian.h>

#include <cstring>

#include "packet/cursor.h"
#include "packet/text.h"

namespace qiven::packet {

// Stores a text, up to a NUL inside the value, and terminates it. An empty value leaves the slot as it is.
// False when text and NUL have no room. cbText becomes the length of what it stores.
inline bool StoreText(Bytes rgbValue, void *pSlot, size_t cbSlot, size_t &cbText) {
    if (rgbValue.empty()) return true;
    if (rgbValue.size() >= cbSlot) return false;
    cbText = CopyText(static_cast<unsigned char *>(pSlot), rgbValue.data(), rgbValue.size());
    return true;
}

// Stores an integer of cbSlot (4 or 8) bytes. An empty value leaves the slot as it is. False when the value
// has another length.
inline bool StoreInteger(Bytes rgbValue, void *pSlot, size_t cbSlot, int dstEndian) {
    if (rgbValue.empty()) return true;
    if (rgbValue.size() != cbSlot) return false;
    if (cbSlot == sizeof(uint32_t)) {
        uint32_t ulValue;
        memcpy(&ulValue, rgbValue.data(), sizeof ulValue);
        if (dstEndian == QIVENPKT_HOST_ENDIAN) ulValue = le32toh(ulValue);
        memcpy(pSlot, &ulValue, sizeof ulValue);
    } else {
        uint64_t ullValue;
        memcpy(&ullValue, rgbValue.data(), sizeof ullValue);
        if (dstEndian == QIVENPKT_HOST_ENDIAN) ullValue = le64toh(ullValue);
        memcpy(pSlot, &ullValue, sizeof ullValue);
    }
    return true;
}

}  // namespace qiven::packet
