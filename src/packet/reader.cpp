#include <qiven/packet.h>

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
    uint32_t ulPresent = 0;   // basic bits of the fields read
    uint32_t ulArrayRun = 0;  // identifier of the array being filled, 0 for none
    uint32_t nElement = 0;    // its current element
};

bool TakeKnownValue(Walk &walk, Bytes &rgbValue) {
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

bool ReadKnown(Walk &walk, const QIVEN_FIELD_ATTRIB &attrib) {
    unsigned char *pSlot = Slot(walk.record, attrib);
    if (attrib.ulType == FIELD_ARRAY) {
        if (!NextElement(walk, attrib.ulPktId)) return false;
        pSlot += size_t{attrib.cbField} * walk.nElement;
    } else {
        walk.ulArrayRun = 0;
    }
    Bytes rgbValue;
    if (!TakeKnownValue(walk, rgbValue)) return false;
    const bool blStored = attrib.ulType == FIELD_INTEGER
                              ? StoreInteger(rgbValue, pSlot, attrib.cbField,
                                             attrib.ulEndian == QIVENPKT_KEEP_ENDIAN ? QIVENPKT_KEEP_ENDIAN
                                                                                     : QIVENPKT_HOST_ENDIAN)
                              : StoreText(rgbValue, pSlot, attrib.cbField);
    if (blStored) walk.ulPresent |= attrib.ulBasicMask;
    return blStored;
}

bool ReadContinuation(Walk &walk) {
    Bytes rgbValue;
    if (!TakeKnownValue(walk, rgbValue)) return false;
    char *szText = walk.record.szLongText;
    const size_t cbText = strnlen(szText, kLongTextCapacity);
    return StoreText(rgbValue, szText + cbText, kLongTextCapacity - cbText);
}

bool SkipUnknown(Walk &walk, unsigned char bPktId) {
    if (bPktId != 0xA0 && bPktId != 0xA1) {
        const size_t cbOffset = walk.cbFields - walk.cursor.rgbLeft.size() - 1;
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
    const QIVEN_FIELD_ATTRIB *pAttrib = FindField(bPktId);
    if (pAttrib != nullptr && pAttrib->ulType != FIELD_NONE) return ReadKnown(walk, *pAttrib);
    if (bPktId == PKT_ID_CONTINUATION) return ReadContinuation(walk);
    return SkipUnknown(walk, bPktId);
}

bool IsAcceptable(const Walk &walk) {
    if ((walk.ulPresent & kBasicMask) != kBasicMask) {
        Debug(walk.pLog, kRoom, "Basic is not satifsfied\n");
        return false;
    }
    if (walk.record.ulPktType == QIVEN_PKT_NETSETTING &&
        (walk.ulPresent & kNetSettingMask) != kNetSettingMask) {
        Error(walk.pLog, kRoom, "not enough fields for netsetting 0x%X\n", walk.ulPresent);
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
    ReadCursor cursor{{szPKTInput, static_cast<size_t>(cbPKTInput)}};
    Bytes rgbHeader;
    if (!cursor.Take(sizeof stQIVENHeader, rgbHeader) || cursor.AtEnd()) return 0;
    if (memcmp(rgbHeader.data(), stQIVENHeader, sizeof stQIVENHeader) != 0) return 0;

    Walk walk{pLog, *pnasinfoOutput, cursor, cursor.rgbLeft.size()};
    for (int nFields = 0; !walk.cursor.AtEnd(); ++nFields) {
        if (!ReadField(walk)) return 0;
        if (nFields == QIVEN_FIELDS_MAX) {
            Debug(pLog, kRoom, "Maybe some virus try to hack me\n");
            return 0;
        }
    }
    if (pnasinfoOutput->szFieldC0[0] == '\0') {
        static_assert(sizeof pnasinfoOutput->szField73 <= sizeof pnasinfoOutput->szFieldC0);
        memccpy(pnasinfoOutput->szFieldC0, pnasinfoOutput->szField73, '\0', sizeof pnasinfoOutput->szField73);
    }
    return IsAcceptable(walk) ? static_cast<int>(walk.cbFields) : 0;
}
