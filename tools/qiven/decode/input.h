// Where `qiven decode` gets its packets from.
#pragma once

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qiven::decode {

struct InputPacket {
    std::string from;  // file and number, addresses: for people, free of network text
    std::string time;  // UTC, of a captured packet
    std::string source;
    std::string destination;
    std::string flaw;  // why it cannot be judged (a fragment, captured in part), else empty
    std::span<const unsigned char> rgbPacket;
};

using PacketSink = std::function<void(const InputPacket &)>;

// Largest file of hexadecimal digits.
inline constexpr size_t kHexTextMax = 4 << 20;
// Largest raw packet: what a UDP datagram can carry.
inline constexpr size_t kRawMax = 65535;

// Reads hexadecimal digits: white space, colons and 0x between them, and the offset and text columns of xxd
// and tcpdump -x. An empty line or offset 0 begins another packet. False with a message when it is anything
// else.
bool ParseHex(std::string_view text, std::vector<std::vector<unsigned char>> &packets, std::string &error);

// Reads at most cbMax bytes; false with a message when the file cannot be read or is larger. "-" is standard
// input.
bool ReadWhole(const std::string &path, size_t cbMax, std::string &content, std::string &error);

// Hands the discovery packets of a pcap or pcapng capture to the sink; false with a message when the file
// cannot be read (to its end).
bool ReadCapture(const std::string &path, const PacketSink &sink, std::string &error);

// An IPv4 packet that carries a datagram of the discovery port.
struct Datagram {
    bool blFirst = true;  // a later fragment does not say its port: it belongs to the first one of its key
    std::string fragmentKey;  // of a fragment
    std::string source;
    std::string destination;
    std::string flaw;
    std::span<const unsigned char> rgbPayload;
};

// Takes an IPv4 packet apart. cbMissing bytes of it were not captured. False when it is something else, or a
// datagram of another port.
bool ParseIPv4(std::span<const unsigned char> rgbIP, size_t cbMissing, Datagram &datagram);

}  // namespace qiven::decode
