// The hosts heard so far: one entry per host, however many cards it answers from and however often.
#pragma once

#include <qiven/nasinfo.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

namespace qiven::find {

using Clock = std::chrono::steady_clock;
using WallClock = std::chrono::system_clock;

struct Host {
    uint64_t ullNumber = 0;                           // order of appearance
    std::string packed;                               // the record, see Unpack()
    std::map<uint32_t, Clock::time_point> addresses;  // network order, with the time of the last answer
    std::vector<std::string> macs;
    uint64_t ullAnswers = 0;
    bool blSealed = false;  // an answer named our process as the one it was sealed for
    Clock::time_point heard;
    WallClock::time_point firstSeen, lastSeen;
};

nasinfo Unpack(const Host &host);

// Strangers decide what comes in, so the table is bounded in hosts and in bytes.
constexpr size_t kHostsMax = 65536;
constexpr size_t kBytesMax = size_t{64} << 20;

struct Hosts {
    std::unordered_map<std::string, Host> byKey;
    uint64_t ullNext = 0;
    size_t cbPacked = 0;
    bool blFull = false;  // a host was left out
};

enum class Heard { kNew, kChanged, kAgain, kLeftOut };

// Files an answer under its host: by host identifier, else hardware address, else name and address.
Heard Add(Hosts &hosts, const nasinfo &record, uint32_t ulOwnProcessID, const Host **ppHost);

// Takes out and returns the hosts not heard since then, and forgets addresses not heard since then.
std::vector<Host> TakeSilent(Hosts &hosts, Clock::time_point since);

// In order of appearance.
std::vector<const Host *> InOrder(const Hosts &hosts);

}  // namespace qiven::find
