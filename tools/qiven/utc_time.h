// Times as text, in UTC.
#pragma once

#include <sys/time.h>

#include <chrono>
#include <string>

namespace qiven {

// "2026-01-31T08:15:00.123Z"
std::string UtcTime(std::chrono::system_clock::time_point time);

// The same with microseconds. Empty for an invalid time and for a year before 1970 or after 9999.
std::string UtcTime(const timeval &time);

}  // namespace qiven
