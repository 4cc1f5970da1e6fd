#include "packet/field_codecs.h"

#include <algorithm>

#include "log/message.h"
#include "packet/field_table.h"

using qiven::log::Check;
using qiven::log::Error;

namespace qiven::packet {

namespace {

// The field writers answer a lack of room with the (negative) number of bytes that are missing.
int Shortfall(size_t cbRoom, size_t cbValue) {
    return static_cast<int>(cbRoom) - static_cast<int>(cbValue) - 2;
}

Bytes TextBytes(const void *szText, size_t cbText) {
    return {static_cast<const unsigned char *>(szText), cbText};
}

WriteCursor Room(unsigned char *szPKTOutput, int cbPKTOutput) {
    return WriteCursor({szPKTOutput, static_cast<size_t>(cbPKTOutput)});
}

bool IsIntegerWidth(unsigned int cb) {
    return cb == sizeof(uint32_t) || cb == sizeof(uint64_t);
}

int WriteElements(WriteCursor cursor, unsigned int PktId, const unsigned char *pElements,
                  unsigned int cbElement, uint32_t nElements) {
    if (cbElement == 0) return 0;
    const size_t cbRoom = cursor.Left();
    for (uint32_t i = 0; i < nElements; ++i) {
        const unsigned char *pElement = pElements + size_t{i} * cbElement;
        const size_t cbText = strnlen(reinterpret_cast<const char *>(pElement), cbElement);
        // Without its NUL inside the width, the element would be refused by every reader, and the packet with
        // it.
        if (cbText == cbElement) return -1;
        if (cbText > 0 && !cursor.PutField(PktId, TextBytes(pElement, cbText)))
            return Shortfall(cursor.Left(), cbText);
    }
    return static_cast<int>(cbRoom - cursor.Left());
}

// The codec table calls every function through one shape; these three take fewer arguments.

int ReadIntegerSlot(const QIVEN_LOG *pLog, const unsigned char *szPKTInput, int cbPKTInput,
                    void *pFieldOutput, unsigned int cbFieldOutput, int dstEndian, unsigned int /*nIndex*/) {
    return QIVENPacketReadInteger(pLog, szPKTInput, cbPKTInput, pFieldOutput, cbFieldOutput, dstEndian);
}

int WriteStringSlot(const QIVEN_LOG *pLog, unsigned char *szPKTOutput, int cbPKTOutput, unsigned int PktId,
                    const void *pFieldInput, unsigned int cbFieldInput, int /*dstEndian*/,
                    const nasinfo * /*pNASInfo*/) {
    // The string writer is not told the width: a slot without its NUL must not send it into the next slot.
    const auto *szField = static_cast<const char *>(pFieldInput);
    if (szField != nullptr && strnlen(szField, cbFieldInput) == cbFieldInput) return -1;
    return QIVENPacketWriteString(pLog, szPKTOutput, cbPKTOutput, PktId, szField);
}

int WriteIntegerSlot(const QIVEN_LOG *pLog, unsigned char *szPKTOutput, int cbPKTOutput, unsigned int PktId,
                     const void *pFieldInput, unsigned int cbFieldInput, int dstEndian,
                     const nasinfo * /*pNASInfo*/) {
    return QIVENPacketWriteInteger(pLog, szPKTOutput, cbPKTOutput, PktId, pFieldInput, cbFieldInput,
                                   dstEndian);
}

}  // namespace

}  // namespace qiven::packet

using namespace qiven::packet;

const QIVEN_FIELD_PARSER grgfieldParsers[QIVEN_PARSER_COUNT] = {
    {FIELD_STRING, QIVENPacketReadString, WriteStringSlot},
    {FIELD_INTEGER, ReadIntegerSlot, WriteIntegerSlot},
    {FIELD_ARRAY, QIVENPacketReadArray, QIVENPacketWriteArray},
};

