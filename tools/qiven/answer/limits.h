// Limits how often to answer. A query costs its sender 20 bytes and cannot be traced, so the traffic that
// queries cause is limited, whatever their number and origin. SECURITY.md adds up these numbers.
#pragma once

#include <qiven/keys.h>

#include <array>
#include <cstdint>

#include "rate_limit.h"

namespace qiven::answer {

using rate_limit::Milliseconds;

// Plain answers are broadcast: all searchers that query within the gap after an answer share the next one.
constexpr Milliseconds kSharedGap = 200;
struct SharedAnswer {
    bool blAsked = false;
    Milliseconds next = 0;
};
// Whether an answer is due; then the caller sends it.
bool TakeDue(SharedAnswer &shared, Milliseconds now);

// The process that an answer is sealed for.
struct Searcher {
    uint32_t ulProcessID;
    std::array<char, QIVEN_KEY_HEX_SIZE> szKeyHex;  // 64 hexadecimal digits

    bool operator==(const Searcher &) const = default;
};

// A sealed answer is for one searcher. A searcher with several interfaces broadcasts its query on each of
// them; the copies that arrive within the gap get one answer.
constexpr Milliseconds kSearcherGap = 250;
constexpr int64_t kSealedBurst = 16;
constexpr int64_t kSealedPerSecond = 16;
constexpr size_t kSearchers = 64;
// Other searchers cannot displace a searcher that was answered within the gap.
static_assert(kSearchers > kSealedBurst + kSealedPerSecond * kSearcherGap / 1000 + 1);

struct RecentAnswer {
    Searcher searcher{};
    Milliseconds time = 0;
};
struct SealedAnswers {
    rate_limit::Bucket all{kSealedBurst, kSealedPerSecond};
    std::array<RecentAnswer, kSearchers> recent;
    size_t uOldest = 0;
};
enum class Admission {
    kSeal,      // send a sealed answer
    kAnswered,  // this searcher has just got one
    kTooMany,   // the limit is reached: the searcher shares the plain answer
};
Admission Admit(SealedAnswers &sealed, const Searcher &searcher, Milliseconds now);

}  // namespace qiven::answer
