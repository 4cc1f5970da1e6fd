// A record of 12 KB without its zeros: mostly some 200 bytes.
#pragma once

#include <qiven/nasinfo.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace qiven::watch {

// The slots of the record, by kind; made from the field table.
struct Slot {
    uint16_t usOffset, cb;
};
struct Layout {
    std::array<Slot, 80> rgText, rgNumber, rgOwn;
    std::array<Slot, 4> rgArray;
    unsigned nTexts = 0, nNumbers = 0, nArrays = 0;
    unsigned nOwn =
        0;  // what differs from interface to interface, or from query to query, of an unchanged host
};
Layout MakeLayout();

// All slots full, each with its head.
constexpr size_t kPackedMax = sizeof(nasinfo) + sizeof(Slot) * (80 + 4 * size_t{QIVEN_ARRAY_MAX});

struct Packed {
    size_t cbDescription = 0;  // of the bytes: what makes up the host; the rest is of the one answer
    size_t cb = 0;
    std::array<unsigned char, kPackedMax> rgb;
};

// The datagram that the record was read from tells whether there can be arrays; null if it is not at hand.
void Pack(const Layout &layout, const nasinfo &record, const unsigned char *pbDatagram, size_t cbDatagram,
          Packed &packed);
void Unpack(const unsigned char *pb, size_t cb, nasinfo &record);

}  // namespace qiven::watch
