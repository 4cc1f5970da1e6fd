// The hosts heard so far: one entry per host, however many interfaces it answers from and however often.
#pragma once

#include <qiven/nasinfo.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace qiven::find {

using Clock = std::chrono::steady_clock;
using WallClock = std::chrono::system_clock;

struct HeardAddress {
    uint32_t ulIP;  // network order
    Clock::time_point heard;
};

struct Host {
    uint64_t ullNumber = 0;               // order of appearance
    std::string packed;                   // the record, see Unpack()
    std::vector<HeardAddress> addresses;  // ascending
    std::vector<std::string> macs;
    uint64_t ullAnswers = 0;
    unsigned int uRound = 0;   // the query that its first answer followed
    bool blSealed = false;     // an answer was sealed for this process
    bool blConfirmed = false;  // it has answered a later query, too
    bool blDoubtful = false;   // the table was full when it first answered, and it is not confirmed
    bool blHeld = false;       // the caller refers to it: it must not be removed for another host
    bool blReported = false;   // --watch has written an event of it
    bool blChanged = false;    // but not of its last change
    Clock::time_point reported;
    Clock::time_point heard;
    WallClock::time_point firstSeen, lastSeen;
    // Used by the table.
    size_t uPlace = 0;
    size_t cbCounted = 0;
};

nasinfo Unpack(const Host &host);

// Any sender can add to the table, so it is bounded in hosts and in bytes. The bytes include everything that
// an answer adds.
constexpr size_t kHostsMax = 65536;
constexpr size_t kBytesMax = size_t{32} << 20;

// An ordered map: senders choose the keys, and could choose keys with the same hash value.
using Table = std::map<std::string, Host>;

struct Hosts {
    Table byKey;
    std::vector<Table::iterator> places;  // in no order, to pick one at random
    uint64_t ullNext = 0;
    size_t cbCounted = 0;
    bool blWasFull = false;  // a host was left out or removed
    uint32_t ulRandom = 0;
};

enum class Heard {
    kNew,
    kChanged,
    kAgain,
    kDoubtful,  // new to a full table: counts as new once it is confirmed
    kLeftOut,
};

// The state of the search when an answer arrives.
struct Context {
    uint32_t ulOwnProcessID;
    unsigned int uRound;  // queries sent so far
};

// Adds an answer to its host, which is identified by host identifier, else MAC address, else name and
// address. In a full table, a host that has answered only one query and is not held is removed for a new one:
// a sender that forges thousands of hosts rarely answers for each of them again, but a real host does. Sets
// *ppHost unless the host was left out.
Heard Add(Hosts &hosts, const nasinfo &record, const Context &context, Host **ppHost);

// Pointers to other hosts stay valid.
void Remove(Hosts &hosts, const Host &host);

// Removes the addresses of a host that have not answered since then.
void ForgetAddresses(Hosts &hosts, Host &host, Clock::time_point since);

// In order of appearance.
std::vector<const Host *> InOrder(const Hosts &hosts);

}  // namespace qiven::find
