// How much answering is enough. A query costs its sender 20 bytes and cannot be traced, so what it makes this
// host broadcast is bounded whoever asks, and however often. docs/limits.md adds these numbers up.
//
// Times are milliseconds of a monotonic clock, given by the caller.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace qiven::limits {

using Milliseconds = int64_t;

// A bucket of tokens that refills steadily.
struct Bucket {
    int64_t nBurst;
    int64_t nPerSecond;
    int64_t nThousandths = nBurst * 1000;
    Milliseconds last = 0;
};
bool Take(Bucket &bucket, Milliseconds now);

// Plain answers are for everybody: all who ask within the gap after an answer share the next one.
constexpr Milliseconds kSharedGap = 200;
struct Shared {
    bool blAsked = false;
    Milliseconds next = 0;
};
// Whether the answer that was asked for is due; the caller sends it then.
bool TakeDue(Shared &shared, Milliseconds now);

// Sealed answers are for one asker each. The copies of a query that a sender with several cards broadcasts
// arrive within the asker's gap and get one answer.
constexpr Milliseconds kAskerGap = 250;
constexpr int64_t kSealedBurst = 16;
constexpr int64_t kSealedPerSecond = 16;
constexpr size_t kAskers = 64;
// Nobody who was answered within the gap can have been pushed out of the table by strangers.
static_assert(kAskers > kSealedBurst + kSealedPerSecond * kAskerGap / 1000 + 1);

struct Asker {
    uint32_t ulProcessID = 0;
    std::string keyHex;
    Milliseconds answered = 0;
};
struct Sealed {
    Bucket all{kSealedBurst, kSealedPerSecond};
    std::array<Asker, kAskers> askers;
    size_t uOldest = 0;
};
enum class Verdict {
    kSeal,      // send a sealed answer
    kAnswered,  // this asker has just had one
    kTooMany,   // all sealed answers are spent: let the asker share the plain one
};
Verdict Admit(Sealed &sealed, uint32_t ulProcessID, std::string_view keyHex, Milliseconds now);

}  // namespace qiven::limits
