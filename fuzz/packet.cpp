// Any bytes as a plain packet: two readers agree, and an accepted record can be
// written and read back unchanged.
#include <memory>
#include <utility>

#include "same_read.h"

namespace {

using fuzz::Require;

// Each slot once, under its last identifier: these can be basic fields, and send a long text in chunks.
bool IsPreferred(const SlowField &field) {
    for (const SlowField &other : kSlowFields) {
        if (other.cbOffset == field.cbOffset && other.id > field.id) return false;
    }
    return true;
}

bool IsBasic(const SlowField &field, const nasinfo &record) {
    return (SlowBasicMask(field.id) &
            (record.ulPktType == 3 ? QIVEN_BASIC_MASK | QIVEN_NETSETTING_MASK : QIVEN_BASIC_MASK)) != 0;
}

bool IsZero(const char *p, size_t cb) {
    return std::all_of(p, p + cb, [](char c) { return c == 0; });
}

// Bytes after the NUL, left over from a longer text, are not part of the text.
void ClearRest(char *szText, size_t cb) {
    const size_t cbText = strnlen(szText, cb);
    memset(szText + cbText, 0, cb - cbText);
}

// The record as it is read back: empty elements are not sent.
nasinfo Tidy(const nasinfo &record) {
    nasinfo tidy = record;
    for (const SlowField &field : kSlowFields) {
        char *pSlot = reinterpret_cast<char *>(&tidy) + field.cbOffset;
        if (field.cKind == 's') ClearRest(pSlot, field.cbWidth);
        if (field.cKind != 'a') continue;
        std::string texts;
        for (size_t i = 0; i < 32; ++i) {
            char *szElement = pSlot + i * field.cbWidth;
            ClearRest(szElement, field.cbWidth);
            if (szElement[0] != '\0') texts.append(szElement, field.cbWidth);
        }
        texts.resize(32 * field.cbWidth);
        memcpy(pSlot, texts.data(), texts.size());
    }
    return tidy;
}

void RequireCanBeSentOn(const nasinfo &received) {
    nasinfo record = Tidy(received);
    QIVEN_SEND send{&record, 0, {}};
    for (const SlowField &field : kSlowFields) {
        const char *pSlot = reinterpret_cast<const char *>(&record) + field.cbOffset;
        const bool blDefault = field.id == 0xC0 && strcmp(record.szFieldC0, record.szField73) == 0;
        const size_t cbSlot = field.cbWidth * (field.cKind == 'a' ? 32 : 1);
        if (blDefault || !IsPreferred(field)) continue;
        if (IsBasic(field, record) || !IsZero(pSlot, cbSlot))
            QIVENSendPktIDAdd(nullptr, &send, static_cast<unsigned int>(field.id), 0);
    }
    const uint32_t ulArrayCount = std::exchange(record.ulArrayCount, 32);
    int cbBuffer = QIVEN_PACKET_MAX;
    auto *pBuffer = static_cast<unsigned char *>(malloc(QIVEN_PACKET_MAX));
    const int cbPacket = QIVENPacketWrite(nullptr, &pBuffer, &cbBuffer, &send);
    const std::unique_ptr<unsigned char, decltype(&free)> owner(pBuffer, free);
    Require(cbPacket > 8, "an accepted record can be written");
    nasinfo back = fuzz::Dirty();
    Require(QIVENPacketRead(nullptr, pBuffer, cbPacket, &back) == cbPacket - 8,
            "an accepted record is accepted again when it is sent on");
    Require(back.ulArrayCount == (ulArrayCount == 0 ? 0 : 32), "the count travels when it is not 0");
    back.ulArrayCount = record.ulArrayCount;
    Require(fuzz::SameBytes(record, back), "an accepted record comes back equal when it is sent on");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t cbData) {
    const SlowReader read = fuzz::RequireSameRead(fuzz::AsText(pData, cbData), QIVENPacketRead);
    Require(read.iResult == 0 || read.iResult == static_cast<int>(cbData) - 8,
            "an accepted packet is consumed whole");
    if (read.iResult > 0) RequireCanBeSentOn(read.record);
    return 0;
}
