// Times in microseconds.
#pragma once

#include <cstdint>
#include <ctime>

namespace qiven::watch {

constexpr uint64_t kMillisecond = 1000;
constexpr uint64_t kSecond = 1000 * kMillisecond;
constexpr uint64_t kNever = UINT64_MAX;

inline int64_t ReadClock(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}
inline uint64_t NowUs() {
    return static_cast<uint64_t>(ReadClock(CLOCK_MONOTONIC));
}
inline int64_t UnixUs() {
    return ReadClock(CLOCK_REALTIME);
}

}  // namespace qiven::watch
