// Reads captures, and finds the datagrams of the discovery port in them.
#include <qiven/udp.h>

#include <netinet/in.h>
#include <pcap/pcap.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <set>

#include "decode/input.h"
#include "on_demand.h"
#include "output/utc_time.h"

namespace qiven::decode {

namespace {

using Bytes = std::span<const unsigned char>;

constexpr uint16_t kTypeIPv4 = 0x0800;
constexpr size_t kIPHeaderMin = 20;
constexpr size_t kUDPHeader = 8;

uint16_t Read16(Bytes rgb, size_t iAt) {
    return static_cast<uint16_t>(rgb[iAt] << 8 | rgb[iAt + 1]);
}

std::string AddressText(Bytes rgbIP, size_t iAt) {
    return fmt::format("{}.{}.{}.{}", rgbIP[iAt], rgbIP[iAt + 1], rgbIP[iAt + 2], rgbIP[iAt + 3]);
}

// The header of a link type: its length, and the offset of the type of its payload. If blTyped is not set,
// the frame is an IP packet.
struct LinkType {
    int iLink;
    size_t cbHeader;
    size_t iType;
    bool blTyped;
};

constexpr std::array kLinkTypes = {
    LinkType{DLT_EN10MB, 14, 12, true},    LinkType{DLT_LINUX_SLL, 16, 14, true},
    LinkType{DLT_LINUX_SLL2, 20, 0, true}, LinkType{DLT_RAW, 0, 0, false},
    LinkType{DLT_IPV4, 0, 0, false},
};

const LinkType *FindLinkType(int iLink) {
    const auto *pFound = std::find_if(kLinkTypes.begin(), kLinkTypes.end(),
                                      [iLink](const LinkType &type) { return type.iLink == iLink; });
    return pFound == kLinkTypes.end() ? nullptr : pFound;
}

// Removes the link header from a frame; false if the payload is not IPv4.
bool TakeLink(const LinkType &type, Bytes &rgbFrame) {
    if (!type.blTyped) return true;
    if (rgbFrame.size() < type.cbHeader) return false;
    uint16_t usType = Read16(rgbFrame, type.iType);
    rgbFrame = rgbFrame.subspan(type.cbHeader);
    // At most two VLAN tags, the provider's and the customer's.
    for (int i = 0; i < 2 && (usType == 0x8100 || usType == 0x88A8) && rgbFrame.size() >= 4; ++i) {
        usType = Read16(rgbFrame, 2);
        rgbFrame = rgbFrame.subspan(4);
    }
    return usType == kTypeIPv4;
}

// Datagrams of the discovery port whose further fragments may follow, up to a limit.
struct Fragments {
    static constexpr size_t kMax = 4096;
    std::set<std::string> keys;

