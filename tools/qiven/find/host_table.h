// The hosts heard so far: one entry per host, however many cards it answers from and however often.
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
    bool blSealed = false;     // an answer named our process as the one it was sealed for
    bool blConfirmed = false;  // it has answered after a later query, too
    bool blDoubtful = false;   // the table was full when it came, and it is not confirmed
    bool blHeld = false;       // the caller relies on it: it must not make space for another host
    bool blTold = false;       // the reader of --watch knows of it
    bool blChanged = false;    // and not of its last change
    Clock::time_point told;
    Clock::time_point heard;
    WallClock::time_point firstSeen, lastSeen;
    // For its table.
    size_t uPlace = 0;
    size_t cbCounted = 0;
};

nasinfo Unpack(const Host &host);

// Strangers decide what comes in, so the table is bounded: in hosts, and in bytes of everything that they can
// add to it.
constexpr size_t kHostsMax = 65536;
constexpr size_t kBytesMax = size_t{32} << 20;

// An ordered map, because strangers choose the keys, and could choose keys of one hash value.
using Table = std::map<std::string, Host>;

struct Hosts {
    Table byKey;
    std::vector<Table::iterator> places;  // in no order: one can be drawn at random
    uint64_t ullNext = 0;
    size_t cbCounted = 0;
    bool blWasFull = false;  // a host was left out or had to make space
    uint32_t ulRandom = 0;
};

enum class Heard {
    kNew,
    kChanged,
    kAgain,
    kDoubtful,  // new to a full table: it counts as new when it is confirmed
    kLeftOut,
};

// What the searcher knows of an answer.
struct Context {
    uint32_t ulOwnProcessID;
    unsigned int uRound;  // queries asked so far
};

// Files an answer under its host: by host identifier, else hardware address, else name and address. In a full
// table, a host that has answered one query only and is not held makes space for a new one: whoever forges
// hosts by the thousand rarely answers for each of them again, and a real host does. Sets *ppHost unless the
// host was left out.
Heard Add(Hosts &hosts, const nasinfo &record, const Context &context, Host **ppHost);

// Pointers to other hosts stay valid.
void Remove(Hosts &hosts, const Host &host);

// Forgets the addresses of a host that were not heard since then.
void ForgetAddresses(Hosts &hosts, Host &host, Clock::time_point since);

// In order of appearance.
std::vector<const Host *> InOrder(const Hosts &hosts);

}  // namespace qiven::find
