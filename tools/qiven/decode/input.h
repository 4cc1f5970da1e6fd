// The input of `qiven decode`: hexadecimal digits (input_hex.cpp), raw files and
// captures (input_capture.cpp).
#pragma once

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qiven::decode {

struct InputPacket {
    std::string from;  // file and number, to be shown
    std::string time;  // UTC, of a captured packet
    std::string source;
    std::string destination;
    std::string flaw;  // why it is incomplete (a fragment, captured in part), or empty
    std::span<const unsigned char> rgbPacket;
};

using PacketSink = std::function<void(const InputPacket &)>;

// Largest file of hexadecimal digits.
inline constexpr size_t kHexTextMax = 4 << 20;
// Largest raw packet: the limit of a UDP datagram.
inline constexpr size_t kRawMax = 65535;

// Reads hexadecimal digits. Accepts white space, colons and 0x between bytes, and the offset and text
// columns of xxd and tcpdump -x. An empty line or offset 0 begins another packet. False with a message for
// other input.
bool ParseHex(std::string_view text, std::vector<std::vector<unsigned char>> &packets, std::string &error);

// Reads at most cbMax bytes; false with a message if the file cannot be read or is larger. "-" is
// standard input.
bool ReadWhole(const std::string &path, size_t cbMax, std::string &content, std::string &error);

// Passes the discovery packets of a pcap or pcapng capture to the sink; false with a message if the file
// cannot be read to its end.
bool ReadCapture(const std::string &path, const PacketSink &sink, std::string &error);

// A datagram to or from the discovery port.
struct Datagram {
    bool blFirst = true;      // a later fragment has no port: it belongs to the first one with its key
    std::string fragmentKey;  // of a fragment
    std::string source;
    std::string destination;
    std::string flaw;
    std::span<const unsigned char> rgbPayload;
};

// Parses an IPv4 packet of which cbMissing bytes were not captured. False if it is something else or a
// datagram of another port.
bool ParseIPv4(std::span<const unsigned char> rgbIP, size_t cbMissing, Datagram &datagram);

}  // namespace qiven::decode
