// Any bytes as a capture, as an IPv4 packet, and as the payload of a datagram.
#include "../tools/qiven/decode/input.h"
#include "fuzz.h"
#include "support/memory_file.h"

namespace {

using fuzz::Require;
using qiven::decode::Datagram;
using Bytes = std::span<const unsigned char>;

// Whether a text matches the pattern, in which 0 stands for any digit.
bool IsLike(const std::string &text, std::string_view pattern) {
    return std::equal(text.begin(), text.end(), pattern.begin(), pattern.end(), [](char c, char cPattern) {
        return cPattern == '0' ? c >= '0' && c <= '9' : c == cPattern;
    });
}

void RequireEndpoint(const std::string &text) {
    unsigned int rgu[4], uPort = 0;
    char cEnd = 0;
    const int n = sscanf(text.c_str(), "%u.%u.%u.%u:%u%c", &rgu[0], &rgu[1], &rgu[2], &rgu[3], &uPort, &cEnd);
    const bool blBytes = n >= 4 && std::all_of(rgu, rgu + 4, [](unsigned int u) { return u < 256; });
    Require(blBytes && n <= 5 && uPort < 65536,
            "an end of a datagram is an address with or without its port");
}

void RequireCapture(std::string_view input) {
    const MemoryFile file(input);
    const std::string path = file.Path();
    std::string error;
    size_t nLast = 0;
    const bool blRead = qiven::decode::ReadCapture(
        path,
        [&](const qiven::decode::InputPacket &packet) {
            Require(packet.from.starts_with(path + " #"), "a packet says where it is from");
            const size_t nPacket = strtoul(packet.from.c_str() + path.size() + 2, nullptr, 10);
            Require(nPacket > nLast, "packets come in their order");
            nLast = nPacket;
            Require(packet.time.empty() || IsLike(packet.time, "0000-00-00T00:00:00.000000Z"),
                    "a time has its form");
            RequireEndpoint(packet.source);
            RequireEndpoint(packet.destination);
            const std::vector<unsigned char> copy(packet.rgbPacket.begin(),
                                                  packet.rgbPacket.end());  // all of it can be read
            Require(copy.size() <= input.size(), "a packet is in the file");
        },
        error);
    Require(blRead == error.empty(), "a failure has its reason");
}

void RequireDatagram(Bytes rgbIP) {
    Datagram datagram;
    if (!qiven::decode::ParseIPv4(rgbIP, 0, datagram)) return;
    const Bytes rgb = datagram.rgbPayload;
    Require(rgb.empty() ||
                (rgb.data() >= rgbIP.data() + 20 && rgb.data() + rgb.size() <= rgbIP.data() + rgbIP.size()),
            "what a datagram carries lies in its packet");
    RequireEndpoint(datagram.source);
    RequireEndpoint(datagram.destination);
    if (!datagram.flaw.empty()) return;
    Require(datagram.blFirst && datagram.fragmentKey.empty(), "a fragment is never without a flaw");
    Require(datagram.source.ends_with(":9999") || datagram.destination.ends_with(":9999"),
            "a datagram is of the discovery port");
}

// Adds headers to the input, as a sender would.
void RequireUnwrapped(std::string_view payload) {
    const size_t cbUDP = 8 + payload.size();
    std::string ip("E\0\0\0\0\1\0\0\x40\x11\0\0\x0A\0\0\1\xFF\xFF\xFF\xFF\4\xD2\x27\x0F\0\0\0\0", 28);
    for (const auto &[iAt, cb] : {std::pair{size_t{2}, 20 + cbUDP}, {24, cbUDP}}) {
        ip[iAt] = static_cast<char>(cb >> 8);
        ip[iAt + 1] = static_cast<char>(cb & 0xFF);
    }
    ip += payload;
    for (const char *szPadding : {"", "padding of the link"}) {
        const std::string frame = ip + szPadding;
        Datagram datagram;
        Require(qiven::decode::ParseIPv4({fuzz::AsBytes(frame), frame.size()}, 0, datagram) &&
                    datagram.flaw.empty(),
                "a whole datagram is recognised");
        Require(
            std::equal(datagram.rgbPayload.begin(), datagram.rgbPayload.end(), payload.begin(), payload.end(),
                       [](unsigned char b, char c) { return b == static_cast<unsigned char>(c); }),
            "a datagram gives what it carries");
        Require(datagram.source == "10.0.0.1:1234" && datagram.destination == "255.255.255.255:9999",
                "a datagram says its ends");
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t cbData) {
    const std::string_view input = fuzz::AsText(pData, cbData);
    RequireCapture(input);
    RequireDatagram({pData, cbData});
    if (cbData < 65000) RequireUnwrapped(input);
    return 0;
}
