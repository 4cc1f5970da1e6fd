#include <fmt/format.h>

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "commands.h"
#include "decode/input.h"
#include "exit_status.h"
#include "fields.h"
#include "json.h"
#include "messages.h"
#include "output.h"
#include "packet_walk.h"
#include "text.h"

namespace qiven::decode {

namespace {

using packet_walk::PacketField;
using packet_walk::PacketWalk;
using packet_walk::Verdict;
using Bytes = std::span<const unsigned char>;

constexpr uint64_t kSchema = 1;

struct Inputs {
    std::vector<std::string> hex;
    std::vector<std::string> raw;
    std::vector<std::string> captures;
    bool blJson = false;
};

// What has been shown so far.
struct Tally {
    bool blJson;
    size_t nShown = 0;
    size_t nBad = 0;
};

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

// The value as the reader would store it; nothing when it would not.
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
        if (std::strcmp(TypeOf(field), "address") == 0) return *pText;
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
    constexpr size_t kSealOverhead = 48;
    if (cbBox <= kSealOverhead) return fmt::format("a box of {} bytes, too short to be opened", cbBox);
    return fmt::format("a box of {} bytes around a packet of {}; only the process it is for can open it",
                       cbBox, cbBox - kSealOverhead);
}

void PrintText(const InputPacket &packet, const PacketWalk &walk) {
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
    output::Write(lines);
}

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

void PrintJson(const InputPacket &packet, const PacketWalk &walk, bool blFirst) {
    const json::Node object = json::Object();
    json::Set(object, "schema", kSchema);
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
    output::Write((blFirst ? "\n" : ",\n") + json::Text(object));
}

void Show(Tally &tally, InputPacket packet) {
    // Nobody receives more of a datagram than this.
    if (packet.rgbPacket.size() > QIVEN_PACKET_MAX) {
        packet.from += fmt::format(" (first {} of {} bytes)", QIVEN_PACKET_MAX, packet.rgbPacket.size());
        packet.rgbPacket = packet.rgbPacket.first(QIVEN_PACKET_MAX);
    }
    const PacketWalk walk = packet_walk::Walk(packet.rgbPacket);
    if (!packet.flaw.empty() || walk.verdict == Verdict::kRefused) ++tally.nBad;
    if (tally.blJson)
        PrintJson(packet, walk, tally.nShown == 0);
    else
        PrintText(packet, walk);
    ++tally.nShown;
}

// A dump of a capture has the IP and UDP headers in front.
void ShowHex(Tally &tally, const std::string &from, Bytes rgbPacket) {
    Datagram datagram;
    if (ParseIPv4(rgbPacket, 0, datagram)) {
        Show(tally, {from, {}, datagram.source, datagram.destination, datagram.flaw, datagram.rgbPayload});
    } else {
        Show(tally, {from, {}, {}, {}, {}, rgbPacket});
    }
}

int Complain(int iStatus, const std::string &where, const std::string &error) {
    messages::Say(fmt::format("{}: {}", where, error), "decode");
    return iStatus;
}

int DecodeHex(Tally &tally, const std::string &where, const std::string &digits) {
    std::vector<std::vector<unsigned char>> packets;
    std::string error;
    if (!ParseHex(digits, packets, error)) return Complain(kUsage, where, error);
    if (packets.empty()) return Complain(kUsage, where, "no hexadecimal digits");
    for (size_t i = 0; i < packets.size(); ++i)
        ShowHex(tally, packets.size() == 1 ? where : fmt::format("{} #{}", where, i + 1), packets[i]);
    return kDone;
}

int DecodeInputs(Tally &tally, const Inputs &inputs) {
    std::string error;
    if (inputs.hex.empty() && inputs.raw.empty() && inputs.captures.empty()) {
        std::string digits;
        if (isatty(STDIN_FILENO) == 1) messages::Say("type hexadecimal digits, end with Ctrl-D", "decode");
        if (!ReadWhole("-", kHexTextMax, digits, error)) return Complain(kNetwork, "standard input", error);
        return DecodeHex(tally, "standard input", digits);
    }
    if (!inputs.hex.empty()) {
        const int iStatus = DecodeHex(tally, "argument", fmt::format("{}", fmt::join(inputs.hex, " ")));
        if (iStatus != kDone) return iStatus;
    }
    int iStatus = kDone;
    for (const std::string &path : inputs.raw) {
        std::string content;
        if (!ReadWhole(path, kRawMax, content, error)) {
            iStatus = Complain(kNetwork, path, error);
            continue;
        }
        Show(tally, {path,
                     {},
                     {},
                     {},
                     {},
                     {reinterpret_cast<const unsigned char *>(content.data()), content.size()}});
    }
    for (const std::string &path : inputs.captures) {
        const auto sink = [&tally](const InputPacket &packet) { Show(tally, packet); };
        if (!ReadCapture(path, sink, error)) iStatus = Complain(kNetwork, path, error);
    }
    return iStatus;
}

int Decode(const Inputs &inputs) {
    Tally tally{inputs.blJson};
    if (inputs.blJson) output::Write("[");
    const int iStatus = DecodeInputs(tally, inputs);
    if (inputs.blJson) output::Write(tally.nShown == 0 ? "]\n" : "\n]\n");
    if (iStatus != kDone) return iStatus;
    if (tally.nShown == 0) return Complain(kNothing, "nothing found", "no packet to or from port 9999");
    return tally.nBad == 0 ? kDone : kNothing;
}

}  // namespace

command_line::Subcommand Command() {
    static Inputs inputs;
    const auto setFormat = [](const std::string &format) { inputs.blJson = format == "json"; };
    return {
        .szHelp = "Show packets field by field, and why one would be refused",
        .options =
            {{"HEX", &inputs.hex,
              "One packet in hexadecimal digits; without any input, packets are read from standard input"},
             {.szNames = "--raw",
              .target = &inputs.raw,
              .help = "File that holds one packet and nothing else",
              .szValue = "FILE"},
             {.szNames = "--pcap",
              .target = &inputs.captures,
              .help = "Capture in pcap or pcapng format",
              .szValue = "FILE"},
             {.szNames = "--format",
              .target = setFormat,
              .help = "Output format: text (default) or json",
              .choices = {"text", "json"}}},
        .run = [] { return Decode(inputs); }};
}

}  // namespace qiven::decode
