// How often to answer. A query costs its sender 20 bytes and cannot be traced, so the traffic that queries
// cause is bounded, whoever sends them and however many. SECURITY.md adds these numbers up.
#pragma once

#include <qiven/keys.h>

#include <array>
#include <cstdint>

#include "rate_limit.h"

namespace qiven::answer {

using rate_limit::Milliseconds;

// Plain answers are for everybody: all searchers that ask within the gap after an answer share the next one.
constexpr Milliseconds kSharedGap = 200;
struct Shared {
    bool blAsked = false;
    Milliseconds next = 0;
};
// Whether the answer that was asked for is due; the caller sends it then.
bool TakeDue(Shared &shared, Milliseconds now);

// The process that an answer is sealed for.
struct Searcher {
    uint32_t ulProcessID;
    std::array<char, QIVEN_KEY_HEX_SIZE> szKeyHex;  // 64 hexadecimal digits

    bool operator==(const Searcher &) const = default;
};

// Sealed answers are for one searcher each. A searcher with several interfaces broadcasts a copy of its query
// on each; copies that arrive within the gap get one answer.
constexpr Milliseconds kSearcherGap = 250;
constexpr int64_t kSealedBurst = 16;
constexpr int64_t kSealedPerSecond = 16;
constexpr size_t kSearchers = 64;
// Strangers cannot push a searcher that was answered within the gap out of the table.
static_assert(kSearchers > kSealedBurst + kSealedPerSecond * kSearcherGap / 1000 + 1);

struct Answered {
    Searcher searcher{};
    Milliseconds time = 0;
};
struct Sealed {
    rate_limit::Bucket all{kSealedBurst, kSealedPerSecond};
    std::array<Answered, kSearchers> recent;
    size_t uOldest = 0;
};
enum class Admission {
    kSeal,      // send a sealed answer
    kAnswered,  // this searcher has just had one
    kTooMany,   // no sealed answer is left: the searcher shares the plain one
};
Admission Admit(Sealed &sealed, const Searcher &searcher, Milliseconds now);

}  // namespace qiven::answer
