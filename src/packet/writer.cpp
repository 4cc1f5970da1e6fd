#include "packet/writer.h"

#include <qiven/packet.h>

#include <algorithm>
#include <cstring>

#include "log/message.h"
#include "packet/cursor.h"
#include "packet/field_codecs.h"
#include "packet/field_table.h"

using qiven::log::Check;
using qiven::log::Error;

namespace qiven::packet {

namespace {

constexpr size_t kChunkMax = 255;

int RoomOf(const WriteCursor &cursor) {
    return static_cast<int>(cursor.Left());
}

bool WriteLongText(const QIVEN_LOG *pLog, WriteCursor &cursor, const nasinfo &record) {
    const char *szText = record.szLongText;
    size_t cbLeft = strnlen(szText, sizeof record.szLongText);
    unsigned int ulPktId = PKT_ID_LONG_TEXT;
    do {
        const size_t cbChunk = std::min(cbLeft, kChunkMax);
        if (!cursor.PutField(ulPktId, {reinterpret_cast<const unsigned char *>(szText), cbChunk})) {
            Error(pLog, kRoom, "fail to write!\n");
            return false;
        }
        szText += cbChunk;
        cbLeft -= cbChunk;
        ulPktId = PKT_ID_CONTINUATION;
    } while (cbLeft > 0);
    return true;
}

// The reader's byte order serves here, too, because reversing bytes twice is no change.
template <class Integer>
bool PutInteger(WriteCursor &cursor, uint32_t ulPktId, const unsigned char *pSlot, int iEndian) {
    unsigned char *pValue = cursor.BeginField(ulPktId, sizeof(Integer));
    return pValue != nullptr && StoreInteger({pSlot, sizeof(Integer)}, pValue, sizeof(Integer), iEndian);
}

// The record from a slot on.
Bytes From(const nasinfo &record, size_t cbOffset) {
    return {Slot(record, static_cast<uint32_t>(cbOffset)), sizeof record - cbOffset};
}

bool PutArray(WriteCursor &cursor, uint32_t ulPktId, const nasinfo &record, const FieldEntry &field) {
    WriteCursor filled = cursor;
    Bytes rgbElementOn = From(record, field.cbOffset);
    for (uint32_t n = std::min<uint32_t>(record.ulArrayCount, QIVEN_ARRAY_MAX); n > 0; --n) {
        if (rgbElementOn[0] != '\0' && !filled.PutSlot(ulPktId, rgbElementOn, field.cbField)) return false;
        rgbElementOn = rgbElementOn.subspan(field.cbField);
    }
    const bool blAny = RoomOf(filled) < RoomOf(cursor);
    cursor = filled;
    return blAny;
}

// Writes a field in the ordinary case: it is as it should be, and there is room.
bool WriteOrdinary(WriteCursor &cursor, uint32_t ulPktId, const nasinfo &record) {
    if (ulPktId >= PKT_ID_MAX) return false;
    const FieldEntry &field = rgFieldEntries[ulPktId];
    if (field.bType == FIELD_INTEGER) {
        const unsigned char *pSlot = Slot(record, field.cbOffset);
        return field.cbField == sizeof(uint32_t)
                   ? PutInteger<uint32_t>(cursor, ulPktId, pSlot, field.bEndian)
                   : PutInteger<uint64_t>(cursor, ulPktId, pSlot, field.bEndian);
    }
    if (field.bType == FIELD_ARRAY) return PutArray(cursor, ulPktId, record, field);
    return field.bType == FIELD_STRING &&
           cursor.PutSlot(ulPktId, From(record, field.cbOffset), field.cbField);
}

bool WriteField(const QIVEN_LOG *pLog, WriteCursor &cursor, uint32_t ulPktId, const nasinfo &record) {
    if (WriteOrdinary(cursor, ulPktId, record)) return true;
    const QIVEN_FIELD_ATTRIB *pAttrib = FindField(ulPktId);
    if (pAttrib == nullptr) Error(pLog, kRoom, "unknown PKT-ID: [0x%X]\n", ulPktId);
    // What is not ordinary: the codec knows what there is to say about it.
    int cbWritten = 0;
    if (pAttrib != nullptr && pAttrib->ulType < QIVEN_PARSER_COUNT) {
        const int dstEndian =
            pAttrib->ulEndian == QIVENPKT_KEEP_ENDIAN ? QIVENPKT_KEEP_ENDIAN : QIVENPKT_LITTLE_ENDIAN;
        cbWritten = grgfieldParsers[pAttrib->ulType].pfnWrite(pLog, cursor.pAt, RoomOf(cursor), ulPktId,
                                                              Slot(record, pAttrib->ulOffset),
                                                              pAttrib->cbField, dstEndian, &record);
    }
    if (cbWritten < 1) {
        Error(pLog, kRoom, "fail to write [0x%X]!\n", ulPktId);
        return false;
    }
    return cursor.Skip(static_cast<size_t>(cbWritten));
}

bool WriteListed(const QIVEN_LOG *pLog, WriteCursor &cursor, uint32_t ulPktId, const nasinfo &record) {
    if (ulPktId == PKT_ID_LONG_TEXT) return WriteLongText(pLog, cursor, record);
    // Continuation fields arise from the long text alone.
    if (ulPktId == PKT_ID_CONTINUATION) return true;
    return WriteField(pLog, cursor, ulPktId, record);
}

}  // namespace

}  // namespace qiven::packet

using namespace qiven::packet;

int QIVENPacketWrite(const QIVEN_LOG *pLog, unsigned char **pszPKTOutput, int *pcbPKTOutput,
                     const QIVEN_SEND *pqivenSend) {
    if (!Check(pLog, kRoom, nullptr != pszPKTOutput, "((void *)0) != pszPKTOutput")) return 0;
    if (!Check(pLog, kRoom, nullptr != *pszPKTOutput, "((void *)0) != (*pszPKTOutput)")) return 0;
    if (!Check(pLog, kRoom, nullptr != pcbPKTOutput, "((void *)0) != pcbPKTOutput")) return 0;
    if (!Check(pLog, kRoom, 0 <= *pcbPKTOutput, "0 <= (*pcbPKTOutput)")) return 0;
    if (!Check(pLog, kRoom, nullptr != pqivenSend, "NULL != pqivenSend")) return 0;
    if (!Check(pLog, kRoom, nullptr != pqivenSend->pnasInfo, "((void *)0) != pnasinfoInput")) return 0;
    if (!Check(pLog, kRoom, 0 < pqivenSend->nPktID, "0 < nPktId")) return 0;
    if (!Check(pLog, kRoom, QIVEN_SEND_MAX >= pqivenSend->nPktID, "QIVEN_SEND_MAX >= nPktId")) return 0;

    // Not cleared: only what the cursor has passed leaves this buffer.
    unsigned char rgbPacket[QIVEN_PACKET_MAX];
    WriteCursor cursor(rgbPacket);
    cursor.Put(stQIVENHeader);
    for (int32_t i = 0; i < pqivenSend->nPktID; ++i) {
        if (!WriteListed(pLog, cursor, pqivenSend->rgPktID[i], *pqivenSend->pnasInfo)) return 0;
    }
    const int cbPacket = QIVEN_PACKET_MAX - RoomOf(cursor);
    if (!EnsureCapacity(pLog, kRoom, *pszPKTOutput, *pcbPKTOutput, cbPacket)) return 0;
    memcpy(*pszPKTOutput, rgbPacket, static_cast<size_t>(cbPacket));
    return cbPacket;
}
