// Any bytes as a packet for qiven decode: its verdict is that of the readers, and it shows every byte.
#include "../tools/qiven/packet_walk.h"

#include "fuzz.h"
#include "support/slow_reader.h"

namespace {

using fuzz::Require;
using qiven::packet_walk::PacketField;
using qiven::packet_walk::PacketWalk;
using qiven::packet_walk::Verdict;

// The fields lie back to back from the header to the end.
void RequireWhole(const PacketWalk &walk, const uint8_t *pData, size_t cbData) {
    size_t cbAt = kPlainHeader.size();
    for (const PacketField &field : walk.fields) {
        Require(field.cbOffset == cbAt && cbAt < cbData && field.bPktId == pData[cbAt],
                "every field is where the one before it ends");
        const bool blLength = ++cbAt < cbData;
        Require(field.iLength == (blLength ? pData[cbAt] : -1), "a length is what its byte says");
        cbAt += blLength ? 1 : 0;
        Require(field.rgbValue.empty() || field.rgbValue.data() == pData + cbAt,
                "a value is behind its length");
        Require(static_cast<int>(field.rgbValue.size()) <= std::max(field.iLength, 0),
                "a value is no longer than announced");
        cbAt += field.rgbValue.size();
        const bool blKnown = field.pAttrib != nullptr && field.pAttrib->ulPktId == field.bPktId;
        Require(blKnown || field.pAttrib == nullptr, "a field's table entry is its own");
    }
    Require(cbAt == cbData, "the fields end where the packet ends");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t cbData) {
    const std::string packet(fuzz::AsText(pData, cbData));
    const PacketWalk walk = qiven::packet_walk::Walk({pData, cbData});
    if (packet.size() > 8 && packet.starts_with(kSealedHeader)) {
        Require(walk.verdict == Verdict::kSealed && walk.fields.empty(),
                "a sealed packet is not looked into");
        return 0;
    }
    const SlowReader slow(packet);
    Require(walk.verdict == (slow.iResult > 0 ? Verdict::kAccepted : Verdict::kRefused),
            "the verdict is the reader's");
    Require(walk.reason.empty() == (slow.iResult > 0), "a refusal has its reason, and nothing else has one");
    Require(walk.reason.find("internal error") == std::string::npos, "the walk finds what the reader finds");
    if (packet.size() > 8 && packet.starts_with(kPlainHeader)) RequireWhole(walk, pData, cbData);
    return 0;
}