int QIVENPacketReadString(const QIVEN_LOG *pLog, const unsigned char *szPKTInput, int cbPKTInput,
                          void *szFieldOutput, unsigned int cbFieldOutput, int /*dstEndian*/,
                          unsigned int nIndex) {
    if (!Check(pLog, kRoom, nullptr != szPKTInput, "(((void *)0) != szPKTInput)")) return 0;
    if (!Check(pLog, kRoom, nullptr != szFieldOutput, "((void *)0) != szFieldOutput")) return 0;
    if (!Check(pLog, kRoom, 0 < cbPKTInput, "0 < cbPKTInput")) return 0;
    ReadCursor cursor({szPKTInput, static_cast<size_t>(cbPKTInput)});
    Bytes rgbValue;
    if (!cursor.TakeValue(rgbValue)) return 0;
    char *szSlot = static_cast<char *>(szFieldOutput) + size_t{cbFieldOutput} * nIndex;
    size_t cbText = 0;
    return StoreText(rgbValue, szSlot, cbFieldOutput, cbText) ? static_cast<int>(rgbValue.size()) + 1 : 0;
}

int QIVENPacketReadArray(const QIVEN_LOG *pLog, const unsigned char *szPKTInput, int cbPKTInput,
                         void *szFieldOutput, unsigned int cbFieldOutput, int dstEndian,
                         unsigned int nIndex) {
    return QIVENPacketReadString(pLog, szPKTInput, cbPKTInput, szFieldOutput, cbFieldOutput, dstEndian,
                                 nIndex);
}

int QIVENPacketReadInteger(const QIVEN_LOG *pLog, const unsigned char *szPKTInput, int cbPKTInput,
                           void *puFieldOutput, unsigned int cbFieldOutput, int dstEndian) {
    if (!Check(pLog, kRoom, nullptr != szPKTInput, "((void *)0) != szPKTInput")) return 0;
    if (!Check(pLog, kRoom, 0 < cbPKTInput, "0 < cbPKTInput")) return 0;
    if (!Check(pLog, kRoom, nullptr != puFieldOutput, "((void *)0) != puFieldOutput")) return 0;
    if (!Check(pLog, kRoom, IsIntegerWidth(cbFieldOutput),
               "(sizeof(u_int32_t) == cbFieldOutput || sizeof(u_int64_t) == cbFieldOutput)")) {
        return 0;
    }
    if (!Check(pLog, kRoom, dstEndian == QIVENPKT_HOST_ENDIAN || dstEndian == QIVENPKT_KEEP_ENDIAN,
               "(QIVENPKT_HOST_ENDIAN == dstEndian || QIVENPKT_KEEP_ENDIAN == dstEndian)")) {
        return 0;
    }
    ReadCursor cursor({szPKTInput, static_cast<size_t>(cbPKTInput)});
    Bytes rgbValue;
    if (!cursor.TakeValue(rgbValue)) return 0;
    return StoreInteger(rgbValue, puFieldOutput, cbFieldOutput, dstEndian)
               ? static_cast<int>(rgbValue.size()) + 1
               : 0;
}

int QIVENPacketWriteString(const QIVEN_LOG *pLog, unsigned char *szPKTOutput, int cbPKTOutput,
                           unsigned int PktId, const char *szFieldInput) {
    if (!Check(pLog, kRoom, nullptr != szFieldInput, "((void *)0) != szFieldInput")) return 0;
    if (!Check(pLog, kRoom, nullptr != szPKTOutput, "((void *)0) != szPKTOutput")) return 0;
    if (!Check(pLog, kRoom, PKT_ID_MIN < PktId, "PKT_ID_MIN < PktId")) return 0;
    if (!Check(pLog, kRoom, PKT_ID_MAX > PktId, "PKT_ID_MAX > PktId")) return 0;
    if (!Check(pLog, kRoom, 0 <= cbPKTOutput, "0 <= cbPKTOutput")) return 0;
    const size_t cbFieldInput = strlen(szFieldInput);
    if (!Check(pLog, kRoom, 255 >= cbFieldInput, "255 >= cbFieldInput")) return 0;
    WriteCursor cursor = Room(szPKTOutput, cbPKTOutput);
    if (!cursor.PutField(PktId, TextBytes(szFieldInput, cbFieldInput))) {
        return Shortfall(cursor.Left(), cbFieldInput);
    }
    return static_cast<int>(cbFieldInput) + 2;
}

