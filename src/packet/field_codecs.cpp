// The field codecs of the C interface and the table that names them: argument checks around values.h.
#include <algorithm>

#include "base/message.h"
#include "packet/field_table.h"
#include "packet/values.h"

using qiven::base::Check;
using qiven::base::Error;

namespace qiven::packet {

namespace {

// What a field writer returns for a value that does not fit: the (negative) number of bytes that are missing.
int Shortfall(size_t cbSpace, size_t cbValue) {
    return static_cast<int>(cbSpace) - static_cast<int>(cbValue) - 2;
}

WriteCursor SpaceAt(unsigned char *szPKTOutput, int cbPKTOutput) {
    return WriteCursor({szPKTOutput, static_cast<size_t>(cbPKTOutput)});
}

bool IsIntegerWidth(unsigned int cb) {
    return cb == sizeof(uint32_t) || cb == sizeof(uint64_t);
}

size_t TextLength(const unsigned char *pText, size_t cbMax) {
    return strnlen(reinterpret_cast<const char *>(pText), cbMax);
}

// Writes a text that ends within cbSlot bytes, and refuses one that does not: every reader would refuse the
// packet, and the bytes behind the slot belong to another field.
int WriteText(const QIVEN_LOG *pLog, unsigned char *szPKTOutput, int cbPKTOutput, unsigned int PktId,
              const char *szFieldInput, size_t cbSlot) {
    if (!Check(pLog, kModule, nullptr != szFieldInput, "((void *)0) != szFieldInput")) return 0;
    if (!Check(pLog, kModule, nullptr != szPKTOutput, "((void *)0) != szPKTOutput")) return 0;
    if (!Check(pLog, kModule, PKT_ID_MIN < PktId, "PKT_ID_MIN < PktId")) return 0;
    if (!Check(pLog, kModule, PKT_ID_MAX > PktId, "PKT_ID_MAX > PktId")) return 0;
    if (!Check(pLog, kModule, 0 <= cbPKTOutput, "0 <= cbPKTOutput")) return 0;
    const auto *pText = reinterpret_cast<const unsigned char *>(szFieldInput);
    const size_t cbText = TextLength(pText, std::min(cbSlot, kValueMax + 1));
    if (!Check(pLog, kModule, kValueMax >= cbText, "255 >= cbFieldInput")) return 0;
    if (cbText == cbSlot) return -1;
    WriteCursor cursor = SpaceAt(szPKTOutput, cbPKTOutput);
    if (!PutText<Space::kExact>(cursor, PktId, {pText, cbText + 1}, cbText + 1))
        return Shortfall(cursor.Left(), cbText);
    return static_cast<int>(cbText) + 2;
}

// Writes the elements of an array that are not empty.
int WriteElements(WriteCursor cursor, unsigned int PktId, Bytes rgbElements, size_t cbElement) {
    const size_t cbSpace = cursor.Left();
    const auto nElements = static_cast<uint32_t>(rgbElements.size() / cbElement);
    if (PutElements<Space::kExact>(cursor, PktId, rgbElements, cbElement, nElements))
        return static_cast<int>(cbSpace - cursor.Left());
    // The first element that is left could not be put.
    const size_t cbText = TextLength(rgbElements.data(), cbElement);
    return cbText == cbElement ? -1 : Shortfall(cursor.Left(), cbText);
}

// The codec table calls every function with the same arguments; these three need fewer.

int ReadIntegerSlot(const QIVEN_LOG *pLog, const unsigned char *szPKTInput, int cbPKTInput,
                    void *pFieldOutput, unsigned int cbFieldOutput, int dstEndian, unsigned int /*nIndex*/) {
    return QIVENPacketReadInteger(pLog, szPKTInput, cbPKTInput, pFieldOutput, cbFieldOutput, dstEndian);
}

int WriteStringSlot(const QIVEN_LOG *pLog, unsigned char *szPKTOutput, int cbPKTOutput, unsigned int PktId,
                    const void *pFieldInput, unsigned int cbFieldInput, int /*dstEndian*/,
                    const nasinfo * /*pNASInfo*/) {
    return WriteText(pLog, szPKTOutput, cbPKTOutput, PktId, static_cast<const char *>(pFieldInput),
                     cbFieldInput);
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
    if (!Check(pLog, kModule, nullptr != szPKTInput, "(((void *)0) != szPKTInput)")) return 0;
    if (!Check(pLog, kModule, nullptr != szFieldOutput, "((void *)0) != szFieldOutput")) return 0;
    if (!Check(pLog, kModule, 0 < cbPKTInput, "0 < cbPKTInput")) return 0;
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
    if (!Check(pLog, kModule, nullptr != szPKTInput, "((void *)0) != szPKTInput")) return 0;
    if (!Check(pLog, kModule, 0 < cbPKTInput, "0 < cbPKTInput")) return 0;
    if (!Check(pLog, kModule, nullptr != puFieldOutput, "((void *)0) != puFieldOutput")) return 0;
    if (!Check(pLog, kModule, IsIntegerWidth(cbFieldOutput),
               "(sizeof(u_int32_t) == cbFieldOutput || sizeof(u_int64_t) == cbFieldOutput)")) {
        return 0;
    }
    if (!Check(pLog, kModule, dstEndian == QIVENPKT_HOST_ENDIAN || dstEndian == QIVENPKT_KEEP_ENDIAN,
               "(QIVENPKT_HOST_ENDIAN == dstEndian || QIVENPKT_KEEP_ENDIAN == dstEndian)")) {
        return 0;
    }
    ReadCursor cursor({szPKTInput, static_cast<size_t>(cbPKTInput)});
    if (TakeInteger(cursor, puFieldOutput, cbFieldOutput, dstEndian))
        return static_cast<int>(cbFieldOutput) + 1;
    Bytes rgbValue;
    return cursor.TakeValue(rgbValue) && rgbValue.empty() ? 1 : 0;
}

int QIVENPacketWriteString(const QIVEN_LOG *pLog, unsigned char *szPKTOutput, int cbPKTOutput,
                           unsigned int PktId, const char *szFieldInput) {
    return WriteText(pLog, szPKTOutput, cbPKTOutput, PktId, szFieldInput, SIZE_MAX);
}

int QIVENPacketWriteInteger(const QIVEN_LOG *pLog, unsigned char *szPKTOutput, int cbPKTOutput,
                            unsigned int PktId, const void *pulFieldInput, unsigned int cbFieldInput,
                            int dstEndian) {
    if (!Check(pLog, kModule, nullptr != szPKTOutput, "((void *)0) != szPKTOutput")) return 0;
    if (!Check(pLog, kModule, 0 < cbPKTOutput, "0 < cbPKTOutput")) return 0;
    if (!Check(pLog, kModule, PKT_ID_MIN < PktId, "PKT_ID_MIN < PktId")) return 0;
    if (!Check(pLog, kModule, PKT_ID_MAX > PktId, "PKT_ID_MAX > PktId")) return 0;
    if (!Check(pLog, kModule, nullptr != pulFieldInput, "((void *)0) != pulFieldInput")) return 0;
    if (!Check(pLog, kModule, IsIntegerWidth(cbFieldInput),
               "(sizeof(u_int32_t) == cbFieldInput || sizeof(u_int64_t) == cbFieldInput)")) {
        return 0;
    }
    if (!Check(pLog, kModule, dstEndian == QIVENPKT_LITTLE_ENDIAN || dstEndian == QIVENPKT_KEEP_ENDIAN,
               "(QIVENPKT_LITTLE_ENDIAN == dstEndian || QIVENPKT_KEEP_ENDIAN == dstEndian)")) {
        return 0;
    }
    WriteCursor cursor = SpaceAt(szPKTOutput, cbPKTOutput);
    if (!PutInteger(cursor, PktId, pulFieldInput, cbFieldInput, dstEndian))
        return Shortfall(cursor.Left(), cbFieldInput);
    return static_cast<int>(cbFieldInput) + 2;
}

int QIVENPacketWriteArray(const QIVEN_LOG *pLog, unsigned char *szPKTOutput, int cbPKTOutput,
                          unsigned int PktId, const void *szFieldInput, unsigned int cbFieldInput,
                          int dstEndian, const nasinfo *pNASInfo) {
    if (!Check(pLog, kModule, nullptr != szFieldInput, "((void *)0) != szFieldInput")) return 0;
    if (!Check(pLog, kModule, nullptr != szPKTOutput, "((void *)0) != szPKTOutput")) return 0;
    if (!Check(pLog, kModule, PKT_ID_MIN < PktId, "PKT_ID_MIN < PktId")) return 0;
    if (!Check(pLog, kModule, PKT_ID_MAX > PktId, "PKT_ID_MAX > PktId")) return 0;
    if (!Check(pLog, kModule, 0 <= cbPKTOutput, "0 <= cbPKTOutput")) return 0;
    if (!Check(pLog, kModule, dstEndian == QIVENPKT_LITTLE_ENDIAN || dstEndian == QIVENPKT_KEEP_ENDIAN,
               "(QIVENPKT_LITTLE_ENDIAN == dstEndian ||QIVENPKT_KEEP_ENDIAN == dstEndian)")) {
        return 0;
    }
    if (!Check(pLog, kModule, nullptr != pNASInfo, "((void *)0) != pNASInfo")) return 0;
    if (!Check(pLog, kModule, PKT_MAX_STRING_LEN > cbFieldInput, "PKT_MAX_STRING_LEN > cbFieldInput"))
        return 0;

    const auto *pMap = std::find_if(std::begin(grgFieldArrayCountMap), std::end(grgFieldArrayCountMap),
                                    [PktId](const auto &map) { return map.ulArrayPktId == PktId; });
    if (pMap == std::end(grgFieldArrayCountMap)) {
        Error(pLog, kModule, "unknown FIELD_ARRAY PKT-ID in grgFieldArrayCountMap: [0x%X]\n", PktId);
        Error(pLog, kModule, "Failed to get Array Count Offset.\n");
        return -1;
    }
    if (cbFieldInput == 0) return 0;
    const size_t nElements = std::min<uint32_t>(pNASInfo->ulArrayCount, QIVEN_ARRAY_MAX);
    return WriteElements(SpaceAt(szPKTOutput, cbPKTOutput), PktId,
                         {static_cast<const unsigned char *>(szFieldInput), nElements * cbFieldInput},
                         cbFieldInput);
}
