// What a host announces: the fields of its record, from a TOML file and the command line.
#pragma once

#include <qiven/packet.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace qiven::answer {

struct Announcement {
    nasinfo record{};
    std::vector<uint32_t> ids;  // packet identifiers of what is announced
};

// What the command line says; it goes before the file.
struct Source {
    std::string path;  // no file when empty
    std::optional<std::string> name;
    std::optional<std::string> ident;
    std::optional<uint32_t> ulModel;
    std::optional<uint32_t> ulSecond;  // second number of a host-list line
};

// Reads and checks everything. Nothing when there is an error; then each fault has its line in errors, as
// "file:line: key: what is wrong", with names and values as they are.
std::optional<Announcement> Load(const Source &source, std::vector<std::string> &errors);

// What each interface adds to its copy of the record.
constexpr uint32_t kIdAddress = 0x12;
constexpr uint32_t kIdMask = 0x13;
constexpr uint32_t kIdMac = 0x7C;
// What each sealed answer adds.
constexpr uint32_t kIdProcess = 0xC5;
constexpr uint32_t kIdPeerProcess = 0xC6;

}  // namespace qiven::answer