    bool Belongs(const Datagram &datagram) {
        if (datagram.fragmentKey.empty()) return true;
        if (!datagram.blFirst) return keys.count(datagram.fragmentKey) != 0;
        if (keys.size() >= kMax) keys.clear();
        keys.insert(datagram.fragmentKey);
        return true;
    }
};

// The functions of libpcap that are used.
struct Pcap {
    decltype(&pcap_open_offline) pfnOpenOffline = nullptr;
    decltype(&pcap_close) pfnClose = nullptr;
    decltype(&pcap_datalink) pfnDatalink = nullptr;
    decltype(&pcap_datalink_val_to_name) pfnDatalinkName = nullptr;
    decltype(&pcap_next_ex) pfnNext = nullptr;
    decltype(&pcap_geterr) pfnError = nullptr;
};

bool Load(Pcap &pcap) {
    // The name in Debian, and the name elsewhere.
    void *pLibrary = on_demand::Library({"libpcap.so.0.8", "libpcap.so.1"});
    using on_demand::Get;
    return Get(pcap.pfnOpenOffline, pLibrary, "pcap_open_offline") &&
           Get(pcap.pfnClose, pLibrary, "pcap_close") && Get(pcap.pfnDatalink, pLibrary, "pcap_datalink") &&
           Get(pcap.pfnDatalinkName, pLibrary, "pcap_datalink_val_to_name") &&
           Get(pcap.pfnNext, pLibrary, "pcap_next_ex") && Get(pcap.pfnError, pLibrary, "pcap_geterr");
}

}  // namespace

bool ParseIPv4(std::span<const unsigned char> rgbIP, size_t cbMissing, Datagram &datagram) {
    if (rgbIP.size() < kIPHeaderMin || rgbIP[0] >> 4 != 4 || rgbIP[9] != IPPROTO_UDP) return false;
    const size_t cbHeader = size_t{rgbIP[0] & 0x0FU} * 4;
    const size_t cbTotal = Read16(rgbIP, 2);
    if (cbHeader < kIPHeaderMin || cbTotal < cbHeader) return false;
    const uint16_t usFragment = Read16(rgbIP, 6);
    const bool blMore = (usFragment & 0x2000) != 0;
    const bool blFirst = (usFragment & 0x1FFF) == 0;
    // The link pads short frames: bytes after the total length are not part of the packet.
    const bool blCut = cbTotal > rgbIP.size();
    Bytes rgbLeft = rgbIP.first(std::min(cbTotal, rgbIP.size()));
    if (rgbLeft.size() < cbHeader) return false;
    rgbLeft = rgbLeft.subspan(cbHeader);
    datagram.source = AddressText(rgbIP, 12);
    datagram.destination = AddressText(rgbIP, 16);
    datagram.blFirst = blFirst;
    if (blMore || !blFirst) {
        datagram.fragmentKey =
            fmt::format("{} {} {}", datagram.source, datagram.destination, Read16(rgbIP, 4));
    }
    if (!blFirst) {
        datagram.flaw = fmt::format("fragment at offset {} of a UDP datagram: it cannot be checked alone",
                                    (usFragment & 0x1FFF) * 8);
        datagram.rgbPayload = rgbLeft;
        return true;
    }
    if (rgbLeft.size() < kUDPHeader) return false;
    const uint16_t usSource = Read16(rgbLeft, 0);
    const uint16_t usDestination = Read16(rgbLeft, 2);
    if (usSource != QIVEN_PORT && usDestination != QIVEN_PORT) return false;
    datagram.source += fmt::format(":{}", usSource);
    datagram.destination += fmt::format(":{}", usDestination);
    const size_t cbUDP = Read16(rgbLeft, 4);
    if (blMore) {
        datagram.flaw = "first fragment of a UDP datagram: it cannot be checked alone";
    } else if (blCut || cbUDP > rgbLeft.size()) {
        datagram.flaw = cbMissing != 0 ? fmt::format("captured without its last {} bytes", cbMissing)
                                       : std::string("shorter than its IP and UDP headers say");
    }
    rgbLeft = rgbLeft.first(std::clamp(cbUDP, kUDPHeader, rgbLeft.size()));
    datagram.rgbPayload = rgbLeft.subspan(kUDPHeader);
    return true;
}

bool ReadCapture(const std::string &path, const PacketSink &sink, std::string &error) {
    Pcap pcap;
    if (!Load(pcap)) {
        error = "reading captures needs libpcap, which is not installed";
        return false;
    }
    char szError[PCAP_ERRBUF_SIZE] = {};
    const std::unique_ptr<pcap_t, decltype(&pcap_close)> capture(pcap.pfnOpenOffline(path.c_str(), szError),
                                                                 pcap.pfnClose);
    if (capture == nullptr) {
        error = szError;
        return false;
    }
    const int iLink = pcap.pfnDatalink(capture.get());
    const LinkType *pType = FindLinkType(iLink);
    if (pType == nullptr) {
        const char *szName = pcap.pfnDatalinkName(iLink);
        error =
            fmt::format("link type {} is not supported", szName != nullptr ? szName : std::to_string(iLink));
        return false;
    }
    pcap_pkthdr *pHeader = nullptr;
    const unsigned char *pFrame = nullptr;
    int iResult = 0;
    Fragments fragments;
    for (size_t nPacket = 1; (iResult = pcap.pfnNext(capture.get(), &pHeader, &pFrame)) == 1; ++nPacket) {
        Bytes rgbFrame{pFrame, pHeader->caplen};
        Datagram datagram;
        const size_t cbMissing = pHeader->len > pHeader->caplen ? pHeader->len - pHeader->caplen : 0;
        if (!TakeLink(*pType, rgbFrame) || !ParseIPv4(rgbFrame, cbMissing, datagram)) continue;
        if (!fragments.Belongs(datagram)) continue;
        sink({fmt::format("{} #{}", path, nPacket), UtcTime(pHeader->ts), datagram.source,
              datagram.destination, datagram.flaw, datagram.rgbPayload});
    }
    if (iResult != PCAP_ERROR) return true;
    error = pcap.pfnError(capture.get());
    return false;
}

}  // namespace qiven::decode
