// The only way to packet bytes: a cursor that every step checks against what is left, so that it cannot pass
// its end.
#pragma once

#include <cstddef>
#include <cstring>
#include <span>

#include "packet/text.h"

namespace qiven::packet {

using Bytes = std::span<const unsigned char>;

// Reads a packet from front to back.
struct ReadCursor {
    const unsigned char *pAt;
    const unsigned char *pEnd;

    explicit ReadCursor(Bytes rgb) : pAt(rgb.data()), pEnd(rgb.data() + rgb.size()) {}

    Bytes Rest() const { return {pAt, pEnd}; }
    size_t Left() const { return static_cast<size_t>(pEnd - pAt); }
    bool AtEnd() const { return pAt == pEnd; }

    bool TakeByte(unsigned char &bValue) {
        if (AtEnd()) return false;
        bValue = *pAt++;
        return true;
    }

    bool Take(size_t cb, Bytes &rgbTaken) {
        if (cb > Left()) return false;
        rgbTaken = {pAt, cb};
        pAt += cb;
        return true;
    }

    // Takes a length byte and the value it announces; takes nothing when the value runs past the end.
    bool TakeValue(Bytes &rgbValue) {
        if (AtEnd() || *pAt >= Left()) return false;
        rgbValue = {pAt + 1, *pAt};
        pAt += 1 + rgbValue.size();
        return true;
    }

    // Takes a value that has the given length, and leaves one that has not. A constant length matters: the
    // next field can then be looked at before this one's length byte has arrived.
    bool TakeValueOf(size_t cb, const unsigned char *&pValue) {
        if (Left() <= cb || *pAt != cb) return false;
        pValue = pAt + 1;
        pAt += 1 + cb;
        return true;
    }
};

// Fills a packet buffer from front to back.
struct WriteCursor {
    std::span<unsigned char> rgbRoom;

    bool Put(Bytes rgb) {
        if (rgb.size() > rgbRoom.size()) return false;
        CopyBytes<false>(rgbRoom.data(), rgb.data(), rgb.size());
        rgbRoom = rgbRoom.subspan(rgb.size());
        return true;
    }

    // Puts identifier and length, and returns where the value goes; null when they do not all fit.
    unsigned char *BeginField(unsigned int ulPktId, size_t cbValue) {
        if (cbValue + 2 > rgbRoom.size()) return nullptr;
        unsigned char *pField = rgbRoom.data();
        pField[0] = static_cast<unsigned char>(ulPktId);
        pField[1] = static_cast<unsigned char>(cbValue);
        rgbRoom = rgbRoom.subspan(cbValue + 2);
        return pField + 2;
    }

    // Puts identifier, length and value; puts nothing when they do not all fit.
    bool PutField(unsigned int ulPktId, Bytes rgbValue) {
        unsigned char *pValue = BeginField(ulPktId, rgbValue.size());
        return pValue != nullptr && CopyBytes<false>(pValue, rgbValue.data(), rgbValue.size());
    }

    // Puts the text of a slot of cbSlot bytes, which may be looked at with what follows it in the record;
    // puts nothing when it is no text of a field or does not fit. Behind it, the room holds anything
    // afterwards.
    bool PutSlot(unsigned int ulPktId, Bytes rgbSlotOn, size_t cbSlot) {
        constexpr size_t kTextMax = 255;
        const unsigned char *pSlot = rgbSlotOn.data();
        const bool blBlocks =
            WholeBlocks(cbSlot) <= rgbSlotOn.size() && WholeBlocks(cbSlot) + 2 <= rgbRoom.size();
        const size_t cbText = blBlocks ? CopySlot(rgbRoom.data() + 2, pSlot, cbSlot)
                                       : strnlen(reinterpret_cast<const char *>(pSlot), cbSlot);
        if (cbText >= cbSlot || cbText > kTextMax) return false;
        return blBlocks ? BeginField(ulPktId, cbText) != nullptr : PutField(ulPktId, {pSlot, cbText});
    }

    // Steps over bytes that somebody else has put at the front of the room.
    bool Skip(size_t cb) {
        if (cb > rgbRoom.size()) return false;
        rgbRoom = rgbRoom.subspan(cb);
        return true;
    }
};

}  // namespace qiven::packet
