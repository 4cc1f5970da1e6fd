// Any text as hexadecimal digits, and any bytes in each form of dump that qiven decode reads.
#include "../tools/qiven/decode/input.h"
#include "fuzz.h"

namespace {

using fuzz::Require;
using Packet = std::vector<unsigned char>;
using Packets = std::vector<Packet>;

template <class... Values>
std::string Format(const char *szFormat, Values... values) {
    char sz[64];
    snprintf(sz, sizeof sz, szFormat, values...);
    return sz;
}

std::string Digits(const Packet &packet, const char *szBetween) {
    std::string text;
    for (const unsigned char b : packet)
        text += (text.empty() ? "" : szBetween) + Format("%02x", b);
    return text;
}

// The output of xxd and tcpdump -X: an offset, digits in pairs of bytes, and the bytes as text.
std::string Dump(const Packet &packet, const char *szOffset) {
    std::string text;
    for (size_t i = 0; i < packet.size(); i += 16) {
        std::string digits, letters;
        for (size_t j = i; j < std::min(i + 16, packet.size()); ++j) {
            digits += Format("%02x", packet[j]) + (j % 2 == 1 ? " " : "");
            letters += packet[j] >= ' ' && packet[j] <= '~' ? static_cast<char>(packet[j]) : '.';
        }
        digits.resize(40, ' ');
        text += Format(szOffset, static_cast<unsigned int>(i)) + digits + " " + letters + "\n";
    }
    return text;
}

void RequireParsed(const std::string &text, const Packets &expected) {
    Packets packets;
    std::string error;
    Require(qiven::decode::ParseHex(text, packets, error) && error.empty(), "a dump can be read");
    Require(packets == expected, "a dump gives the bytes that were dumped");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t cbData) {
    Packets packets;
    std::string error;
    if (qiven::decode::ParseHex(fuzz::AsText(pData, cbData), packets, error)) {
        std::string text;
        for (const Packet &packet : packets)
            text += (packet.empty() ? ":" : Digits(packet, "")) + "\n\n";
        RequireParsed(text, packets);
    } else {
        Require(error.starts_with("line "), "an error says its line");
        Require(std::all_of(error.begin(), error.end(), [](char c) { return c >= ' ' && c <= '~'; }),
                "an error can be printed");
    }
    const Packet packet(pData, pData + cbData);
    if (packet.empty()) return 0;
    for (const char *szBetween : {"", " ", ":", "\n", " 0x", "\t\r\n"})
        RequireParsed(Digits(packet, szBetween), {packet});
    for (const char *szOffset : {"%08x: ", "\t0x%04x:  "})
        RequireParsed(Dump(packet, szOffset) + Dump(packet, szOffset), {packet, packet});
    return 0;
}
