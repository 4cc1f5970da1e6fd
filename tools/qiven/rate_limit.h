// Limits how often something happens, by a monotonic clock in milliseconds.
#pragma once

#include <algorithm>
#include <cstdint>
#include <ctime>

namespace qiven::rate_limit {

using Milliseconds = int64_t;

inline Milliseconds Now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return Milliseconds{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// A bucket of tokens that is refilled steadily.
struct Bucket {
    int64_t nBurst;
    int64_t nPerSecond;
    int64_t nThousandths = nBurst * 1000;  // below 0 after an expensive token
    Milliseconds last = 0;
};

constexpr int64_t kToken = 1000;

inline void Refill(Bucket &bucket, Milliseconds now) {
    bucket.nThousandths =
        std::min(bucket.nBurst * kToken, bucket.nThousandths + (now - bucket.last) * bucket.nPerSecond);
    bucket.last = now;
}

inline bool IsFull(const Bucket &bucket) {
    return bucket.nThousandths == bucket.nBurst * kToken;
}

inline bool HasToken(Bucket &bucket, Milliseconds now) {
    Refill(bucket, now);
    return bucket.nThousandths >= kToken;
}

// Takes a token; false if none is left.
inline bool Take(Bucket &bucket, Milliseconds now) {
    if (!HasToken(bucket, now)) return false;
    bucket.nThousandths -= kToken;
    return true;
}

}  // namespace qiven::rate_limit
