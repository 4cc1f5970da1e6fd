// The subcommand: reads its input, and shows each packet.
#include <fmt/format.h>

#include <unistd.h>

#include "commands.h"
#include "decode/input.h"
#include "decode/show.h"
#include "exit_status.h"
#include "messages.h"
#include "output/standard_output.h"
#include "packet_walk.h"

namespace qiven::decode {

namespace {

using packet_walk::PacketWalk;
using packet_walk::Verdict;
using Bytes = std::span<const unsigned char>;

struct Inputs {
    std::vector<std::string> hex;
    std::vector<std::string> raw;
    std::vector<std::string> captures;
    bool blJson = false;
};

struct Tally {
    bool blJson;
    size_t nShown = 0;
    size_t nBad = 0;
};

void Show(Tally &tally, InputPacket packet) {
    // A reader receives at most this much of a datagram.
    if (packet.rgbPacket.size() > QIVEN_PACKET_MAX) {
        packet.from += fmt::format(" (first {} of {} bytes)", QIVEN_PACKET_MAX, packet.rgbPacket.size());
        packet.rgbPacket = packet.rgbPacket.first(QIVEN_PACKET_MAX);
    }
    const PacketWalk walk = packet_walk::Walk(packet.rgbPacket);
    if (!packet.flaw.empty() || walk.verdict == Verdict::kRefused) ++tally.nBad;
    if (tally.blJson)
        ShowJson(packet, walk, tally.nShown == 0);
    else
        ShowText(packet, walk);
    ++tally.nShown;
}

// A dump of a capture starts with the IP and UDP headers.
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
    if (!ParseHex(digits, packets, error)) return Complain(exit_status::kUsage, where, error);
    if (packets.empty()) return Complain(exit_status::kUsage, where, "no hexadecimal digits");
    for (size_t i = 0; i < packets.size(); ++i)
        ShowHex(tally, packets.size() == 1 ? where : fmt::format("{} #{}", where, i + 1), packets[i]);
    return exit_status::kDone;
}

int DecodeInputs(Tally &tally, const Inputs &inputs) {
    std::string error;
    if (inputs.hex.empty() && inputs.raw.empty() && inputs.captures.empty()) {
        std::string digits;
        if (isatty(STDIN_FILENO) == 1) messages::Say("enter hexadecimal digits, then press Ctrl-D", "decode");
        if (!ReadWhole("-", kHexTextMax, digits, error))
            return Complain(exit_status::kFailed, "standard input", error);
        return DecodeHex(tally, "standard input", digits);
    }
    if (!inputs.hex.empty()) {
        const int iStatus = DecodeHex(tally, "argument", fmt::format("{}", fmt::join(inputs.hex, " ")));
        if (iStatus != exit_status::kDone) return iStatus;
    }
    int iStatus = exit_status::kDone;
    for (const std::string &path : inputs.raw) {
        std::string content;
        if (!ReadWhole(path, kRawMax, content, error)) {
            iStatus = Complain(exit_status::kFailed, path, error);
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
        if (!ReadCapture(path, sink, error)) iStatus = Complain(exit_status::kFailed, path, error);
    }
    return iStatus;
}

int Decode(const Inputs &inputs) {
    Tally tally{inputs.blJson};
    if (inputs.blJson) standard_output::Write("[");
    const int iStatus = DecodeInputs(tally, inputs);
    if (inputs.blJson) standard_output::Write(tally.nShown == 0 ? "]\n" : "\n]\n");
    if (iStatus != exit_status::kDone) return iStatus;
    if (tally.nShown == 0)
        return Complain(exit_status::kNotFound, "nothing found", "no packet to or from port 9999");
    return tally.nBad == 0 ? exit_status::kDone : exit_status::kNotFound;
}

}  // namespace

command_line::Subcommand Command() {
    static Inputs inputs;
    const auto setFormat = [](const std::string &format) { inputs.blJson = format == "json"; };
    return {
        .szHelp = "Show the fields of packets, and why a packet would be refused",
        .options = {{"HEX", &inputs.hex,
                     "One packet in hexadecimal digits; without input, packets are read from standard input"},
                    {.szNames = "--raw",
                     .target = &inputs.raw,
                     .help = "File that contains one packet",
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
