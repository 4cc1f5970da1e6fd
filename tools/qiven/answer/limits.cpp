#include "answer/limits.h"

#include <algorithm>

namespace qiven::answer {

namespace {

Source &Find(std::array<Source, kSources> &sources, uint32_t ulAddress, Milliseconds now) {
    Source *pUnused = &sources.front();
    for (Source &source : sources) {
        if (source.ulAddress == ulAddress) return source;
        Refill(source.share, now);
        if (IsFull(source.share)) pUnused = &source;
    }
    pUnused->ulAddress = ulAddress;
    return *pUnused;
}

}  // namespace

void Ask(SharedAnswers &shared, uint32_t ulSegment, uint32_t ulIfIndex) {
    SharedAnswer &answer = shared[ulSegment];
    answer.ulIfIndex = ulIfIndex;
    answer.blAsked = true;
}

std::optional<uint32_t> TakeDue(SharedAnswers &shared, Milliseconds now) {
    std::erase_if(shared,
                  [now](const auto &entry) { return !entry.second.blAsked && now >= entry.second.next; });
    for (auto &[ulSegment, answer] : shared) {
        if (!answer.blAsked || now < answer.next) continue;
        answer.blAsked = false;
        answer.next = now + kSharedGap;
        return answer.ulIfIndex;
    }
    return std::nullopt;
}

std::optional<Milliseconds> NextDue(const SharedAnswers &shared) {
    std::optional<Milliseconds> next;
    for (const auto &[ulSegment, answer] : shared)
        if (answer.blAsked && (!next || answer.next < *next)) next = answer.next;
    return next;
}

Admission Admit(SealedAnswers &sealed, const Searcher &searcher, uint32_t ulSource, Milliseconds now) {
    const auto IsRecent = [&](const RecentAnswer &answered) {
        return answered.searcher == searcher && now - answered.time < kSearcherGap;
    };
    if (std::any_of(sealed.recent.begin(), sealed.recent.end(), IsRecent)) return Admission::kAnswered;
    Source &source = Find(sealed.sources, ulSource, now);
    if (!HasToken(source.share, now) || !Take(sealed.all, now)) return Admission::kTooMany;
    Take(source.share, now);
    sealed.recent[sealed.uOldest] = {searcher, now};
    sealed.uOldest = (sealed.uOldest + 1) % kSearchers;
    return Admission::kSeal;
}

}  // namespace qiven::answer
