#include "answer_limits.h"

#include <algorithm>

namespace qiven::limits {

bool TakeDue(Shared &shared, Milliseconds now) {
    if (!shared.blAsked || now < shared.next) return false;
    shared = {false, now + kSharedGap};
    return true;
}

Verdict Admit(Sealed &sealed, const Searcher &searcher, Milliseconds now) {
    const auto IsRecent = [&](const Answered &answered) {
        return answered.searcher == searcher && now - answered.time < kSearcherGap;
    };
    if (std::any_of(sealed.recent.begin(), sealed.recent.end(), IsRecent)) return Verdict::kAnswered;
    if (!Take(sealed.all, now)) return Verdict::kTooMany;
    sealed.recent[sealed.uOldest] = {searcher, now};
    sealed.uOldest = (sealed.uOldest + 1) % kSearchers;
    return Verdict::kSeal;
}

}  // namespace qiven::limits
