#include "rounds.h"

#include <algorithm>

#include "clock.h"

namespace qiven::watch {

namespace {

constexpr unsigned kRoundsMin = 2;
// A host may take the queries of a quarter of a second for one.
constexpr uint64_t kPause = 400 * kMillisecond;
constexpr uint64_t kPauseEmpty = 800 * kMillisecond;
// Answers no further apart are one burst: a query before all hosts have answered the last one would only
// double it. But nobody may keep it up.
constexpr uint64_t kBurstGap = 100 * kMillisecond;
constexpr uint64_t kBurstMax = 3 * kSecond;
// Disks spin up before some hosts answer; a segment where nobody has answered yet gets more time.
constexpr uint64_t kAtLeast = 1500 * kMillisecond;
constexpr uint64_t kAtLeastEmpty = 3 * kSecond;
constexpr uint64_t kQuiet = kSecond;

}  // namespace

void Start(Rounds &rounds, uint64_t ullNowUs) {
    rounds.ullStartUs = rounds.ullQueryUs = rounds.ullNewUs = ullNowUs;
    rounds.nRounds = 0;
    rounds.blSettled = rounds.blNews = rounds.blCrowded = false;
}

void NoteQuery(Rounds &rounds, uint64_t ullNowUs) {
    rounds.ullQueryUs = ullNowUs;
    rounds.blNews = rounds.blCrowded = false;
    ++rounds.nRounds;
}

uint64_t NextQueryUs(const Rounds &rounds, bool blHosts) {
    if (rounds.blSettled) return rounds.ullPeriodUs > 0 ? rounds.ullQueryUs + rounds.ullPeriodUs : kNever;
    if (rounds.nRounds == 0) return 0;
    const bool blMore = rounds.nRounds < kRoundsMin || rounds.blNews;
    const uint64_t ullGapUs = rounds.blBacklog ? kNever : rounds.ullHeardUs + kBurstGap;
    const uint64_t ullBurstUs = std::min(ullGapUs, rounds.ullQueryUs + kBurstMax);
    if (blMore) return std::max(rounds.ullQueryUs + kPause, rounds.blCrowded ? 0 : ullBurstUs);
    // Where nobody answers, a few more times, but not so late that it would keep the search from settling.
    const uint64_t ullAgainUs = rounds.ullQueryUs + kPauseEmpty;
    return blHosts || ullAgainUs > rounds.ullStartUs + kAtLeastEmpty - kQuiet ? kNever : ullAgainUs;
}

uint64_t SettlesUs(const Rounds &rounds, bool blHosts) {
    if (rounds.blSettled) return kNever;
    const uint64_t ullLimitUs = rounds.ullStartUs + rounds.ullLimitUs;
    if (NextQueryUs(rounds, blHosts) != kNever) return ullLimitUs;
    const uint64_t ullQuietUs =
        std::max({rounds.ullStartUs + (blHosts ? kAtLeast : kAtLeastEmpty), rounds.ullNewUs + kQuiet,
                  rounds.ullQueryUs + kQuiet, rounds.blBacklog ? rounds.ullQueryUs + kBurstMax : 0});
    return std::min(ullLimitUs, ullQuietUs);
}

}  // namespace qiven::watch
