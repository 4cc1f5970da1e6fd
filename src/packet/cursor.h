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
    unsigned char *pAt;
    unsigned char *pEnd;

    explicit WriteCursor(std::span<unsigned char> rgb) : pAt(rgb.data()), pEnd(rgb.data() + rgb.size()) {}

    size_t Left() const { return static_cast<size_t>(pEnd - pAt); }

    bool Put(Bytes rgb) {
        if (rgb.size() > Left()) return false;
        CopyBytes<false>(pAt, rgb.data(), rgb.size());
        pAt += rgb.size();
        return true;
    }

    // Puts identifier and length, and returns where the value goes; null when they do not all fit.
    unsigned char *BeginField(unsigned int ulPktId, size_t cbValue) {
        if (cbValue + 2 > Left()) return nullptr;
        unsigned char *pField = pAt;
        pField[0] = static_cast<unsigned char>(ulPktId);
        pField[1] = static_cast<unsigned char>(cbValue);
        pAt += cbValue + 2;
        return pField + 2;
    }

    // Puts identifier, length and value; puts nothing when they do not all fit.
    bool PutField(unsigned int ulPktId, Bytes rgbValue) {
        unsigned char *pValue = BeginField(ulPktId, rgbValue.size());
        return pValue != nullptr && CopyBytes<false>(pValue, rgbValue.data(), rgbValue.size());
    }

    // Puts the text of a slot of cbSlot bytes, which may be looked at with what follows it in the record;
    // puts nothing when it is no text of a field or does not fit. Behind it, the room holds anything
    // afterwards. Always inlined, so that the writer's cursor needs no address and stays in registers.
    [[gnu::always_inline]] bool PutSlot(unsigned int ulPktId, Bytes rgbSlotOn, size_t cbSlot) {
        constexpr size_t kTextMax = 255;
        const unsigned char *pSlot = rgbSlotOn.data();
        const size_t cbBlocks = WholeBlocks(cbSlot);
        if (cbBlocks > rgbSlotOn.size() || cbBlocks + 2 > Left()) {
            const size_t cbText = strnlen(reinterpret_cast<const char *>(pSlot), cbSlot);
            return cbText < cbSlot && cbText <= kTextMax && PutField(ulPktId, {pSlot, cbText});
        }
        const size_t cbText = CopySlot(pAt + 2, pSlot, cbSlot);
        if (cbText >= cbSlot || cbText > kTextMax) return false;
        pAt[0] = static_cast<unsigned char>(ulPktId);
        pAt[1] = static_cast<unsigned char>(cbText);
        pAt += cbText + 2;
        return true;
    }

    // Steps over bytes that somebody else has put at the front of the room.
    bool Skip(size_t cb) {
        if (cb > Left()) return false;
        pAt += cb;
        return true;
    }
};

}  // namespace qiven::packet
