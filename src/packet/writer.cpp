// The packet writer.
#include <qiven/packet.h>

#include <algorithm>
#include <cstring>

#include "base/message.h"
#include "packet/cursor.h"
#include "packet/field_table.h"
#include "packet/packet_buffer.h"
#include "packet/values.h"

using qiven::base::Check;
using qiven::base::Error;

namespace qiven::packet {

namespace {

int SpaceIn(const WriteCursor &cursor) {
    return static_cast<int>(cursor.Left());
}

bool WriteLongText(const QIVEN_LOG *pLog, WriteCursor &cursor, const nasinfo &record) {
    const char *szText = record.szLongText;
    size_t cbLeft = strnlen(szText, sizeof record.szLongText);
    unsigned int ulPktId = PKT_ID_LONG_TEXT;
    do {
        const size_t cbChunk = std::min(cbLeft, kValueMax);
        if (!cursor.PutField(ulPktId, {reinterpret_cast<const unsigned char *>(szText), cbChunk})) {
            Error(pLog, kModule, "fail to write!\n");
            return false;
        }
        szText += cbChunk;
        cbLeft -= cbChunk;
        ulPktId = PKT_ID_CONTINUATION;
    } while (cbLeft > 0);
    return true;
}

// The record from a slot on.
Bytes From(const nasinfo &record, size_t cbOffset) {
    return {Slot(record, static_cast<uint32_t>(cbOffset)), sizeof record - cbOffset};
}

bool PutArray(WriteCursor &cursor, uint32_t ulPktId, const nasinfo &record, const FieldEntry &field) {
    WriteCursor filled = cursor;
    Bytes rgbElementsOn = From(record, field.cbOffset);
    const uint32_t nElements = std::min<uint32_t>(record.ulArrayCount, QIVEN_ARRAY_MAX);
    if (!PutElements<Space::kPrivate>(filled, ulPktId, rgbElementsOn, field.cbField, nElements)) return false;
    const bool blAny = filled.Left() < cursor.Left();
    cursor = filled;
    return blAny;
}

// Puts the field, or the fields, of a slot. False, with the cursor unchanged, if that is not possible.
bool PutSlot(WriteCursor &cursor, uint32_t ulPktId, const nasinfo &record) {
    if (ulPktId >= PKT_ID_MAX) return false;
    const FieldEntry &field = kFieldEntries[ulPktId];
    if (field.bType == FIELD_INTEGER)
        return PutInteger(cursor, ulPktId, Slot(record, field.cbOffset), field.cbField, field.bEndian);
    if (field.bType == FIELD_ARRAY) return PutArray(cursor, ulPktId, record, field);
    return field.bType == FIELD_STRING &&
           PutText<Space::kPrivate>(cursor, ulPktId, From(record, field.cbOffset), field.cbField);
}

// Reports why a field cannot be written: the codec of its type fails for the same reason, with a message.
void ReportFailure(const QIVEN_LOG *pLog, const WriteCursor &cursor, uint32_t ulPktId,
                   const nasinfo &record) {
    const QIVEN_FIELD_ATTRIB *pAttrib = FindField(ulPktId);
    if (pAttrib == nullptr) Error(pLog, kModule, "unknown PKT-ID: [0x%X]\n", ulPktId);
    if (pAttrib != nullptr && pAttrib->ulType < QIVEN_PARSER_COUNT) {
        const int dstEndian =
            pAttrib->ulEndian == QIVENPKT_KEEP_ENDIAN ? QIVENPKT_KEEP_ENDIAN : QIVENPKT_LITTLE_ENDIAN;
        grgfieldParsers[pAttrib->ulType].pfnWrite(pLog, cursor.pAt, SpaceIn(cursor), ulPktId,
                                                  Slot(record, pAttrib->ulOffset), pAttrib->cbField,
                                                  dstEndian, &record);
    }
    Error(pLog, kModule, "fail to write [0x%X]!\n", ulPktId);
}

bool WriteListed(const QIVEN_LOG *pLog, WriteCursor &cursor, uint32_t ulPktId, const nasinfo &record) {
    if (ulPktId == PKT_ID_LONG_TEXT) return WriteLongText(pLog, cursor, record);
    // Continuation fields are written with the long text only.
    if (ulPktId == PKT_ID_CONTINUATION) return true;
    if (PutSlot(cursor, ulPktId, record)) return true;
    ReportFailure(pLog, cursor, ulPktId, record);
    return false;
}

}  // namespace

}  // namespace qiven::packet

using namespace qiven::packet;

int QIVENPacketWrite(const QIVEN_LOG *pLog, unsigned char **pszPKTOutput, int *pcbPKTOutput,
                     const QIVEN_SEND *pqivenSend) {
    if (!Check(pLog, kModule, nullptr != pszPKTOutput, "((void *)0) != pszPKTOutput")) return 0;
    if (!Check(pLog, kModule, nullptr != *pszPKTOutput, "((void *)0) != (*pszPKTOutput)")) return 0;
    if (!Check(pLog, kModule, nullptr != pcbPKTOutput, "((void *)0) != pcbPKTOutput")) return 0;
    if (!Check(pLog, kModule, 0 <= *pcbPKTOutput, "0 <= (*pcbPKTOutput)")) return 0;
    if (!Check(pLog, kModule, nullptr != pqivenSend, "NULL != pqivenSend")) return 0;
    if (!Check(pLog, kModule, nullptr != pqivenSend->pnasInfo, "((void *)0) != pnasinfoInput")) return 0;
    if (!Check(pLog, kModule, 0 < pqivenSend->nPktID, "0 < nPktId")) return 0;
    if (!Check(pLog, kModule, QIVEN_SEND_MAX >= pqivenSend->nPktID, "QIVEN_SEND_MAX >= nPktId")) return 0;

    // Not cleared: only bytes that the cursor has passed are copied to the caller.
    unsigned char rgbPacket[QIVEN_PACKET_MAX];
    WriteCursor cursor(rgbPacket);
    cursor.Put(stQIVENHeader);
    for (int32_t i = 0; i < pqivenSend->nPktID; ++i) {
        if (!WriteListed(pLog, cursor, pqivenSend->rgPktID[i], *pqivenSend->pnasInfo)) return 0;
    }
    const int cbPacket = QIVEN_PACKET_MAX - SpaceIn(cursor);
    if (!EnsureCapacity(pLog, kModule, *pszPKTOutput, *pcbPKTOutput, cbPacket)) return 0;
    memcpy(*pszPKTOutput, rgbPacket, static_cast<size_t>(cbPacket));
    return cbPacket;
}
