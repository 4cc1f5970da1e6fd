#include "packet_walk.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>

namespace qiven::packet_walk {

namespace {

constexpr size_t kHeaderSize = sizeof stQIVENHeader;

using Bytes = std::span<const unsigned char>;

struct WalkState {
    Bytes rgbPacket;
    size_t cbAt = kHeaderSize;
    uint32_t ulPresent = 0;
    uint32_t ulArrayRun = 0;
    int iElement = 0;
    size_t cbLongText = 0;
    uint32_t ulPktType = 0;
    PacketWalk walk;

    void Refuse(const std::string &reason) {
        if (walk.reason.empty()) walk.reason = reason;
    }
};

bool IsSkipped(const PacketField &field) {
    return (field.pAttrib == nullptr || field.pAttrib->ulType == FIELD_NONE) &&
           field.bPktId != PKT_ID_CONTINUATION;
}

// A text ends at a NUL inside its value.
size_t TextLength(Bytes rgbValue) {
    return static_cast<size_t>(std::find(rgbValue.begin(), rgbValue.end(), 0) - rgbValue.begin());
}

std::string CheckText(const WalkState &state, const PacketField &field) {
    const size_t cbValue = field.rgbValue.size();
    if (field.bPktId == PKT_ID_CONTINUATION) {
        if (cbValue == 0 || state.cbLongText + cbValue < QIVEN_LONG_TEXT_SIZE) return {};
        return fmt::format("continuation brings the long text to {} bytes, at most {} fit",
                           state.cbLongText + cbValue, QIVEN_LONG_TEXT_SIZE - 1);
    }
    if (field.iElement >= QIVEN_ARRAY_MAX) {
        return fmt::format("{} elements of array 0x{:02X} in a row, at most {} fit", field.iElement + 1,
                           field.bPktId, QIVEN_ARRAY_MAX);
    }
    if (cbValue == 0 || cbValue < field.pAttrib->cbField) return {};
    return fmt::format("text of field 0x{:02X} has {} bytes, at most {} fit", field.bPktId, cbValue,
                       field.pAttrib->cbField - 1);
}

// Why the reader refuses the value of a field that it does not skip; empty if it does not.
std::string CheckValue(const WalkState &state, const PacketField &field) {
    if (field.iLength < 0)
        return fmt::format("packet ends after identifier 0x{:02X}, before its length", field.bPktId);
    if (static_cast<size_t>(field.iLength) > field.rgbValue.size()) {
        return fmt::format("value of field 0x{:02X} runs past the end: {} bytes announced, {} left",
                           field.bPktId, field.iLength, field.rgbValue.size());
    }
    if (field.pAttrib->ulType != FIELD_INTEGER) return CheckText(state, field);
    if (field.iLength == 0 || static_cast<uint32_t>(field.iLength) == field.pAttrib->cbField) return {};
    return fmt::format("integer of field 0x{:02X} has {} bytes, must have {}", field.bPktId, field.iLength,
                       field.pAttrib->cbField);
}

// Remembers what later fields and the last checks depend on.
void Keep(WalkState &state, const PacketField &field) {
    const size_t cbText = TextLength(field.rgbValue);
    if (field.bPktId == PKT_ID_CONTINUATION) {
        state.cbLongText += cbText;
        return;
    }
    state.ulPresent |= field.pAttrib->ulBasicMask;
    if (field.rgbValue.empty()) return;
    if (field.bPktId == PKT_ID_PKT_TYPE) {
        memcpy(&state.ulPktType, field.rgbValue.data(), sizeof state.ulPktType);
        state.ulPktType = QIVENSocketLEtoHl(state.ulPktType);
    }
    if (field.pAttrib->ulOffset == offsetof(nasinfo, szLongText)) state.cbLongText = cbText;
}

int NextElement(WalkState &state, const PacketField &field) {
    if (IsSkipped(field) || field.bPktId == PKT_ID_CONTINUATION) return -1;
    const bool blArray = field.pAttrib->ulType == FIELD_ARRAY;
    state.iElement = blArray && state.ulArrayRun == field.bPktId ? state.iElement + 1 : 0;
    state.ulArrayRun = blArray ? field.bPktId : 0;
    return blArray ? state.iElement : -1;
}

PacketField TakeField(WalkState &state) {
    const Bytes rgbLeft = state.rgbPacket.subspan(state.cbAt);
    PacketField field{state.cbAt, rgbLeft[0], FindField(rgbLeft[0]), -1, {}, -1, {}};
    if (rgbLeft.size() > 1) {
        field.iLength = rgbLeft[1];
        field.rgbValue = rgbLeft.subspan(2, std::min<size_t>(rgbLeft[1], rgbLeft.size() - 2));
    }
    field.iElement = NextElement(state, field);
    return field;
}

// Checks a field that the reader skips: it refuses only a missing length byte.
void CheckSkipped(WalkState &state, PacketField &field) {
    if (field.iLength < 0) {
        field.problem =
            fmt::format("packet ends after unknown identifier 0x{:02X}, before its length", field.bPktId);
        state.Refuse(field.problem);
    } else if (static_cast<size_t>(field.iLength) > field.rgbValue.size()) {
        field.problem = fmt::format("announces {} bytes, {} left: only identifier and length are skipped",
                                    field.iLength, field.rgbValue.size());
        field.rgbValue = {};
    }
}

void WalkFields(WalkState &state) {
    while (state.cbAt < state.rgbPacket.size()) {
        PacketField field = TakeField(state);
        if (IsSkipped(field)) {
            CheckSkipped(state, field);
        } else {
            field.problem = CheckValue(state, field);
            if (field.problem.empty())
                Keep(state, field);
            else
                state.Refuse(field.problem);
        }
        state.cbAt += (field.iLength < 0 ? 1 : 2) + field.rgbValue.size();
        state.walk.fields.push_back(std::move(field));
        if (state.walk.fields.size() == QIVEN_FIELDS_MAX + 1) {
            state.Refuse(fmt::format("more than {} fields", QIVEN_FIELDS_MAX));
        }
    }
}

std::string MissingFields(uint32_t ulPresent, uint32_t ulMask) {
    std::string missing;
    for (const QIVEN_FIELD_ATTRIB &attrib : grgfieldAttribs) {
        if ((attrib.ulBasicMask & ulMask & ~ulPresent) == 0) continue;
        missing += fmt::format("{}0x{:02X}", missing.empty() ? "" : ", ", attrib.ulPktId);
    }
    return missing;
}

void CheckPresence(WalkState &state) {
    const std::string basic = MissingFields(state.ulPresent, QIVEN_BASIC_MASK);
    if (!basic.empty()) state.Refuse("basic fields are missing: " + basic);
    if (state.ulPktType != QIVEN_PKT_NETSETTING) return;
    const std::string netSetting = MissingFields(state.ulPresent, QIVEN_NETSETTING_MASK);
    if (!netSetting.empty()) state.Refuse("fields of a network-setting packet are missing: " + netSetting);
}

bool StartsWith(Bytes rgbPacket, const unsigned char (&rgbHeader)[kHeaderSize]) {
    return rgbPacket.size() >= kHeaderSize && memcmp(rgbPacket.data(), rgbHeader, kHeaderSize) == 0;
}

bool ReaderAccepts(Bytes rgbPacket) {
    const auto record = std::make_unique<nasinfo>();
    return QIVENPacketRead(nullptr, rgbPacket.data(), static_cast<int>(rgbPacket.size()), record.get()) > 0;
}

}  // namespace

const QIVEN_FIELD_ATTRIB *FindField(uint32_t ulPktId) {
    const auto *pFound =
        std::lower_bound(std::begin(grgfieldAttribs), std::end(grgfieldAttribs), ulPktId,
                         [](const QIVEN_FIELD_ATTRIB &attrib, uint32_t ul) { return attrib.ulPktId < ul; });
    return pFound != std::end(grgfieldAttribs) && pFound->ulPktId == ulPktId ? pFound : nullptr;
}

PacketWalk Walk(std::span<const unsigned char> rgbPacket) {
    WalkState state{rgbPacket, kHeaderSize, 0, 0, 0, 0, 0, {}};
    if (StartsWith(rgbPacket, stQIVENHeaderEncrypted) && rgbPacket.size() > kHeaderSize) {
        state.walk.verdict = Verdict::kSealed;
        return state.walk;
    }
    if (rgbPacket.size() <= kHeaderSize) {
        state.Refuse(
            fmt::format("too short: {} bytes, a packet has at least {}", rgbPacket.size(), kHeaderSize + 1));
    } else if (!StartsWith(rgbPacket, stQIVENHeader)) {
        state.Refuse("the header is not that of a packet");
    } else {
        WalkFields(state);
        CheckPresence(state);
    }
    const bool blAccepted = !rgbPacket.empty() && ReaderAccepts(rgbPacket);
    if (blAccepted) state.walk.verdict = Verdict::kAccepted;
    if (blAccepted != state.walk.reason.empty()) {
        state.walk.reason = fmt::format("internal error: the library's reader {} this packet, against: {}",
                                        blAccepted ? "accepts" : "refuses",
                                        blAccepted ? state.walk.reason : "nothing found wrong with it");
    }
    return state.walk;
}

}  // namespace qiven::packet_walk
