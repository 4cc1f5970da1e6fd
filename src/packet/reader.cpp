// The packet reader.
#include <qiven/packet.h>

#include <endian.h>

#include <cstring>

#include "base/message.h"
#include "packet/cursor.h"
#include "packet/field_table.h"
#include "packet/values.h"

using qiven::base::Check;
using qiven::base::Debug;
using qiven::base::Error;

namespace qiven::packet {

namespace {

// The state of reading one packet.
struct ReadState {
    const QIVEN_LOG *pLog;
    nasinfo &record;
    ReadCursor cursor;
    size_t cbFields;          // of the whole walk, for offsets in messages
    uint32_t ulMarks = 0;     // of the fields read
    uint32_t ulArrayRun = 0;  // identifier of the array being filled, 0 for none
    uint32_t nElement = 0;    // its current element
    size_t cbLongText = 0;
    // The bytes of the packet type, or null for 0. Reading it from the record, which has just been cleared,
    // would wait until the clearing has reached the cache.
    const unsigned char *pPktType = nullptr;

    uint32_t Present() const { return ulMarks & kBasicMarks; }
    bool IsNetSetting() const {
        uint32_t ulPktType = 0;
        if (pPktType != nullptr) memcpy(&ulPktType, pPktType, sizeof ulPktType);
        return le32toh(ulPktType) == QIVEN_PKT_NETSETTING;
    }
};

// Always inlined, so that the state needs no address and stays in registers: this loop takes most of the time
// of a decode.
[[gnu::always_inline]] inline bool TakeKnownValue(ReadState &walk, Bytes &rgbValue) {
    if (!Check(walk.pLog, kModule, !walk.cursor.AtEnd(), "0 < cbPKTInput")) return false;
    return walk.cursor.TakeValue(rgbValue);
}

// Advances to the element that the next field of an array belongs to. False after the last one.
bool NextElement(ReadState &walk, uint32_t ulPktId) {
    if (walk.ulArrayRun == ulPktId) return ++walk.nElement < QIVEN_ARRAY_MAX;
    walk.ulArrayRun = ulPktId;
    walk.nElement = 0;
    return true;
}

bool ReadInteger(ReadState &walk, const FieldEntry &field, unsigned char bPktId, unsigned char *pSlot) {
    walk.ulArrayRun = 0;
    if (!TakeInteger(walk.cursor, pSlot, field.cbField, field.bEndian)) {
        // Only an empty value is accepted besides one of the right length.
        Bytes rgbValue;
        return TakeKnownValue(walk, rgbValue) && rgbValue.empty();
    }
    if (bPktId == PKT_ID_PKT_TYPE) walk.pPktType = walk.cursor.pAt - sizeof(uint32_t);
    return true;
}

bool ReadKnown(ReadState &walk, const FieldEntry &field, unsigned char bPktId) {
    walk.ulMarks |= field.bMarks;
    unsigned char *pSlot = Slot(walk.record, field.cbOffset);
    if (field.bType == FIELD_INTEGER) return ReadInteger(walk, field, bPktId, pSlot);
    if (field.bType == FIELD_ARRAY) {
        if (!NextElement(walk, bPktId)) return false;
        pSlot += size_t{field.cbField} * walk.nElement;
    } else {
        walk.ulArrayRun = 0;
    }
    Bytes rgbValue;
    size_t cbText = walk.cbLongText;
    if (!TakeKnownValue(walk, rgbValue) || !StoreText(rgbValue, pSlot, field.cbField, cbText)) return false;
    if ((field.bMarks & kMarkLongText) != 0) walk.cbLongText = cbText;
    return true;
}

bool ReadContinuation(ReadState &walk) {
    Bytes rgbValue;
    if (!TakeKnownValue(walk, rgbValue)) return false;
    size_t cbText = 0;
    const size_t cbSpace = QIVEN_LONG_TEXT_SIZE - walk.cbLongText;
    if (!StoreText(rgbValue, walk.record.szLongText + walk.cbLongText, cbSpace, cbText)) return false;
    walk.cbLongText += cbText;
    return true;
}

bool SkipUnknown(ReadState &walk, unsigned char bPktId) {
    if (bPktId != 0xA1) {  // senders are known to use 0xA1: it is skipped without a message
        const size_t cbOffset = walk.cbFields - walk.cursor.Left() - 1;
        Debug(walk.pLog, kModule, "unknown id: [0x%02X] at offset (%lld)\n", bPktId,
              static_cast<long long>(cbOffset));
    }
    // A value that runs past the end is not skipped: the bytes behind its length are read as fields.
    Bytes rgbValue;
    unsigned char bLength;
    return walk.cursor.TakeValue(rgbValue) || walk.cursor.TakeByte(bLength);
}

bool ReadField(ReadState &walk) {
    unsigned char bPktId;
    if (!walk.cursor.TakeByte(bPktId)) return false;
    const FieldEntry &field = kFieldEntries[bPktId];
    if (field.bType != FIELD_NONE) return ReadKnown(walk, field, bPktId);
    if (bPktId == PKT_ID_CONTINUATION) return ReadContinuation(walk);
    return SkipUnknown(walk, bPktId);
}

bool IsAcceptable(const ReadState &walk) {
    if ((walk.Present() & QIVEN_BASIC_MASK) != QIVEN_BASIC_MASK) {
        Debug(walk.pLog, kModule, "Basic is not satifsfied\n");
        return false;
    }
    if ((walk.Present() & QIVEN_NETSETTING_MASK) != QIVEN_NETSETTING_MASK && walk.IsNetSetting()) {
        Error(walk.pLog, kModule, "not enough fields for netsetting 0x%X\n", walk.Present());
        return false;
    }
    return true;
}

}  // namespace

}  // namespace qiven::packet

using namespace qiven::packet;

int QIVENPacketRead(const QIVEN_LOG *pLog, const unsigned char *szPKTInput, int cbPKTInput,
                    nasinfo *pnasinfoOutput) {
    if (!Check(pLog, kModule, nullptr != szPKTInput, "((void *)0) != szPKTInput")) return 0;
    if (!Check(pLog, kModule, 0 <= cbPKTInput, "0 <= cbPKTInput")) return 0;
    if (!Check(pLog, kModule, nullptr != pnasinfoOutput, "NULL != pnasinfoOutput")) return 0;

    memset(pnasinfoOutput, 0, sizeof *pnasinfoOutput);
    ReadCursor cursor({szPKTInput, static_cast<size_t>(cbPKTInput)});
    Bytes rgbHeader;
    if (!cursor.Take(sizeof stQIVENHeader, rgbHeader) || cursor.AtEnd()) return 0;
    if (memcmp(rgbHeader.data(), stQIVENHeader, sizeof stQIVENHeader) != 0) return 0;

    ReadState walk{pLog, *pnasinfoOutput, cursor, cursor.Left()};
    for (int nFields = 0; !walk.cursor.AtEnd(); ++nFields) {
        if (!ReadField(walk)) return 0;
        if (nFields == QIVEN_FIELDS_MAX) {
            Debug(pLog, kModule, "Maybe some virus try to hack me\n");
            return 0;
        }
    }
    if ((walk.ulMarks & kMarkField73) != 0 && pnasinfoOutput->szFieldC0[0] == '\0') {
        static_assert(sizeof pnasinfoOutput->szField73 <= sizeof pnasinfoOutput->szFieldC0);
        memccpy(pnasinfoOutput->szFieldC0, pnasinfoOutput->szField73, '\0', sizeof pnasinfoOutput->szField73);
    }
    return IsAcceptable(walk) ? static_cast<int>(walk.cbFields) : 0;
}
