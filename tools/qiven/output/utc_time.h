// Times as text, in UTC.
#pragma once

#include <sys/time.h>

#include <cstdint>
#include <string>

namespace qiven {

// "2026-01-31T08:15:00.123Z", of microseconds since 1970.
std::string UtcTime(int64_t llUnixUs);

// The same with microseconds. Empty for an invalid time and for a year before 1970 or after 9999.
std::string UtcTime(const timeval &time);

}  // namespace qiven
