// The only way to packet bytes: a cursor that every step checks against what is left, so that it cannot pass
// its end.
#pragma once

#include <cstddef>
#include <cstring>
#include <span>

namespace qiven::packet {

using Bytes = std::span<const unsigned char>;

// Reads a packet from front to back.
struct ReadCursor {
    Bytes rgbLeft;

    bool AtEnd() const { return rgbLeft.empty(); }

    bool TakeByte(unsigned char &bValue) {
        if (rgbLeft.empty()) return false;
        bValue = rgbLeft.front();
        rgbLeft = rgbLeft.subspan(1);
        return true;
    }

    bool Take(size_t cb, Bytes &rgbTaken) {
        if (cb > rgbLeft.size()) return false;
        rgbTaken = rgbLeft.first(cb);
        rgbLeft = rgbLeft.subspan(cb);
        return true;
    }

    // Takes a length byte and the value it announces; takes nothing when the value runs past the end.
    bool TakeValue(Bytes &rgbValue) {
        if (rgbLeft.empty() || rgbLeft.front() >= rgbLeft.size()) return false;
        rgbValue = rgbLeft.subspan(1, rgbLeft.front());
        rgbLeft = rgbLeft.subspan(1 + rgbValue.size());
        return true;
    }
};

// Fills a packet buffer from front to back.
struct WriteCursor {
    std::span<unsigned char> rgbRoom;

    bool Put(Bytes rgb) {
        if (rgb.size() > rgbRoom.size()) return false;
        if (!rgb.empty()) memcpy(rgbRoom.data(), rgb.data(), rgb.size());
        rgbRoom = rgbRoom.subspan(rgb.size());
        return true;
    }

    // Puts identifier, length and value; puts nothing when they do not all fit.
    bool PutField(unsigned int ulPktId, Bytes rgbValue) {
        if (rgbValue.size() + 2 > rgbRoom.size()) return false;
        rgbRoom[0] = static_cast<unsigned char>(ulPktId);
        rgbRoom[1] = static_cast<unsigned char>(rgbValue.size());
        rgbRoom = rgbRoom.subspan(2);
        return Put(rgbValue);
    }

    // Steps over bytes that somebody else has put at the front of the room.
    bool Skip(size_t cb) {
        if (cb > rgbRoom.size()) return false;
        rgbRoom = rgbRoom.subspan(cb);
        return true;
    }
};

}  // namespace qiven::packet