int QIVENPacketWriteInteger(const QIVEN_LOG *pLog, unsigned char *szPKTOutput, int cbPKTOutput,
                            unsigned int PktId, const void *pulFieldInput, unsigned int cbFieldInput,
                            int dstEndian) {
    if (!Check(pLog, kRoom, nullptr != szPKTOutput, "((void *)0) != szPKTOutput")) return 0;
    if (!Check(pLog, kRoom, 0 < cbPKTOutput, "0 < cbPKTOutput")) return 0;
    if (!Check(pLog, kRoom, PKT_ID_MIN < PktId, "PKT_ID_MIN < PktId")) return 0;
    if (!Check(pLog, kRoom, PKT_ID_MAX > PktId, "PKT_ID_MAX > PktId")) return 0;
    if (!Check(pLog, kRoom, nullptr != pulFieldInput, "((void *)0) != pulFieldInput")) return 0;
    if (!Check(pLog, kRoom, IsIntegerWidth(cbFieldInput),
               "(sizeof(u_int32_t) == cbFieldInput || sizeof(u_int64_t) == cbFieldInput)")) {
        return 0;
    }
    if (!Check(pLog, kRoom, dstEndian == QIVENPKT_LITTLE_ENDIAN || dstEndian == QIVENPKT_KEEP_ENDIAN,
               "(QIVENPKT_LITTLE_ENDIAN == dstEndian || QIVENPKT_KEEP_ENDIAN == dstEndian)")) {
        return 0;
    }
    // The same conversion serves both directions, because reversing bytes twice is no change.
    unsigned char rgbValue[sizeof(uint64_t)];
    const int iMode = dstEndian == QIVENPKT_KEEP_ENDIAN ? QIVENPKT_KEEP_ENDIAN : QIVENPKT_HOST_ENDIAN;
    StoreInteger(TextBytes(pulFieldInput, cbFieldInput), rgbValue, cbFieldInput, iMode);
    WriteCursor cursor = Room(szPKTOutput, cbPKTOutput);
    if (!cursor.PutField(PktId, {rgbValue, cbFieldInput})) return Shortfall(cursor.Left(), cbFieldInput);
    return static_cast<int>(cbFieldInput) + 2;
}

int QIVENPacketWriteArray(const QIVEN_LOG *pLog, unsigned char *szPKTOutput, int cbPKTOutput,
                          unsigned int PktId, const void *szFieldInput, unsigned int cbFieldInput,
                          int dstEndian, const nasinfo *pNASInfo) {
    if (!Check(pLog, kRoom, nullptr != szFieldInput, "((void *)0) != szFieldInput")) return 0;
    if (!Check(pLog, kRoom, nullptr != szPKTOutput, "((void *)0) != szPKTOutput")) return 0;
    if (!Check(pLog, kRoom, PKT_ID_MIN < PktId, "PKT_ID_MIN < PktId")) return 0;
    if (!Check(pLog, kRoom, PKT_ID_MAX > PktId, "PKT_ID_MAX > PktId")) return 0;
    if (!Check(pLog, kRoom, 0 <= cbPKTOutput, "0 <= cbPKTOutput")) return 0;
    if (!Check(pLog, kRoom, dstEndian == QIVENPKT_LITTLE_ENDIAN || dstEndian == QIVENPKT_KEEP_ENDIAN,
               "(QIVENPKT_LITTLE_ENDIAN == dstEndian ||QIVENPKT_KEEP_ENDIAN == dstEndian)")) {
        return 0;
    }
    if (!Check(pLog, kRoom, nullptr != pNASInfo, "((void *)0) != pNASInfo")) return 0;
    if (!Check(pLog, kRoom, PKT_MAX_STRING_LEN > cbFieldInput, "PKT_MAX_STRING_LEN > cbFieldInput")) return 0;

    const auto *pMap = std::find_if(std::begin(grgFieldArrayCountMap), std::end(grgFieldArrayCountMap),
                                    [PktId](const auto &map) { return map.ulArrayPktId == PktId; });
    if (pMap == std::end(grgFieldArrayCountMap)) {
        Error(pLog, kRoom, "unknown FIELD_ARRAY PKT-ID in grgFieldArrayCountMap: [0x%X]\n", PktId);
        Error(pLog, kRoom, "Failed to get Array Count Offset.\n");
        return -1;
    }
    return WriteElements(Room(szPKTOutput, cbPKTOutput), PktId,
                         static_cast<const unsigned char *>(szFieldInput), cbFieldInput,
                         std::min<uint32_t>(pNASInfo->ulArrayCount, QIVEN_ARRAY_MAX));
}
