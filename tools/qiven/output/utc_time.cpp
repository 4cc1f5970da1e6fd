#include "output/utc_time.h"

#include <ctime>

#include "output/format.h"

namespace qiven {

namespace {

// The date and the time of day; empty if it cannot be expressed.
std::string Seconds(time_t seconds) {
    constexpr int64_t kEndOf9999 = 253'402'300'799;  // more than a time_t of 32 bits can hold
    tm utc{};
    char szTime[32] = {};
    if (seconds < 0 || seconds > kEndOf9999 || gmtime_r(&seconds, &utc) == nullptr ||
        strftime(szTime, sizeof szTime, "%FT%T", &utc) == 0)
        return {};
    return szTime;
}

}  // namespace

std::string UtcTime(int64_t llUnixUs) {
    constexpr int64_t kSecond = 1'000'000;
    return fmt::format("{}.{:03}Z", Seconds(static_cast<time_t>(llUnixUs / kSecond)),
                       llUnixUs % kSecond / 1000);
}

std::string UtcTime(const timeval &time) {
    constexpr suseconds_t kSecond = 1'000'000;
    const std::string text = Seconds(time.tv_sec);
    if (text.empty() || time.tv_usec < 0 || time.tv_usec >= kSecond) return {};
    return fmt::format("{}.{:06}Z", text, time.tv_usec);
}

}  // namespace qiven
