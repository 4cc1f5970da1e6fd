#include <qiven/packet.h>

#include <endian.h>

#include <cstring>

#include "log/message.h"
#include "packet/cursor.h"
#include "packet/field_codecs.h"
#include "packet/field_table.h"

using qiven::log::Check;
using qiven::log::Debug;
using qiven::log::Error;

namespace qiven::packet {

namespace {

constexpr unsigned char kPktTypeId = 0x01;
constexpr uint32_t kBasicMask = 0x03;
constexpr uint32_t kNetSettingMask = 0x1C;
// Bytes of szLongText that continuation chunks may fill, NUL included.
constexpr size_t kLongTextCapacity = 1536;

// What one packet has shown so far.
struct Walk {
    const QIVEN_LOG *pLog;
    nasinfo &record;
    ReadCursor cursor;
    size_t cbFields;          // of the whole walk, for offsets in messages
    uint32_t ulMarks = 0;     // of the fields read
    uint32_t ulArrayRun = 0;  // identifier of the array being filled, 0 for none
    uint32_t nElement = 0;    // its current element
    size_t cbLongText = 0;
    // The packet type's bytes, or null for 0. Asking the record, which has only just been cleared, would wait
    // until the clearing has reached the cache.
    const unsigned char *pPktType = nullptr;

    uint32_t Present() const { return ulMarks & kBasicMarks; }
    bool IsNetSetting() const {
        uint32_t ulPktType = 0;
        if (pPktType != nullptr) memcpy(&ulPktType, pPktType, sizeof ulPktType);
        return le32toh(ulPktType) == QIVEN_PKT_NETSETTING;
    }
};

// Always inlined, so that the walk needs no address and stays in registers: this loop is the library's
// hottest.
[[gnu::always_inline]] inline bool TakeKnownValue(Walk &walk, Bytes &rgbValue) {
    if (!Check(walk.pLog, kRoom, !walk.cursor.AtEnd(), "0 < cbPKTInput")) return false;
    return walk.cursor.TakeValue(rgbValue);
}

// Moves on to the element that the next field of an array belongs to; false after the last one.
bool NextElement(Walk &walk, uint32_t ulPktId) {
    if (walk.ulArrayRun == ulPktId) return ++walk.nElement < QIVEN_ARRAY_MAX;
    walk.ulArrayRun = ulPktId;
    walk.nElement = 0;
    return true;
}

// Reads an integer that has the length it should have; leaves everything else to the caller.
template <class Integer>
bool TakeInteger(ReadCursor &cursor, unsigned char *pSlot, int iEndian) {
    const unsigned char *pValue;
    return cursor.TakeValueOf(sizeof(Integer), pValue) &&
           StoreInteger({pValue, sizeof(Integer)}, pSlot, sizeof(Integer), iEndian);
}

bool ReadInteger(Walk &walk, const FieldEntry &field, unsigned char bPktId, unsigned char *pSlot) {
    walk.ulArrayRun = 0;
    const bool blTaken = field.cbField == sizeof(uint32_t)
                             ? TakeInteger<uint32_t>(walk.cursor, pSlot, field.bEndian)
                             : TakeInteger<uint64_t>(walk.cursor, pSlot, field.bEndian);
    if (!blTaken) {
        // Either empty, or not to be accepted.
        Bytes rgbValue;
        return TakeKnownValue(walk, rgbValue) && rgbValue.empty();
    }
    if (bPktId == kPktTypeId) walk.pPktType = walk.cursor.pAt - sizeof(uint32_t);
    return true;
}

bool ReadKnown(Walk &walk, const FieldEntry &field, unsigned char bPktId) {
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

bool ReadContinuation(Walk &walk) {
    Bytes rgbValue;
    if (!TakeKnownValue(walk, rgbValue)) return false;
    size_t cbText = 0;
    const size_t cbRoom = kLongTextCapacity - walk.cbLongText;
    if (!StoreText(rgbValue, walk.record.szLongText + walk.cbLongText, cbRoom, cbText)) return false;
    walk.cbLongText += cbText;
    return true;
}

bool SkipUnknown(Walk &walk, unsigned char bPktId) {
    if (bPktId != 0xA0 && bPktId != 0xA1) {
        const size_t cbOffset = walk.cbFields - walk.cursor.Left() - 1;
        Debug(walk.pLog, kRoom, "unknown id: [0x%02X] at offset (%lld)\n", bPktId,
              static_cast<long long>(cbOffset));
    }
    // A value that runs past the end is not skipped: what follows its length byte is read as fields.
    Bytes rgbValue;
    unsigned char bLength;
    return walk.cursor.TakeValue(rgbValue) || walk.cursor.TakeByte(bLength);
}

bool ReadField(Walk &walk) {
    unsigned char bPktId;
    if (!walk.cursor.TakeByte(bPktId)) return false;
    const FieldEntry &field = rgFieldEntries[bPktId];
    if (field.bType != FIELD_NONE) return ReadKnown(walk, field, bPktId);
    if (bPktId == PKT_ID_CONTINUATION) return ReadContinuation(walk);
    return SkipUnknown(walk, bPktId);
}

bool IsAcceptable(const Walk &walk) {
    if ((walk.Present() & kBasicMask) != kBasicMask) {
        Debug(walk.pLog, kRoom, "Basic is not satifsfied\n");
        return false;
    }
    if ((walk.Present() & kNetSettingMask) != kNetSettingMask && walk.IsNetSetting()) {
        Error(walk.pLog, kRoom, "not enough fields for netsetting 0x%X\n", walk.Present());
        return false;
    }
    return true;
}

}  // namespace

}  // namespace qiven::packet

using namespace qiven::packet;

int QIVENPacketRead(const QIVEN_LOG *pLog, const unsigned char *szPKTInput, int cbPKTInput,
                    nasinfo *pnasinfoOutput) {
    if (!Check(pLog, kRoom, nullptr != szPKTInput, "((void *)0) != szPKTInput")) return 0;
    if (!Check(pLog, kRoom, 0 <= cbPKTInput, "0 <= cbPKTInput")) return 0;
    if (!Check(pLog, kRoom, nullptr != pnasinfoOutput, "NULL != pnasinfoOutput")) return 0;

    memset(pnasinfoOutput, 0, sizeof *pnasinfoOutput);
    ReadCursor cursor({szPKTInput, static_cast<size_t>(cbPKTInput)});
    Bytes rgbHeader;
    if (!cursor.Take(sizeof stQIVENHeader, rgbHeader) || cursor.AtEnd()) return 0;
    if (memcmp(rgbHeader.data(), stQIVENHeader, sizeof stQIVENHeader) != 0) return 0;

    Walk walk{pLog, *pnasinfoOutput, cursor, cursor.Left()};
    for (int nFields = 0; !walk.cursor.AtEnd(); ++nFields) {
        if (!ReadField(walk)) return 0;
        if (nFields == QIVEN_FIELDS_MAX) {
            Debug(pLog, kRoom, "Maybe some virus try to hack me\n");
            return 0;
        }
    }
    if ((walk.ulMarks & kMarkField73) != 0 && pnasinfoOutput->szFieldC0[0] == '\0') {
        static_assert(sizeof pnasinfoOutput->szField73 <= sizeof pnasinfoOutput->szFieldC0);
        memccpy(pnasinfoOutput->szFieldC0, pnasinfoOutput->szField73, '\0', sizeof pnasinfoOutput->szField73);
    }
    return IsAcceptable(walk) ? static_cast<int>(walk.cbFields) : 0;
}
