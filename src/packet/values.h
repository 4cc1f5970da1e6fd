// Moving one value between a packet and its slot in the record: one function for each kind of value and
// direction. Packet reader, packet writer and the exported field codecs all use these.
#pragma once

#include <qiven/packet.h>

#include <endian.h>

#include <cstring>

#include "packet/block_text.h"
#include "packet/cursor.h"

namespace qiven::packet {

// Stores a text, up to a NUL in it, and terminates it. cbText becomes its length. An empty value leaves the
// slot as it is. False if text and NUL do not fit the slot.
inline bool StoreText(Bytes rgbValue, void *pSlot, size_t cbSlot, size_t &cbText) {
    if (rgbValue.empty()) return true;
    if (rgbValue.size() >= cbSlot) return false;
    cbText = CopyText(static_cast<unsigned char *>(pSlot), rgbValue.data(), rgbValue.size());
    return true;
}

// Copies an integer between a packet and a slot, in either direction: with QIVENPKT_KEEP_ENDIAN as it is,
// else between little-endian and host order (which is the same conversion both ways).
template <class Integer>
void CopyInteger(void *pTo, const void *pFrom, int iEndian) {
    static_assert(sizeof(Integer) == sizeof(uint32_t) || sizeof(Integer) == sizeof(uint64_t));
    Integer value;
    memcpy(&value, pFrom, sizeof value);
    if (iEndian != QIVENPKT_KEEP_ENDIAN) {
        if constexpr (sizeof value == sizeof(uint32_t))
            value = le32toh(value);
        else
            value = le64toh(value);
    }
    memcpy(pTo, &value, sizeof value);
}

// Takes an integer field of the right length and stores it. False if it has another length.
template <class Integer>
bool TakeInteger(ReadCursor &cursor, void *pSlot, int iEndian) {
    const unsigned char *pValue;
    if (!cursor.TakeValueOf(sizeof(Integer), pValue)) return false;
    CopyInteger<Integer>(pSlot, pValue, iEndian);
    return true;
}
inline bool TakeInteger(ReadCursor &cursor, void *pSlot, size_t cbSlot, int iEndian) {
    return cbSlot == sizeof(uint32_t) ? TakeInteger<uint32_t>(cursor, pSlot, iEndian)
                                      : TakeInteger<uint64_t>(cursor, pSlot, iEndian);
}

// Puts an integer slot as a field. False if it does not fit.
template <class Integer>
bool PutInteger(WriteCursor &cursor, uint32_t ulPktId, const void *pSlot, int iEndian) {
    unsigned char *pValue = cursor.BeginField(ulPktId, sizeof(Integer));
    if (pValue == nullptr) return false;
    CopyInteger<Integer>(pValue, pSlot, iEndian);
    return true;
}
inline bool PutInteger(WriteCursor &cursor, uint32_t ulPktId, const void *pSlot, size_t cbSlot, int iEndian) {
    return cbSlot == sizeof(uint32_t) ? PutInteger<uint32_t>(cursor, ulPktId, pSlot, iEndian)
                                      : PutInteger<uint64_t>(cursor, ulPktId, pSlot, iEndian);
}

// What a text may be written into: the bytes of its field alone, or the space behind them as well, which is
// filled with anything then. The latter is much faster, but only for a private buffer.
enum class Space { kExact, kPrivate };

// Puts the text of a slot as a field. rgbSlotOn is the slot and all that may be read behind it. False, with
// nothing put, if the text does not end within the slot, is longer than 255 bytes, or does not fit. Always
// inlined, so that the cursor needs no address and stays in registers.
template <Space kSpace>
[[gnu::always_inline]] inline bool PutText(WriteCursor &cursor, uint32_t ulPktId, Bytes rgbSlotOn,
                                           size_t cbSlot) {
    const unsigned char *pSlot = rgbSlotOn.data();
    const size_t cbBlocks = WholeBlocks(cbSlot);
    if (kSpace == Space::kExact || cbBlocks > rgbSlotOn.size() || cbBlocks + 2 > cursor.Left()) {
        const size_t cbText = strnlen(reinterpret_cast<const char *>(pSlot), cbSlot);
        return cbText < cbSlot && cbText <= kValueMax && cursor.PutField(ulPktId, {pSlot, cbText});
    }
    const size_t cbText = CopySlotText(cursor.pAt + 2, pSlot, cbSlot);
    if (cbText >= cbSlot || cbText > kValueMax) return false;
    cursor.EndField(ulPktId, cbText);
    return true;
}

// Puts every element that is not empty as a field of its own. rgbElementsOn begins with the elements and is
// shortened by those that are done. False at the first element that cannot be put.
template <Space kSpace>
[[gnu::always_inline]] inline bool PutElements(WriteCursor &cursor, uint32_t ulPktId, Bytes &rgbElementsOn,
                                               size_t cbElement, uint32_t nElements) {
    WriteCursor filled = cursor;
    for (; nElements > 0; --nElements) {
        if (rgbElementsOn[0] != '\0' && !PutText<kSpace>(filled, ulPktId, rgbElementsOn, cbElement)) break;
        rgbElementsOn = rgbElementsOn.subspan(cbElement);
    }
    cursor = filled;
    return nElements == 0;
}

}  // namespace qiven::packet
