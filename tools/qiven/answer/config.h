// What a host announces and where, from a TOML file and the command line.
#pragma once

#include <qiven/packet.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "interface_filter.h"

namespace qiven::answer {

struct Announcement {
    nasinfo record{};
    std::vector<uint32_t> ids;  // packet identifiers of its fields
};

struct Configuration {
    Announcement announcement;
    interface_filter::Filter filter;
    bool blOffSegment = false;  // answer senders whose address is not of the segment
};

// The file, and the options of the command line, which override it.
struct ConfigSource {
    std::string path;  // no file if empty
    std::optional<std::string> name;
    std::optional<std::string> ident;
    std::optional<uint32_t> ulModel;
    std::optional<uint32_t> ulSecond;  // second number of a host-list line
    interface_filter::Filter filter;
    bool blOffSegment = false;
};

// Reads and checks the configuration. Empty if there is an error; then errors has a line for each fault, as
// "file:line: key: fault", with names and values unescaped.
std::optional<Configuration> Load(const ConfigSource &source, std::vector<std::string> &errors);

// The fields that an answer gets for each interface, and those that a sealed answer gets in addition.
constexpr std::array<uint32_t, 3> kInterfaceIds = {PKT_ID_IP, PKT_ID_ADDR_13, PKT_ID_MAC_ADDR};
constexpr std::array<uint32_t, 2> kSealedIds = {PKT_ID_PROCESS_ID, PKT_ID_PEER_PROCESS_ID};

}  // namespace qiven::answer
