#include "packed.h"

#include <qiven/packet.h>

#include <algorithm>
#include <cstring>

namespace qiven::watch {

namespace {

constexpr size_t kOwnOffsets[] = {
    offsetof(nasinfo, ulIP),        offsetof(nasinfo, ulAddr13),    offsetof(nasinfo, ulAddr14),
    offsetof(nasinfo, ulAddr15),    offsetof(nasinfo, ulAddr1E),    offsetof(nasinfo, szMacAddr),
    offsetof(nasinfo, szPubKeyHex), offsetof(nasinfo, ulProcessID), offsetof(nasinfo, ulPeerProcessID),
};
constexpr unsigned char kFirstArrayId = 0xBC, kLastArrayId = 0xBF;

template <size_t n>
void AddOnce(std::array<Slot, n> &rg, unsigned &nUsed, Slot slot) {
    const auto isSame = [slot](const Slot &other) { return other.usOffset == slot.usOffset; };
    if (std::none_of(rg.begin(), rg.begin() + nUsed, isSame)) rg[nUsed++] = slot;
}

const char *At(const nasinfo &record, size_t cbOffset) {
    return reinterpret_cast<const char *>(&record) + cbOffset;
}

void Put(Packed &packed, size_t cbOffset, const char *p, size_t cb) {
    const Slot head{static_cast<uint16_t>(cbOffset), static_cast<uint16_t>(cb)};
    unsigned char *pb = packed.rgb.data() + packed.cb;
    memcpy(pb, &head, sizeof head);
    memcpy(pb + sizeof head, p, cb);
    packed.cb += sizeof head + cb;
}

void PutText(Packed &packed, const nasinfo &record, size_t cbOffset, size_t cbSlot) {
    const char *sz = At(record, cbOffset);
    if (*sz != '\0') Put(packed, cbOffset, sz, strnlen(sz, cbSlot - 1));
}

// Inline, with a length that the compiler knows: nearly all slots are empty, and calls would take most of the
// time.
template <class Number>
inline bool IsZero(const char *p) {
    Number number;
    memcpy(&number, p, sizeof number);
    return number == 0;
}

inline void PutNumber(Packed &packed, const nasinfo &record, const Slot &slot) {
    const char *p = At(record, slot.usOffset);
    const bool blEmpty = slot.cb == sizeof(uint64_t) ? IsZero<uint64_t>(p) : IsZero<uint32_t>(p);
    if (!blEmpty) Put(packed, slot.usOffset, p, slot.cb);
}

bool IsNumber(const Slot &slot) {
    return slot.cb == sizeof(uint32_t) || slot.cb == sizeof(uint64_t);
}

}  // namespace

Layout MakeLayout() {
    Layout layout;
    for (const QIVEN_FIELD_ATTRIB &attrib : grgfieldAttribs) {
        const Slot slot{static_cast<uint16_t>(attrib.ulOffset), static_cast<uint16_t>(attrib.cbField)};
        const bool blOwn = std::any_of(std::begin(kOwnOffsets), std::end(kOwnOffsets),
                                       [&attrib](size_t cb) { return cb == attrib.ulOffset; });
        if (attrib.ulType == FIELD_NONE) continue;
        if (blOwn)
            AddOnce(layout.rgOwn, layout.nOwn, slot);
        else if (attrib.ulType == FIELD_STRING)
            AddOnce(layout.rgText, layout.nTexts, slot);
        else if (attrib.ulType == FIELD_INTEGER)
            AddOnce(layout.rgNumber, layout.nNumbers, slot);
        else if (layout.nArrays < layout.rgArray.size())
            AddOnce(layout.rgArray, layout.nArrays, slot);
    }
    return layout;
}

void Pack(const Layout &layout, const nasinfo &record, const unsigned char *pbDatagram, size_t cbDatagram,
          Packed &packed) {
    packed.cb = 0;
    for (unsigned i = 0; i < layout.nNumbers; ++i)
        PutNumber(packed, record, layout.rgNumber[i]);
    for (unsigned i = 0; i < layout.nTexts; ++i)
        PutText(packed, record, layout.rgText[i].usOffset, layout.rgText[i].cb);
    // Most answers have no arrays, and looking at all their elements costs more than everything else.
    const bool blArrays =
        pbDatagram == nullptr || std::any_of(pbDatagram, pbDatagram + cbDatagram, [](unsigned char c) {
            return c >= kFirstArrayId && c <= kLastArrayId;
        });
    for (unsigned i = 0; blArrays && i < layout.nArrays; ++i) {
        const Slot &slot = layout.rgArray[i];
        for (size_t n = 0; n < QIVEN_ARRAY_MAX; ++n)
            PutText(packed, record, slot.usOffset + n * slot.cb, slot.cb);
    }
    packed.cbDescription = packed.cb;
    for (unsigned i = 0; i < layout.nOwn; ++i) {
        if (IsNumber(layout.rgOwn[i]))
            PutNumber(packed, record, layout.rgOwn[i]);
        else
            PutText(packed, record, layout.rgOwn[i].usOffset, layout.rgOwn[i].cb);
    }
}

void Unpack(const unsigned char *pb, size_t cb, nasinfo &record) {
    memset(static_cast<void *>(&record), 0, sizeof record);
    while (cb > 0) {
        Slot head;
        memcpy(&head, pb, sizeof head);
        memcpy(reinterpret_cast<char *>(&record) + head.usOffset, pb + sizeof head, head.cb);
        pb += sizeof head + head.cb;
        cb -= sizeof head + head.cb;
    }
}

}  // namespace qiven::watch
