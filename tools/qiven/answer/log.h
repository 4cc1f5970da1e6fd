// Messages of "qiven answer". However many packets arrive, the log grows slowly.
#pragma once

#include <cstdint>
#include <string_view>

#include "rate_limit.h"

namespace qiven::answer {

struct LimitedLog {
    rate_limit::Bucket lines;
    uint64_t nOmitted = 0;
};

void Say(std::string_view line) noexcept;
// Says it unless the limit is reached; the next line has the number of those that were omitted.
void Say(LimitedLog &log, std::string_view line) noexcept;

}  // namespace qiven::answer
