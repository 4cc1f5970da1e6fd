// Limits how often to answer. A query costs its sender 20 bytes and cannot be traced, so the traffic that
// queries cause is limited, whatever their number and origin. SECURITY.md adds up these numbers.
#pragma once

#include <qiven/keys.h>

#include <array>
#include <cstdint>
#include <map>
#include <optional>

#include "rate_limit.h"

namespace qiven::answer {

using rate_limit::Milliseconds;

// Plain answers are broadcast: all searchers of a segment that query within the gap after an answer share the
// next one.
constexpr Milliseconds kSharedGap = 200;
struct SharedAnswer {
    uint32_t ulIfIndex = 0;  // where the last query came from
    bool blAsked = false;
    Milliseconds next = 0;
};
using SharedAnswers = std::map<uint32_t, SharedAnswer>;  // by segment
void Ask(SharedAnswers &shared, uint32_t ulSegment, uint32_t ulIfIndex);
// The interface that an answer is due on, which the caller then sends. Segments without queries are
// forgotten.
std::optional<uint32_t> TakeDue(SharedAnswers &shared, Milliseconds now);
// When the next one is due; empty if there is none.
std::optional<Milliseconds> NextDue(const SharedAnswers &shared);

// The process that an answer is sealed for, and the segment that it asked on.
struct Searcher {
    uint32_t ulSegment;
    uint32_t ulProcessID;
    std::array<char, QIVEN_KEY_HEX_SIZE> szKeyHex;  // 64 hexadecimal digits

    bool operator==(const Searcher &) const = default;
};

// A sealed answer is for one searcher. Two interfaces on one segment receive its query twice; the copies that
// arrive within the gap get one answer.
constexpr Milliseconds kSearcherGap = 250;
constexpr int64_t kSealedBurst = 16;
constexpr int64_t kSealedPerSecond = 16;
constexpr size_t kSearchers = 64;
// Other searchers cannot displace a searcher that was answered within the gap.
static_assert(kSearchers > kSealedBurst + kSealedPerSecond * kSearcherGap / 1000 + 1);

// The searchers at one address have half of it, so that their number does not keep others from an answer.
constexpr int64_t kSourceBurst = 8;
constexpr int64_t kSourcePerSecond = 8;
constexpr size_t kSources = 64;
// Other addresses cannot displace one that has used up a part of its share.
static_assert(kSources > kSealedBurst + kSealedPerSecond * kSourceBurst / kSourcePerSecond + 1);

struct RecentAnswer {
    Searcher searcher{};
    Milliseconds time = 0;
};
struct Source {
    uint32_t ulAddress = 0;
    rate_limit::Bucket share{kSourceBurst, kSourcePerSecond};
};
struct SealedAnswers {
    rate_limit::Bucket all{kSealedBurst, kSealedPerSecond};
    std::array<RecentAnswer, kSearchers> recent;
    size_t uOldest = 0;
    std::array<Source, kSources> sources;
};
enum class Admission {
    kSeal,      // send a sealed answer
    kAnswered,  // this searcher has just got one
    kTooMany,   // a limit is reached: the searcher shares the plain answer
};
Admission Admit(SealedAnswers &sealed, const Searcher &searcher, uint32_t ulSource, Milliseconds now);

}  // namespace qiven::answer
