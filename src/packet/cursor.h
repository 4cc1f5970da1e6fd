// Cursors over packet bytes. All reading and writing of a packet goes through a cursor, and every step checks
// how many bytes are left, so that a cursor cannot pass the end.
#pragma once

#include <cstddef>
#include <span>

#include "packet/block_text.h"

namespace qiven::packet {

using Bytes = std::span<const unsigned char>;

// The longest value that a length byte can announce.
inline constexpr size_t kValueMax = 255;

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

    // Takes a length byte and the value that it announces. Takes nothing if the value runs past the end.
    bool TakeValue(Bytes &rgbValue) {
        if (AtEnd() || *pAt >= Left()) return false;
        rgbValue = {pAt + 1, *pAt};
        pAt += 1 + rgbValue.size();
        return true;
    }

    // Takes a value of the given length. Takes nothing if the value has another length or runs past the end.
    // With a constant length, the processor can look at the next field before this length byte has arrived.
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
        CopyExactly<false>(pAt, rgb.data(), rgb.size());
        pAt += rgb.size();
        return true;
    }

    // Puts identifier and length, and returns the place of the value. Puts nothing and returns null if the
    // whole field does not fit.
    unsigned char *BeginField(unsigned int ulPktId, size_t cbValue) {
        if (cbValue + 2 > Left()) return nullptr;
        unsigned char *pField = pAt;
        pField[0] = static_cast<unsigned char>(ulPktId);
        pField[1] = static_cast<unsigned char>(cbValue);
        pAt += cbValue + 2;
        return pField + 2;
    }

    // Puts identifier and length in front of a value that is in its place already, two bytes on.
    void EndField(unsigned int ulPktId, size_t cbValue) {
        pAt[0] = static_cast<unsigned char>(ulPktId);
        pAt[1] = static_cast<unsigned char>(cbValue);
        pAt += cbValue + 2;
    }

    // Puts identifier, length and value. Puts nothing if they do not fit.
    bool PutField(unsigned int ulPktId, Bytes rgbValue) {
        unsigned char *pValue = BeginField(ulPktId, rgbValue.size());
        return pValue != nullptr && CopyExactly<false>(pValue, rgbValue.data(), rgbValue.size());
    }
};

}  // namespace qiven::packet
