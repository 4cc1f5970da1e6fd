#include "answer_limits.h"

#include <algorithm>

namespace qiven::limits {

bool Take(Bucket &bucket, Milliseconds now) {
    constexpr int64_t kToken = 1000;
    bucket.nThousandths =
        std::min(bucket.nBurst * kToken, bucket.nThousandths + (now - bucket.last) * bucket.nPerSecond);
    bucket.last = now;
    if (bucket.nThousandths < kToken) return false;
    bucket.nThousandths -= kToken;
    return true;
}

bool TakeDue(Shared &shared, Milliseconds now) {
    if (!shared.blAsked || now < shared.next) return false;
    shared = {false, now + kSharedGap};
    return true;
}

Verdict Admit(Sealed &sealed, uint32_t ulProcessID, std::string_view keyHex, Milliseconds now) {
    const bool blAnswered = std::any_of(sealed.askers.begin(), sealed.askers.end(), [&](const Asker &asker) {
        return asker.ulProcessID == ulProcessID && asker.keyHex == keyHex && now - asker.answered < kAskerGap;
    });
    if (blAnswered) return Verdict::kAnswered;
    if (!Take(sealed.all, now)) return Verdict::kTooMany;
    sealed.askers[sealed.uOldest] = {ulProcessID, std::string(keyHex), now};
    sealed.uOldest = (sealed.uOldest + 1) % kAskers;
    return Verdict::kSeal;
}

}  // namespace qiven::limits
