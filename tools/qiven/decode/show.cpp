#include "decode/show.h"

#include <fmt/format.h>

#include <cstring>

#include "fields.h"
#include "output/json.h"
#include "output/standard_output.h"
#include "output/text.h"

namespace qiven::decode {

using packet_walk::PacketField;
using packet_walk::PacketWalk;
using packet_walk::Verdict;

namespace {

using Bytes = std::span<const unsigned char>;

std::string_view AsText(Bytes rgb) {
    return {reinterpret_cast<const char *>(rgb.data()), rgb.size()};
}

std::string NameOf(const PacketField &field) {
    if (field.bPktId == PKT_ID_CONTINUATION) return "long_text";
    return field.pAttrib != nullptr ? fields::NameOfId(field.bPktId) : "unknown";
}

const char *TypeOf(const PacketField &field) {
    if (field.bPktId == PKT_ID_CONTINUATION) return "continuation";
    if (field.pAttrib == nullptr) return "unknown";
    switch (field.pAttrib->ulType) {
        case FIELD_STRING:
            return "string";
        case FIELD_INTEGER:
            return field.pAttrib->ulEndian == QIVENPKT_KEEP_ENDIAN ? "address" : "integer";
        case FIELD_ARRAY:
            return "array";
        default:
            return "none";
    }
}

uint64_t NumberOf(const PacketField &field) {
    uint64_t ullValue = 0;
    for (size_t i = field.rgbValue.size(); i-- > 0;)
        ullValue = ullValue << 8 | field.rgbValue[i];
    return ullValue;
}

// The value that the reader would store; empty if it would not store any.
output::Value ValueOf(const PacketField &field) {
    const bool blText = field.bPktId == PKT_ID_CONTINUATION ||
                        (field.pAttrib != nullptr &&
                         (field.pAttrib->ulType == FIELD_STRING || field.pAttrib->ulType == FIELD_ARRAY));
    if (blText) return std::string(AsText(field.rgbValue).substr(0, AsText(field.rgbValue).find('\0')));
    if (field.pAttrib == nullptr || field.pAttrib->ulType != FIELD_INTEGER) return {};
    if (field.rgbValue.size() != field.pAttrib->cbField) return {};
    if (field.pAttrib->ulEndian != QIVENPKT_KEEP_ENDIAN) return NumberOf(field);
    uint32_t ulAddress = 0;
    memcpy(&ulAddress, field.rgbValue.data(), sizeof ulAddress);
    return fields::Dotted(ulAddress);
}

std::string ShownValue(const PacketField &field) {
    const output::Value value = ValueOf(field);
    if (const auto *pText = std::get_if<std::string>(&value)) {
        if (strcmp(TypeOf(field), "address") == 0) return *pText;
        return '"' + text::Escape(*pText, !text::IsUtf8Locale(), '"') + '"';
    }
    if (const auto *pNumber = std::get_if<uint64_t>(&value)) return fmt::format("{0} (0x{0:x})", *pNumber);
    return field.rgbValue.empty() ? "-" : text::Hex(AsText(field.rgbValue));
}

const char *VerdictText(const InputPacket &packet, Verdict verdict) {
    if (!packet.flaw.empty()) return "incomplete";
    if (verdict == Verdict::kSealed) return "sealed";
    return verdict == Verdict::kAccepted ? "accepted" : "refused";
}

std::string SealedText(const InputPacket &packet) {
    const size_t cbBox = packet.rgbPacket.size() - QIVENHeaderSizeEncrypted;
    if (cbBox <= QIVEN_SEAL_OVERHEAD) return fmt::format("a box of {} bytes, too short to open", cbBox);
    return fmt::format(
        "a box of {} bytes around a packet of {}; only the process for which it is sealed can open it", cbBox,
        cbBox - QIVEN_SEAL_OVERHEAD);
}

}  // namespace

void ShowText(const InputPacket &packet, const PacketWalk &walk) {
    std::string lines = fmt::format("{}: {} bytes", text::Escape(packet.from), packet.rgbPacket.size());
    if (!packet.time.empty()) lines += ", " + packet.time;
    if (!packet.source.empty()) lines += fmt::format(", {} > {}", packet.source, packet.destination);
    lines += fmt::format("\n  {}", VerdictText(packet, walk.verdict));
    if (!packet.flaw.empty())
        lines += ": " + packet.flaw;
    else if (walk.verdict == Verdict::kSealed)
        lines += ": " + SealedText(packet);
    else if (walk.verdict == Verdict::kRefused)
        lines += ": " + walk.reason;
    lines += '\n';
    if (!walk.fields.empty()) lines += "  OFFSET  ID    TYPE          LENGTH  NAME                  VALUE\n";
    for (const PacketField &field : walk.fields) {
        const std::string name =
            field.iElement < 0 ? NameOf(field) : fmt::format("{}[{}]", NameOf(field), field.iElement);
        const std::string length = field.iLength < 0 ? "-" : std::to_string(field.iLength);
        lines += fmt::format("  {:>6}  0x{:02X}  {:<12}  {:>6}  {:<20}  {}{}\n", field.cbOffset, field.bPktId,
                             TypeOf(field), length, name, ShownValue(field),
                             field.problem.empty() ? "" : "  ! " + field.problem);
    }
    standard_output::Write(lines);
}

namespace {

json::Node FieldJson(const PacketField &field) {
    json::Node object = json::Object();
    json::Set(object, "offset", uint64_t{field.cbOffset});
    json::Set(object, "id", uint64_t{field.bPktId});
    json::Set(object, "name", NameOf(field));
    json::Set(object, "type", std::string(TypeOf(field)));
    json::Set(object, "length", field.iLength < 0 ? output::Value() : static_cast<uint64_t>(field.iLength));
    json::Set(object, "value", ValueOf(field));
    json::Set(object, "hex", text::Hex(AsText(field.rgbValue)));
    if (field.iElement >= 0) json::Set(object, "element", static_cast<uint64_t>(field.iElement));
    if (!field.problem.empty()) json::Set(object, "problem", field.problem);
    return object;
}

}  // namespace

void ShowJson(const InputPacket &packet, const PacketWalk &walk, bool blFirst) {
    const json::Node object = json::Document();
    json::Set(object, "from", packet.from);
    if (!packet.time.empty()) json::Set(object, "time", packet.time);
    if (!packet.source.empty()) {
        json::Set(object, "source", packet.source);
        json::Set(object, "destination", packet.destination);
    }
    json::Set(object, "length", uint64_t{packet.rgbPacket.size()});
    json::Set(object, "verdict", std::string(VerdictText(packet, walk.verdict)));
    if (!packet.flaw.empty())
        json::Set(object, "reason", packet.flaw);
    else if (walk.verdict == Verdict::kRefused)
        json::Set(object, "reason", walk.reason);
    json::Node list = json::Array();
    for (const PacketField &field : walk.fields)
        json::Append(list, FieldJson(field));
    json::Set(object, "fields", std::move(list));
    standard_output::Write((blFirst ? "\n" : ",\n") + json::Text(object));
}

}  // namespace qiven::decode
