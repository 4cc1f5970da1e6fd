// The packets that are measured, each with the record that it describes.
#pragma once

#include <qiven/nasinfo.h>
#include <qiven/packet.h>

#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace bench {

// A value of a packet and its slot in the record.
struct Copy {
    size_t cbSlotOffset;
    size_t cbPacketOffset;
    size_t cb;
};

struct Packet {
    std::shared_ptr<nasinfo> record = std::make_shared<nasinfo>();
    QIVEN_SEND send{};
    std::string bytes;
    std::vector<Copy> copies;  // the floor of a reader or writer
};

// One packet, or several in rotation.
using Packets = std::vector<Packet>;

const Packets &Query();    // the query of a search: 20 bytes, 2 fields
const Packets &Typical();  // a host's answer: 20 fields, 211 bytes
const Packets &Mixed();  // 128 answers that differ in their fields, their order and the length of their texts
const Packets &Fields64();  // as many fields as a reader accepts, long text and arrays: about 6 KB

// An answer of exactly this size.
Packet Sized(size_t cb);

// Aborts the program unless both records are equal.
void DemandEqual(const nasinfo &left, const nasinfo &right, const char *szWho);
[[noreturn]] void Fail(const std::string &what);

}  // namespace bench
