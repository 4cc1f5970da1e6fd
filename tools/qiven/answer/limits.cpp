#include "answer/limits.h"

#include <algorithm>

namespace qiven::answer {

bool TakeDue(SharedAnswer &shared, Milliseconds now) {
    if (!shared.blAsked || now < shared.next) return false;
    shared = {false, now + kSharedGap};
    return true;
}

Admission Admit(SealedAnswers &sealed, const Searcher &searcher, Milliseconds now) {
    const auto IsRecent = [&](const RecentAnswer &answered) {
        return answered.searcher == searcher && now - answered.time < kSearcherGap;
    };
    if (std::any_of(sealed.recent.begin(), sealed.recent.end(), IsRecent)) return Admission::kAnswered;
    if (!Take(sealed.all, now)) return Admission::kTooMany;
    sealed.recent[sealed.uOldest] = {searcher, now};
    sealed.uOldest = (sealed.uOldest + 1) % kSearchers;
    return Admission::kSeal;
}

}  // namespace qiven::answer
